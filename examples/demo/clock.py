"""The search clock: seconds of work, stamped as the weeks that a real search takes."""

DAYS = 21
# The search speeds up: a share s of what is left to do takes a share s ** PACE of the time left.
PACE = 1.5

# The analytics' windows end at the moment of the question, a little after the search. What was
# stamped near the beginning of one of them would drop out meanwhile, sooner on a fast machine
# than on a slow one; so nothing is stamped there.
_WINDOW_SECONDS = (60 * 60, 360 * 60, 1440 * 60, 7 * 86400)
_QUIET_SECONDS = 300.0


def age(position: int, count: int) -> float:
    """Return how many seconds before the end of the search its `position`-th of `count` is.

    Positions count from 0; ages fall from DAYS to almost nothing.
    """
    seconds = DAYS * 86400 * ((count - position) / (count + 1)) ** PACE
    for window in _WINDOW_SECONDS:
        if window - _QUIET_SECONDS < seconds <= window:
            # Just before the window instead; later positions stay the younger ones.
            return window + (seconds - window + _QUIET_SECONDS) / _QUIET_SECONDS
    return seconds
