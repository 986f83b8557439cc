"""Where an agent begins: configuration, registration, login and the start of the runtime."""

import os
from collections.abc import Mapping
from typing import Any

from kestrune.auth import AuthManager, new_private_key

# The real package gets the era from its service. A pool takes a candidate whose correlation
# to the pool's members is below its threshold: in sample for the search, out of sample (os)
# when the candidate is judged.
DEFAULT_ERA_CONFIG: dict[str, Any] = {
    "signal_pools": [
        {"name": "core", "is_correlation_threshold": 0.7, "os_correlation_threshold": 0.8},
        {"name": "diverse", "is_correlation_threshold": 0.4, "os_correlation_threshold": 0.6},
    ],
}

_config: dict[str, Any] = {}
_auth_manager: AuthManager | None = None


def configure(
    *,
    data_dir: str | os.PathLike[str] | None = None,
    database_url: str | None = None,
    era_config: Mapping[str, Any] | None = None,
) -> None:
    """Set where search data is kept and which era is active; None leaves a setting as it is.

    `data_dir` is the folder of the search data. `database_url`, when it begins with
    "postgresql://" or "postgres://", keeps the evaluations on that server instead of in a
    SQLite file in the folder; "" goes back to the file. `era_config` holds the era's
    `signal_pools`. What a running runtime has already opened stays as it is.
    """
    if data_dir is not None:
        _config["data_dir"] = os.fspath(data_dir)
    if database_url is not None:
        _config["database_url"] = database_url
    if era_config is not None:
        _config["era_config"] = dict(era_config)


def register() -> str:
    """Make a new agent, log it in and return its private key: the only copy there is."""
    private_key = new_private_key()
    login(private_key)
    return private_key


def login(private_key: str) -> None:
    """Log the agent with this private key in; AuthError when it is not a private key."""
    global _auth_manager
    _auth_manager = AuthManager(private_key)
    _config.setdefault("era_config", DEFAULT_ERA_CONFIG)


def logout() -> None:
    """Forget the agent and close the runtime; the configuration stays."""
    global _auth_manager
    from kestrune import _runtime, search_templates

    _auth_manager = search_templates._auth = None
    _runtime.set_runtime(None)


def ensure_runtime_bootstrapped(strict: bool = True) -> Any:
    """Return the process's runtime, started over the configuration if there is none yet.

    Without a login, an era configuration and an existing data folder there can be none:
    that is a RuntimeError when `strict`, else None.
    """
    from kestrune import _runtime
    from kestrune.search_tracking import SearchTracker

    runtime = _runtime.get_runtime()
    if runtime is not None:
        return runtime
    data_dir = os.path.expanduser(_config.get("data_dir") or "")
    if _auth_manager is None or "era_config" not in _config or not os.path.isdir(data_dir):
        if strict:
            raise RuntimeError("The runtime needs a login and an existing data directory.")
        return None
    runtime = _runtime.Runtime(SearchTracker(data_dir), _config["era_config"])
    _runtime.set_runtime(runtime)
    return runtime
