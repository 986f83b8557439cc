"""Search tracking: a record of every candidate that a search has evaluated."""

from kestrune.search_tracking.evaluation import Evaluation
from kestrune.search_tracking.tracker import SearchTracker

__all__ = ["Evaluation", "SearchTracker"]
