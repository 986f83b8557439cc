"""The twelve result records: fields, defaults, annotations, equality, printed form."""

from __future__ import annotations

import copy
import dataclasses
import inspect
import pickle

import kestrune.search_analytics as search_analytics
import pytest

# Each record: docstring, then its fields as a dataclass body would declare them.
RECORDS = {
    "WindowStats": (
        "Stats for a single time window within a group.",
        """
        window: str = ""
        sharpe: float = 0.0
        returns: float = 0.0
        turnover: float = 0.0
        drawdown: float = 0.0
        correlation: float = 0.0
        yield_rate: float = 0.0
        submittable_yield: dict = field(default_factory=dict)
        composite_score: float = 0.0
        evaluation_count: int = 0
        """,
    ),
    "StatsRow": (
        "Single row in search stats result.",
        """
        group_key: Tuple[FrozenSet[str], FrozenSet[str]] = field(
            default_factory=lambda: (frozenset(), frozenset()))
        windows: List[WindowStats] = field(default_factory=list)
        evaluation_count: int = 0
        """,
    ),
    "SearchStatsResult": (
        "Result from get_search_stats().",
        """
        rows: List[StatsRow] = field(default_factory=list)
        aggregate_by: Optional[object] = None
        eval_pool: Optional[object] = None
        filters_applied: dict = field(default_factory=dict)
        total_evaluations: int = 0
        total_groups: int = 0
        groups_shown: int = 0
        """,
    ),
    "SuggestionsResult": (
        "Result from get_suggestions().",
        """
        focus: List[StatsRow] = field(default_factory=list)
        avoid: List[StatsRow] = field(default_factory=list)
        aggregate_by: Optional[object] = None
        scoring_formula: str = ""
        """,
    ),
    "DepthBucket": (
        "Depth distribution bucket.",
        """
        depth: int = 0
        total: int = 0
        passed: int = 0
        yield_rate: float = 0.0
        """,
    ),
    "FamilyYield": (
        "Yield for a function family.",
        """
        function_family: str = ""
        total: int = 0
        passed: int = 0
        yield_rate: float = 0.0
        """,
    ),
    "SearchPatternsResult": (
        "Result from get_search_patterns().",
        """
        depth_distribution: List[DepthBucket] = field(default_factory=list)
        family_yield_rates: List[FamilyYield] = field(default_factory=list)
        total_evaluations: int = 0
        total_passed: int = 0
        """,
    ),
    "VelocityWindow": (
        "Velocity for a time window.",
        """
        window_minutes: int = 0
        evaluations_per_hour: float = 0.0
        passes_per_hour: float = 0.0
        total_evaluations: int = 0
        total_passed: int = 0
        """,
    ),
    "SearchVelocityResult": (
        "Result from get_search_velocity().",
        """
        windows: List[VelocityWindow] = field(default_factory=list)
        trend: str = ""
        """,
    ),
    "YieldAnalysisResult": (
        "Result from get_yield_analysis().",
        """
        lifetime_yield_rate: float = 0.0
        recent_yield_rate: float = 0.0
        trend: str = ""
        recent_window_minutes: int = 0
        total_evaluations: int = 0
        total_passed: int = 0
        diminishing_returns: bool = False
        useful_evaluations: int = 0
        not_useful_evaluations: int = 0
        usefulness_unknown_evaluations: int = 0
        tamper_candidate_count: int = 0
        usefulness_rationale: List[dict] = field(default_factory=list)
        tamper_candidates: List[dict] = field(default_factory=list)
        """,
    ),
    "FunctionPairPattern": (
        "Co-occurrence pattern for function pairs.",
        """
        function_a: str = ""
        function_b: str = ""
        total_cooccurrences: int = 0
        passed_cooccurrences: int = 0
        lift: float = 0.0
        """,
    ),
    "CorrelationPatternsResult": (
        "Result from get_correlation_patterns().",
        """
        pairs: List[FunctionPairPattern] = field(default_factory=list)
        total_passing_evaluations: int = 0
        total_evaluations: int = 0
        """,
    ),
}
EVERY_RECORD = pytest.mark.parametrize("name", RECORDS)


def record(name: str) -> type:
    return getattr(search_analytics, name)


def expected(name: str) -> type:
    """The same record, declared by an ordinary class statement."""
    documentation, fields = RECORDS[name]
    namespace = {"dataclass": dataclasses.dataclass, "field": dataclasses.field}
    source = (
        f"from __future__ import annotations\n@dataclass\nclass {name}:\n"
        f"        {documentation!r}\n{fields}"
    )
    exec(source, namespace)
    return namespace[name]


@EVERY_RECORD
def test_fields_annotations_and_defaults(name):
    ours, theirs = record(name), expected(name)
    assert ours.__annotations__ == theirs.__annotations__
    assert list(ours.__annotations__) == list(theirs.__annotations__)
    for mine, other in zip(dataclasses.fields(ours), dataclasses.fields(theirs), strict=True):
        assert (mine.name, mine.type) == (other.name, other.type)
        assert (mine.default, type(mine.default)) == (other.default, type(other.default))
        if mine.name != "group_key":
            assert mine.default_factory is other.default_factory


