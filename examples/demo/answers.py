"""The questions that a researcher asks, in that order, through the module-level functions."""

from collections import Counter
from itertools import zip_longest
from textwrap import wrap
from typing import Any

import kestrune.search_analytics as analytics
from kestrune.search_analytics import AggregateBy, EvalPool, TimeWindow

from demo.tables import Report, names, percent

TOP = 6

_REASONS = {
    "agent_server_is_pnl_mi_mismatch": "measures differ",
    "failure_marked_tampering": "marked by the server",
}


def print_answers(report: Report, sample: int) -> None:
    """Ask all nine questions; groups count from `sample` evaluations on."""
    newest_era = _what_is_there(report)
    _what_works(report, sample)
    _what_works_in(report, newest_era, max(sample // 4, 1))
    _what_next(report, sample)
    _where_passes_come_from(report)
    _which_go_together(report)
    _how_fast(report)
    _how_well(report)


def _what_is_there(report: Report) -> str:
    eras = analytics.get_available_eras()
    levels = [member.name.lower() for member in analytics.get_available_aggregations()]
    report.section("1. What is there?")
    report.line(f"Eras:         {', '.join(eras)}")
    report.line(f"Universes:    {', '.join(analytics.get_available_named_universes())}")
    report.line(f"Aggregations: {len(levels)}, from {levels[0]} to {levels[-2]}, and {levels[-1]}")
    return eras[-1]


def _what_works(report: Report, sample: int) -> None:
    stats = analytics.get_search_stats(
        aggregate_by=AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY, min_sample_size=sample
    )
    report.section("2. What works? The best groups of families, by time window")
    _totals(report, stats, sample)
    report.line(
        "n: evaluations; turn: traded per day; fall: drawdown; core, diverse: submittable there"
    )
    pools = list(stats.rows[0].windows[0].submittable_yield) if stats.rows else []
    rows = []
    for row in stats.rows[:4]:
        functions, features = map(names, row.group_key)
        # The name of the group runs down beside its windows.
        label = wrap(f"{functions} of {features}", 19)
        for name, window in zip_longest(label[: len(row.windows)], row.windows, fillvalue=""):
            rows.append([name, *_window_cells(window, pools)])
    columns = ["<group", "<window", "n", "sharpe", "return", "turn", "fall", "corr", "pass"]
    report.table([*columns, *pools, "score"], rows)


def _what_works_in(report: Report, era: str, sample: int) -> None:
    stats = analytics.get_search_stats(
        era_id=era,
        eval_type="signal",
        aggregate_by=AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY,
        time_windows=[TimeWindow.LAST_WEEK, TimeWindow.LAST_24H],
        pnl_column="net_returns",
        min_sample_size=sample,
    )
    report.section(f"   The best signals of {era}, after costs, by their last week")
    _totals(report, stats, sample)
    rows = []
    for row in stats.rows[:TOP]:
        functions, features = map(names, row.group_key)
        week, day = row.windows
        cells = [week.evaluation_count, week.sharpe, percent(week.yield_rate), week.composite_score]
        rows.append([functions, features, *cells, day.evaluation_count, day.composite_score])
    week_columns = ["week", "sharpe", "pass", "score"]
    report.table(["<functions", "<features", *week_columns, "day", "score"], rows)


def _what_next(report: Report, sample: int) -> None:
    advice = analytics.get_suggestions(
        aggregate_by=AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY, min_sample_size=sample, top_n=5
    )
    report.section("3. What next?")
    report.line(f"Score: {advice.scoring_formula}")
    rows = []
    for word, groups in (("focus on", advice.focus), ("avoid", advice.avoid)):
        for row in groups:
            functions, features = map(names, row.group_key)
            score = row.windows[0].composite_score
            rows.append([word, functions, features, row.evaluation_count, score])
    report.table(["<advice", "<functions", "<features", "evals", "score"], rows)


def _where_passes_come_from(report: Report) -> None:
    patterns = analytics.get_search_patterns()
    submitted = analytics.get_search_patterns(eval_pool=EvalPool.SUBMITTED)
    report.section("4. Where do passes come from?")
    report.considered(
        patterns.total_evaluations,
        f", {patterns.total_passed} passed, {submitted.total_evaluations} submitted",
    )
    report.table(
        ["depth", "evals", "passed", "yield"],
        [[b.depth, b.total, b.passed, percent(b.yield_rate)] for b in patterns.depth_distribution],
    )
    # Families of equal yield come in no order of their own: put them in the alphabet's.
    families = sorted(
        patterns.family_yield_rates, key=lambda family: (-family.yield_rate, family.function_family)
    )
    report.table(
        ["<function family", "evals", "passed", "yield"],
        [[f.function_family, f.total, f.passed, percent(f.yield_rate)] for f in families],
    )


def _which_go_together(report: Report) -> None:
    patterns = analytics.get_correlation_patterns(eval_type="signal", top_n=TOP)
    report.section("5. Which functions go together in passing signals?")
    report.considered(patterns.total_evaluations, f", {patterns.total_passing_evaluations} passed")
    report.table(
        ["<function", "<and function", "together", "passed", "lift"],
        [
            [p.function_a, p.function_b, p.total_cooccurrences, p.passed_cooccurrences, p.lift]
            for p in patterns.pairs
        ],
    )


def _how_fast(report: Report) -> None:
    velocity = analytics.get_search_velocity()
    report.section(f"6. How fast? Passes per hour: {velocity.trend.replace('_', ' ')}")
    report.table(
        ["last minutes", "evals", "passed", "evals per hour", "passes per hour"],
        [
            [
                window.window_minutes,
                window.total_evaluations,
                window.total_passed,
                window.evaluations_per_hour,
                window.passes_per_hour,
            ]
            for window in velocity.windows
        ],
    )


def _how_well(report: Report) -> None:
    answer = analytics.get_yield_analysis(recent_window_minutes=1440)
    report.section(f"7. How well? Yield: {answer.trend.replace('_', ' ')}")
    report.considered(answer.total_evaluations, f", {answer.total_passed} passed")
    diminishing = "diminishing" if answer.diminishing_returns else "not diminishing"
    report.line(
        f"Yield: {percent(answer.lifetime_yield_rate)} in all, "
        f"{percent(answer.recent_yield_rate)} in the last {answer.recent_window_minutes} minutes; "
        f"returns are {diminishing}."
    )
    report.line(
        f"Submissions: {answer.useful_evaluations} useful, "
        f"{answer.not_useful_evaluations} not useful; "
        f"{answer.usefulness_unknown_evaluations} evaluations not judged or not submitted."
    )
    fates: Counter[tuple[str, str]] = Counter()
    for record in answer.usefulness_rationale:
        if record["status"] is not None:
            # "correlation 0.83 after ..." and "tampering: ..." by their first word.
            reason = (record["rejection_reason"] or "-").split()[0].rstrip(":")
            fates[record["status"], reason] += 1
    report.table(["<status", "<reason", "count"], [[*f, n] for f, n in sorted(fates.items())])
    _what_looks_tampered_with(report, answer)


def _what_looks_tampered_with(report: Report, answer: Any) -> None:
    count = answer.tamper_candidate_count
    report.section(f"8. What looks tampered with? {count} evaluations, the newest first")
    rows = []
    for record in answer.tamper_candidates[: TOP + 2]:
        measures = [f"{record[name]:.5f}" for name in ("agent_is_pnl_mi", "is_pnl_mi")]
        reasons = ", ".join(_REASONS.get(reason, reason) for reason in record["tamper_reasons"])
        rows.append([record["eval_id"], record["status"], *measures, reasons])
    report.table(["<evaluation", "<status", "reported", "measured", "<reasons"], rows)


def _totals(report: Report, stats: Any, sample: int) -> None:
    filters = ", ".join(f"{name} = {value}" for name, value in stats.filters_applied.items())
    report.considered(
        stats.total_evaluations,
        f"; {stats.groups_shown} of {stats.total_groups} groups have at least {sample}",
    )
    report.line(f"Filters in force: {filters or 'none'}.")


def _whole(share: float) -> str:
    return f"{share:.0%}"


def _window_cells(window: Any, pools: list[str]) -> list[Any]:
    return [
        window.window.value.replace("_", " "),
        window.evaluation_count,
        window.sharpe,
        _whole(window.returns),
        window.turnover,
        _whole(window.drawdown),
        window.correlation,
        _whole(window.yield_rate),
        *[_whole(window.submittable_yield[pool]) for pool in pools],
        window.composite_score,
    ]
