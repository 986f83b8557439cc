"""Run a real search over real prices, then ask the search analytics about it.

Candidates are composed at random or varied from accepted ones, evaluated on daily stock
prices, checked against pool thresholds, recorded by the example client's tracker and
submitted to a pretended server. The answers then come from kestrune.search_analytics.
"""

import argparse
import signal
import sys
import tempfile
import time
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

# The example client is no installed package: it lives beside this file.
sys.path.insert(0, str(Path(__file__).parent / "client"))

import kestrune
from demo.answers import print_answers
from demo.clock import DAYS
from demo.postgres_server import PostgresServer
from demo.prices import Prices, load_prices
from demo.searching import Search
from demo.tables import Report
from kestrune import agent_onboarding
from rich.console import Console
from rich.progress import BarColumn, MofNCompleteColumn, Progress, TextColumn, TimeElapsedColumn


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument(
        "--evaluations", type=int, default=6000, metavar="N", help="candidates to try (6000)"
    )
    parser.add_argument(
        "--seed", type=int, default=7, help="the same seed gives the same answers (7)"
    )
    parser.add_argument(
        "--database",
        choices=("sqlite", "postgres"),
        default="sqlite",
        help="where evaluations are kept; postgres starts a server of its own and stops it "
        "afterwards (sqlite)",
    )
    parser.add_argument(
        "--keep",
        type=Path,
        metavar="FOLDER",
        help="keep the SQLite database in this folder, in place of the one of an earlier demo",
    )
    arguments = parser.parse_args()
    if arguments.evaluations < 1:
        parser.error("--evaluations must be at least 1")
    if arguments.seed < 0:
        parser.error("--seed must not be negative")
    if arguments.keep is not None and arguments.database != "sqlite":
        parser.error("--keep is for SQLite: the other database ends with its server")
    return arguments


@contextmanager
def data_folder(kept: Path | None) -> Iterator[Path]:
    """Yield an empty folder for the client's data: a temporary one, or what is kept."""
    if kept is None:
        with tempfile.TemporaryDirectory() as folder:
            yield Path(folder)
    else:
        kept.mkdir(parents=True, exist_ok=True)
        for earlier in kept.glob("search_tracking.sqlite3*"):
            earlier.unlink()
        yield kept


@contextmanager
def database(kind: str, folder: Path | None) -> Iterator[tuple[str, str]]:
    """Yield the connection URL ("" for SQLite) and the description of a fresh database.

    `folder` is where that of SQLite is kept, if it is.
    """
    if kind == "sqlite":
        yield "", f"SQLite, a file in {folder or 'a temporary folder'}"
    else:
        with PostgresServer() as server:
            yield server.url, f"PostgreSQL, a server of its own (process {server.pid})"


def run_search(prices: Prices, arguments: argparse.Namespace) -> tuple[int, float]:
    """Search and record; return the number of submissions and the seconds that it took."""
    started = time.time()
    submissions = 0
    columns = (TextColumn("Searching"), BarColumn(), MofNCompleteColumn(), TimeElapsedColumn())
    console = Console(stderr=True)
    with (
        kestrune.search() as handle,
        Progress(*columns, console=console, disable=not console.is_terminal) as progress,
    ):
        task = progress.add_task("search", total=arguments.evaluations)
        era_config = agent_onboarding._config["era_config"]
        search = Search(prices, era_config, arguments.seed, arguments.evaluations, started)
        for evaluation, fate in search.run():
            handle.record(evaluation)
            for verdict in fate:
                handle.record_status(evaluation, verdict.status, **verdict.details)
            submissions += evaluation.submitted
            progress.advance(task)
    return submissions, time.time() - started


def main() -> None:
    arguments = parse_arguments()
    # An end by SIGTERM also stops the server and removes the temporary folders.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    prices = load_prices()
    report = Report()
    report.line(
        f"{arguments.evaluations} candidates, seed {arguments.seed}, over daily prices of "
        f"{', '.join(prices.tickers)}, {prices.dates[0]} to {prices.dates[-1]}."
    )
    kept = arguments.keep
    with data_folder(kept) as folder, database(arguments.database, kept) as (url, described):
        kestrune.configure(data_dir=folder, database_url=url)
        private_key = kestrune.register()
        submissions, seconds = run_search(prices, arguments)
        kestrune.logout()
        report.line(f"Database: {described}; searched and recorded in {seconds:.1f} s.")
        report.line(
            f"The search clock is compressed: that time stands for the {DAYS} days up to now."
        )

        kestrune.login(private_key)
        try:
            print_answers(report, sample=max(arguments.evaluations // 300, 1))
        finally:
            kestrune.logout()
    report.line(
        f"\nDone: evaluated {arguments.evaluations} candidates, submitted {submissions}, "
        "answered all nine questions."
    )


if __name__ == "__main__":
    main()
