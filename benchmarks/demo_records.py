"""The records of the search demo: a real search over real prices, kept by the example tracker."""

import tempfile
import time
from pathlib import Path

import paths
from kestrune.agent_onboarding import DEFAULT_ERA_CONFIG
from kestrune.search_tracking import Evaluation, SearchTracker

SEED = 7


def records(evaluations: int) -> list[Evaluation]:
    """Return what a search of so many candidates recorded, newest first, the newest just now.

    The search runs once; its database stays in the build folder for the next run.
    """
    folder = paths.BUILD / f"demo-{evaluations}"
    if not folder.is_dir():
        _search(folder, evaluations)
    with SearchTracker(folder, "") as tracker:
        found = tracker.get_evaluation_history()
    # The database may be days old: move the whole search up to now.
    shift = time.time() - 1.0 - found[0].timestamp
    for record in found:
        record.timestamp += shift
    return found


def _search(folder: Path, evaluations: int) -> None:
    """Run the demo's search; its database appears in `folder` when it is complete."""
    from demo.prices import load_prices
    from demo.searching import Search

    unfinished = Path(tempfile.mkdtemp(prefix="demo-unfinished-", dir=folder.parent))
    with SearchTracker(unfinished, "") as tracker:
        tracker._conn.execute("BEGIN")
        search = Search(load_prices(), DEFAULT_ERA_CONFIG, SEED, evaluations, time.time())
        for evaluation, fate in search.run():
            tracker.record_evaluation(evaluation)
            for verdict in fate:
                tracker.record_submission_status(evaluation, verdict.status, **verdict.details)
        tracker._conn.execute("COMMIT")
    unfinished.rename(folder)
