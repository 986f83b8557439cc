"""What a SOURCE on the command line stands for."""

from __future__ import annotations

import re
import sys
from collections.abc import Mapping
from dataclasses import dataclass, field
from importlib import import_module
from importlib.util import find_spec
from pathlib import Path
from typing import Any

from kestrune_search_report.errors import ArgumentError, SourceError, listing, not_among
from kestrune_search_report.reading import Progress
from kestrune_search_report.snapshot import Snapshot

_CALLABLE = re.compile(r"[A-Za-z_][\w.]*:[A-Za-z_][\w.]*")
_SQLITE = b"SQLite format 3\0"

WHAT_A_SOURCE_IS = (
    "a client's data folder, a .csv or .parquet file, an Optuna storage address "
    "(sqlite:///trials.db), or module:callable that returns a tracker"
)


@dataclass(frozen=True)
class How:
    """How a source is read; what does not apply to it has to be left out.

    - `columns`, `constants`: as `Snapshot.from_records` takes them; of files and studies.
    - `pools`: signal pools, threshold by name.
    - `passed`, `study`: the value from which on a trial passes, and which study; of Optuna.
    """

    columns: Mapping[str, str] = field(default_factory=dict[str, str])
    constants: Mapping[str, str] = field(default_factory=dict[str, str])
    pools: Mapping[str, float] = field(default_factory=dict[str, float])
    passed: float | None = None
    study: str | None = None
    progress: Progress | None = None

    def options(self, *taken: str) -> dict[str, Any]:
        """Return the arguments for a way of reading that takes some of them.

        `ArgumentError` for one that is given and not taken.
        """
        for name in ("columns", "constants", "passed", "study"):
            given = getattr(self, name)
            if given not in (None, {}) and name not in taken:
                raise ArgumentError(f"{name}: says nothing about this kind of source.")
        found = {name: getattr(self, name) for name in taken if name != "study"}
        return {**found, "pools": self.pools or None, "progress": self.progress}


def open_source(source: str, how: How) -> Snapshot:
    """Return a snapshot of what a text stands for.

    Raises `ArgumentError` for a text that stands for nothing, `SourceError` for a source without
    what is needed, `OSError` for one that cannot be read, and whatever a callable or a client's
    tracker raises.
    """
    path = Path(source).expanduser()
    if "://" in source:
        return _optuna(source, how)
    if path.is_dir():
        return _client(path, how)
    if path.is_file():
        return _file(path, how)
    if _CALLABLE.fullmatch(source):
        return _called(source, how)
    raise ArgumentError(f"{source!r} is not there; a source is {WHAT_A_SOURCE_IS}.")


def _file(path: Path, how: How) -> Snapshot:
    with open(path, "rb") as file:
        start = file.read(len(_SQLITE))
    if start == _SQLITE:
        raise ArgumentError(
            f"{path} is a SQLite database: name a client's data folder, or sqlite:///{path} for "
            "the trials of Optuna."
        )
    if start.startswith(b"PAR1"):
        return Snapshot.from_parquet(path, **how.options("columns", "constants"))
    if path.suffix.casefold() in {".parquet", ".pq"}:
        raise SourceError(f"{path} is no Parquet file.")
    return Snapshot.from_csv(path, **how.options("columns", "constants"))


def _client(folder: Path, how: How) -> Snapshot:
    options = how.options("constants")
    databases = [one for one in sorted(folder.iterdir()) if _is_database(one)]
    if not databases:
        # Its tracker would make an empty one.
        raise SourceError(f"{folder} holds no database of a client.")
    try:
        tracking = import_module("kestrune.search_tracking")
    except ModuleNotFoundError as error:
        raise SourceError(
            "A data folder is read by the kestrune client, which is not installed."
        ) from error
    tracker: Any = tracking.SearchTracker(folder)
    try:
        return Snapshot.of(tracker, name=str(folder), **options)
    finally:
        tracker.close()


def _is_database(path: Path) -> bool:
    if not path.is_file():
        return False
    with open(path, "rb") as file:
        return file.read(len(_SQLITE)) == _SQLITE


def _optuna(storage: str, how: How) -> Snapshot:
    options = how.options("columns", "constants", "passed", "study")
    if find_spec("optuna") is None:
        raise SourceError("An Optuna storage needs optuna, which is not installed.")
    optuna: Any = import_module("optuna")
    file = storage.partition("sqlite:///")[2]
    if file and not Path(file).is_file():
        # Optuna would make an empty one.
        raise ArgumentError(f"{storage!r}: there is no file {file}.")
    names: list[str] = sorted(optuna.get_all_study_names(storage=storage))
    if how.study is not None and how.study not in names:
        raise ArgumentError(not_among("study", how.study, names))
    if how.study is None and len(names) != 1:
        raise ArgumentError(f"study: say which; there are: {listing(names)}.")
    study = optuna.load_study(study_name=how.study or names[0], storage=storage)
    return Snapshot.from_optuna(study, **options)


def _called(source: str, how: How) -> Snapshot:
    options = how.options("constants")
    module_name, _, name = source.partition(":")
    # As `python -m` does it: what lies in the current folder can be named.
    if "" not in sys.path and str(Path.cwd()) not in sys.path:
        sys.path.insert(0, str(Path.cwd()))
    try:
        found: Any = import_module(module_name)
    except ModuleNotFoundError as error:
        if error.name is None or not f"{module_name}.".startswith(f"{error.name}."):
            raise
        raise ArgumentError(f"{source!r}: there is no module {error.name!r}.") from error
    for part in name.split("."):
        if not hasattr(found, part):
            raise ArgumentError(f"{source!r}: there is no {part!r} in {module_name!r}.")
        found = getattr(found, part)
    tracker: Any = found()
    if isinstance(tracker, Snapshot):
        return Snapshot.of(tracker, pools=options["pools"])
    if not callable(getattr(tracker, "get_evaluation_history", None)):
        raise SourceError(f"{source!r} returned no tracker but a {type(tracker).__name__}.")
    return Snapshot.of(tracker, name=source, **options)
