"""A small stand-in for the rest of the `kestrune` package, enough to run the examples.

It registers, logs in and tracks evaluations on this machine only: there is no service
behind it. Never install it beside the real package.
"""

import pkgutil
from typing import TYPE_CHECKING, Any

# The compiled `search_analytics` lives in another folder; both make one package.
__path__ = pkgutil.extend_path(__path__, __name__)

if TYPE_CHECKING:
    from kestrune.agent_onboarding import configure as configure
    from kestrune.agent_onboarding import login as login
    from kestrune.agent_onboarding import logout as logout
    from kestrune.agent_onboarding import register as register
    from kestrune.search_templates import search as search

_HOME_OF = {
    "configure": "agent_onboarding",
    "register": "agent_onboarding",
    "login": "agent_onboarding",
    "logout": "agent_onboarding",
    "search": "search_templates",
}


def __getattr__(name: str) -> Any:
    """Load a public function on first use: importing one submodule imports no other."""
    if name not in _HOME_OF:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    from importlib import import_module

    return getattr(import_module(f"{__name__}.{_HOME_OF[name]}"), name)
