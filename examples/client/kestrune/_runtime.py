"""The package runtime: what one process shares once it has registered or logged in."""

from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any

from kestrune.search_tracking import SearchTracker

_runtime: "Runtime | None" = None


@dataclass
class Runtime:
    """The tracker over the configured data and the configuration of the active era."""

    search_tracker: SearchTracker
    era_config: Mapping[str, Any]

    def close(self) -> None:
        """Close the tracker's database connection."""
        self.search_tracker.close()


def get_runtime() -> Runtime | None:
    """Return the runtime of this process, or None before one has been started."""
    return _runtime


def set_runtime(runtime: Runtime | None) -> None:
    """Make `runtime` the one of this process and close the one that it replaces."""
    global _runtime
    previous, _runtime = _runtime, runtime
    if previous is not None and previous is not runtime:
        previous.close()
