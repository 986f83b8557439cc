"""Running searches: a handle for each, through which its evaluations are recorded."""

import os
from collections.abc import Mapping
from typing import Any

from kestrune import agent_onboarding
from kestrune.auth import AuthError, AuthManager
from kestrune.search_tracking import Evaluation, SearchTracker

_active_handles: list["SearchHandle"] = []
_auth: AuthManager | None = None


class SearchHandle:
    """One running search; a context manager that stops it at the end of its block."""

    def __init__(self, tracker: SearchTracker, era_config: Mapping[str, Any]) -> None:
        self._tracker = tracker
        self._era_config = era_config
        self._stopped = False

    def __enter__(self) -> "SearchHandle":
        return self

    def __exit__(self, *exception: object) -> None:
        self.stop()

    def record(self, evaluation: Evaluation) -> None:
        """Record one evaluation of this search."""
        self._tracker.record_evaluation(evaluation)

    def record_status(self, evaluation: Evaluation, status: str, **details: Any) -> None:
        """Record what became of a submitted candidate (see SearchTracker)."""
        self._tracker.record_submission_status(evaluation, status, **details)

    def stop(self) -> None:
        """Stop the search and close its tracker; stopping twice is harmless."""
        if not self._stopped:
            self._stopped = True
            _active_handles.remove(self)
            self._tracker.close()


def search() -> SearchHandle:
    """Start a search over the configured data folder, which is made if it does not exist.

    Raises AuthError before register() or login(), and OSError when no data folder is
    configured.
    """
    global _auth
    if agent_onboarding._auth_manager is None:
        raise AuthError("No wallet initialized. Call register() or login() first.")
    data_dir = os.path.expanduser(agent_onboarding._config.get("data_dir") or "")
    if not data_dir:
        raise OSError("A search needs a data directory: kestrune.configure(data_dir=...).")
    os.makedirs(data_dir, exist_ok=True)
    _auth = agent_onboarding._auth_manager
    handle = SearchHandle(SearchTracker(data_dir), agent_onboarding._config["era_config"])
    _active_handles.append(handle)
    return handle
