"""Who the caller is: a private key, and the session tokens made from it.

The real package proves its key to a service. The stand-in has none, so its tokens are
signed for this machine only; what matters to callers is when there is one and when not.
"""

import hashlib
import hmac
import re
import secrets
import time

_KEY_FORM = re.compile(r"(0x)?[0-9a-fA-F]{64}")


class AuthError(Exception):
    """The caller is not registered or logged in, or gave a private key that is none."""


class AuthManager:
    """Holds one agent's private key (64 hexadecimal digits) and hands out session tokens.

    Raises AuthError when `private_key` does not have that form.
    """

    TOKEN_SECONDS = 3600

    def __init__(self, private_key: str) -> None:
        if not isinstance(private_key, str) or not _KEY_FORM.fullmatch(private_key):
            raise AuthError("private key must be 64 hexadecimal digits.")
        self._key = bytes.fromhex(private_key.removeprefix("0x"))
        self._token = ""
        self._token_expires = 0.0

    @property
    def agent_id(self) -> str:
        """A public name of the agent: it identifies the key without giving it away."""
        return "agent-" + hashlib.sha256(self._key).hexdigest()[:12]

    def get_token(self) -> str:
        """Return a session token, a new one once the last has expired."""
        now = time.time()
        if now >= self._token_expires:
            self._token_expires = now + self.TOKEN_SECONDS
            claim = f"{self.agent_id}:{int(self._token_expires)}"
            signature = hmac.new(self._key, claim.encode("ascii"), hashlib.sha256).hexdigest()
            self._token = f"{claim}:{signature}"
        return self._token


def new_private_key() -> str:
    """Return a new random private key, 64 hexadecimal digits."""
    return secrets.token_hex(32)