@EVERY_RECORD
def test_records_are_dataclasses_without_options_or_base(name):
    ours, theirs = record(name), expected(name)
    assert ours.__bases__ == (object,)
    assert repr(ours.__dataclass_params__) == repr(theirs.__dataclass_params__)
    assert ours.__module__ == "kestrune.search_analytics"
    assert (ours.__name__, ours.__qualname__, ours.__doc__) == (name, name, RECORDS[name][0])
    assert ours.__match_args__ == theirs.__match_args__


@EVERY_RECORD
def test_records_define_nothing_that_a_class_statement_would_not(name):
    # 3.13 notes the line and the self-assigned attributes of a class statement, 3.14 what was asked
    # for of the annotations; and copying notes what slots it found.
    incidental = {
        "__firstlineno__",
        "__static_attributes__",
        "__annotations_cache__",
        "__annotate_func__",
        "__slotnames__",
    }
    assert set(vars(record(name))) - incidental == set(vars(expected(name))) - incidental


@EVERY_RECORD
def test_constructor_has_the_signature_of_its_fields(name):
    def shape(cls):
        return [(p.name, p.kind) for p in inspect.signature(cls).parameters.values()]

    assert shape(record(name)) == shape(expected(name))


@EVERY_RECORD
def test_records_need_no_argument(name):
    ours, theirs = record(name)(), expected(name)()
    assert vars(ours) == vars(theirs)
    assert [type(value) for value in vars(ours).values()] == [
        type(value) for value in vars(theirs).values()
    ]
    assert repr(ours) == repr(theirs)


@EVERY_RECORD
def test_positional_and_keyword_arguments_are_stored_as_given(name):
    names = [field.name for field in dataclasses.fields(record(name))]
    values = [object() for _ in names]
    for built in (record(name)(*values), record(name)(**dict(zip(names, values, strict=True)))):
        assert list(vars(built)) == names
        assert all(vars(built)[key] is value for key, value in zip(names, values, strict=True))
    with pytest.raises(TypeError):
        record(name)(*values, None)
    with pytest.raises(TypeError):
        record(name)(no_such_field=1)


@EVERY_RECORD
def test_equal_fields_make_equal_records_of_one_class_only(name):
    cls = record(name)
    assert cls() == cls()
    assert cls() != expected(name)()
    last = dataclasses.fields(cls)[-1].name
    changed = cls()
    setattr(changed, last, "something else")
    assert changed != cls()
    assert type(name, (cls,), {})() != cls()


@EVERY_RECORD
def test_records_are_unhashable_and_unordered(name):
    with pytest.raises(TypeError, match=f"unhashable type: '{name}'"):
        hash(record(name)())
    with pytest.raises(TypeError, match="'<' not supported"):
        assert record(name)() < record(name)()


@EVERY_RECORD
def test_records_are_mutable_and_take_new_attributes(name):
    built = record(name)()
    for field in dataclasses.fields(built):
        setattr(built, field.name, 42)
    built.note = "mine"
    assert set(vars(built).values()) == {42, "mine"}


@EVERY_RECORD
def test_no_two_records_share_a_mutable_default(name):
    one, other = record(name)(), record(name)()
    for key, value in vars(one).items():
        if isinstance(value, (list, dict)):
            assert value is not getattr(other, key)


@EVERY_RECORD
def test_records_pickle_copy_and_convert(name):
    built = record(name)()
    assert pickle.loads(pickle.dumps(built)) == built
    assert copy.deepcopy(built) == built
    assert copy.copy(built) == built
    assert dataclasses.replace(built) == built
    assert dataclasses.asdict(built) == vars(built)


def test_default_group_key_is_a_new_pair_of_empty_frozensets():
    key = search_analytics.StatsRow().group_key
    assert key == (frozenset(), frozenset())
    assert type(key) is tuple
    assert [type(side) for side in key] == [frozenset, frozenset]


def test_group_key_factory_looks_like_a_lambda_in_the_class_body():
    factory = search_analytics.StatsRow.__dataclass_fields__["group_key"].default_factory
    assert factory.__qualname__ == "StatsRow.<lambda>"
    assert factory.__doc__ is None
    assert factory.__name__ == "<lambda>"
    assert factory.__module__ == "kestrune.search_analytics"
    assert factory() == (frozenset(), frozenset())
    assert str(inspect.signature(factory)) == "()"
    with pytest.raises(TypeError, match="takes 0 positional arguments but 1 was given"):
        factory(1)


def test_default_rows_do_not_share_windows():
    one, other = search_analytics.StatsRow(), search_analytics.StatsRow()
    one.windows.append(1)
    assert other.windows == []


def test_submittable_yield_is_a_new_dictionary_per_instance():
    one, other = search_analytics.WindowStats(), search_analytics.WindowStats()
    one.submittable_yield["main"] = 1.0
    assert other.submittable_yield == {}


def test_default_yield_analysis_reports_nothing():
    result = search_analytics.YieldAnalysisResult()
    assert result.diminishing_returns is False
    counters = [
        value for name, value in vars(result).items() if name.endswith(("evaluations", "count"))
    ]
    assert counters == [0, 0, 0, 0, 0]


def test_default_search_stats_name_no_dimension_and_no_pool():
    result = search_analytics.SearchStatsResult()
    assert result.aggregate_by is None
    assert result.eval_pool is None


def test_annotations_are_text():
    assert search_analytics.SearchStatsResult.__annotations__["rows"] == "List[StatsRow]"
    assert (
        search_analytics.StatsRow.__annotations__["group_key"]
        == "Tuple[FrozenSet[str], FrozenSet[str]]"
    )
