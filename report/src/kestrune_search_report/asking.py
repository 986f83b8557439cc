"""The nine questions, asked strictly: nothing that is typed wrong gives a silent zero."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any, TypedDict

from kestrune_search_report import arguments as given
from kestrune_search_report.answers import Answer, answer_of, name_of
from kestrune_search_report.catalogue import EVAL_TYPES, FAMILY_FILTERS, Catalogue
from kestrune_search_report.errors import ArgumentError, not_among
from kestrune_search_report.filters import canonical
from kestrune_search_report.narrowing import is_sequence
from kestrune_search_report.questions import QUESTIONS
from kestrune_search_report.snapshot import Snapshot

if TYPE_CHECKING:
    from typing_extensions import Unpack

_PLAIN_FILTERS = (
    "era_id",
    "named_universe",
    *FAMILY_FILTERS,
    "strategy_pool_id",
    "signal_pool_id",
    "strategy_signal_pool",
)


class Filters(TypedDict, total=False):
    """The eleven filters; left out or None for "any". All have to hold at once."""

    era_id: str | None
    eval_type: str | None
    named_universe: str | None
    metaparameters: Any
    function_family: str | None
    function_subfamily: str | None
    feature_family: str | None
    feature_subfamily: str | None
    strategy_pool_id: str | None
    signal_pool_id: str | None
    strategy_signal_pool: str | None


FILTERS = tuple(Filters.__annotations__)


def question_named(text: str) -> str:
    """Return the name of a question, given with or without "get_", with _ or -."""
    name = text.replace("-", "_")
    name = name if name.startswith("get_") else f"get_{name}"
    if name not in QUESTIONS:
        raise ArgumentError(not_among("question", text, QUESTIONS))
    return name


class Questions:
    """The module's nine questions over a snapshot, with strict arguments and answers as data.

    Each method is named like the module's function, takes the same parameters by keyword, and
    returns an `Answer`. Enumerations may be given by name: `aggregate_by="function_feature"`,
    `eval_pool="passed"`, `time_windows=["lifetime"]`; lengths of time as "90m", "1h", "2d".
    Raises `ArgumentError` for a value of which the snapshot has none, naming those that there
    are and the nearest, and `FilterError` for a filter on what no record has.
    """

    def __init__(self, snapshot: Snapshot) -> None:
        self.snapshot = snapshot
        self.catalogue = Catalogue(snapshot)

    def ask(self, question: str, **arguments: Any) -> Answer:
        """Ask a question by name, with or without "get_", and any of its arguments."""
        name = question_named(question)
        known = PARAMETERS[name]
        for argument in arguments:
            if argument not in known:
                raise ArgumentError(not_among(f"argument of {name}", argument, known))
        answer: Answer = getattr(self, name)(**arguments)
        return answer

    def get_search_stats(
        self,
        *,
        aggregate_by: Any = "function_subfamily_feature_subfamily",
        eval_pool: Any = "all",
        time_windows: Any = None,
        pnl_column: str | None = None,
        min_sample_size: int = 100,
        sort_ascending: bool = False,
        **filters: Unpack[Filters],
    ) -> Answer:
        """Mean performance of each group, over one or more time windows."""
        return self._answer(
            "get_search_stats",
            filters,
            aggregate_by=given.aggregation(aggregate_by),
            eval_pool=self._eval_pool(eval_pool),
            time_windows=given.time_windows(time_windows),
            pnl_column=self._pnl_column(pnl_column),
            min_sample_size=given.whole("min_sample_size", min_sample_size, 0),
            sort_ascending=given.flag("sort_ascending", sort_ascending),
        )

    def get_suggestions(
        self,
        *,
        aggregate_by: Any = "function_subfamily_feature_subfamily",
        pnl_column: str | None = None,
        min_sample_size: int = 100,
        top_n: int = 10,
        **filters: Unpack[Filters],
    ) -> Answer:
        """The groups to search further and the groups to avoid, by composite score."""
        return self._answer(
            "get_suggestions",
            filters,
            aggregate_by=given.aggregation(aggregate_by),
            pnl_column=self._pnl_column(pnl_column),
            min_sample_size=given.whole("min_sample_size", min_sample_size, 0),
            top_n=given.whole("top_n", top_n, 1),
        )

    def get_available_eras(self) -> Answer:
        """The eras that there are."""
        return self._answer("get_available_eras", None)

    def get_available_named_universes(self) -> Answer:
        """The named universes that there are."""
        return self._answer("get_available_named_universes", None)

    def get_available_aggregations(self) -> Answer:
        """The ways to group."""
        return self._answer("get_available_aggregations", None)

    def get_search_patterns(self, *, eval_pool: Any = "all", **filters: Unpack[Filters]) -> Answer:
        """Where passes come from: by depth of the tree, and by function family."""
        return self._answer("get_search_patterns", filters, eval_pool=self._eval_pool(eval_pool))

    def get_search_velocity(self, *, windows: Any = None, **filters: Unpack[Filters]) -> Answer:
        """Evaluations and passes per hour over trailing windows."""
        return self._answer("get_search_velocity", filters, windows=given.windows(windows))

    def get_yield_analysis(
        self, *, recent_window_minutes: Any = 360, **filters: Unpack[Filters]
    ) -> Answer:
        """How well the search does of late, what became of submissions, what looks odd."""
        length = given.minutes("recent_window_minutes", recent_window_minutes)
        return self._answer("get_yield_analysis", filters, recent_window_minutes=length)

    def get_correlation_patterns(self, *, top_n: int = 20, **filters: Unpack[Filters]) -> Answer:
        """Pairs of functions that occur together."""
        return self._answer(
            "get_correlation_patterns", filters, top_n=given.whole("top_n", top_n, 1)
        )

    def _answer(self, question: str, filters: Filters | None, **others: Any) -> Answer:
        checked = {} if filters is None else self.checked_filters(filters)
        result = getattr(self.snapshot.engine, question)(**checked, **others)
        shown: dict[str, Any] = dict(checked)
        for name, value in others.items():
            shown[name] = name_of(value)
            if is_sequence(value):
                shown[name] = [name_of(one) for one in value]
        return answer_of(question, result, shown)

    def checked_filters(self, filters: Mapping[str, Any]) -> dict[str, Any]:
        """Return the filters that are not None; raise for a value of which there is none."""
        wanted = {name: value for name, value in filters.items() if value is not None}
        for name in wanted:
            if name not in FILTERS:
                raise ArgumentError(not_among("filter", name, FILTERS))
        given.one_of("eval_type", wanted.get("eval_type"), EVAL_TYPES)
        if "eval_type" in wanted:
            given.one_of("eval_type", wanted["eval_type"], self.catalogue.values("eval_type"))
        for name in _PLAIN_FILTERS:
            if name in wanted:
                given.one_of(name, wanted[name], self.catalogue.values(name))
        if "metaparameters" in wanted:
            text = canonical(wanted["metaparameters"])
            given.one_of("metaparameters", text, self.catalogue.metaparameters)
        return wanted

    def _pnl_column(self, column: str | None) -> str | None:
        if column is None:
            return None
        found: str = given.one_of("pnl_column", column, self.catalogue.pnl_columns)
        return found

    def _eval_pool(self, value: Any) -> Any:
        pool = given.eval_pool(value)
        if pool.name == "SUBMITTED" and "submitted" not in self.snapshot.fields:
            raise ArgumentError("eval_pool: no record says whether it was submitted.")
        return pool


def _parameters(question: str) -> tuple[str, ...]:
    # What follows self in the code of a method; the filters come in by **filters.
    code = getattr(Questions, question).__code__
    own: tuple[str, ...] = code.co_varnames[1 : 1 + code.co_kwonlyargcount]
    takes_filters = code.co_flags & 0x08
    return (*own, *FILTERS) if takes_filters else own


PARAMETERS = {question: _parameters(question) for question in QUESTIONS}
