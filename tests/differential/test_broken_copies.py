"""The suite notices mistakes: every broken copy of the model is told from the model."""

from __future__ import annotations

import sys
from pathlib import Path
from types import ModuleType

import pytest
from differential.cases import KINDS, compare_seed
from model import search_analytics_model as model

SOURCE = Path(model.__file__).read_text(encoding="utf-8")

# What is broken: a text of the model, what replaces it, and a kind of case that must notice.
BREAKS = [
    (
        "sorted backwards",
        "rows.sort(key=lambda row: (-row.windows[0].composite_score, -row.evaluation_count))",
        "rows.sort(key=lambda r: (r.windows[0].composite_score, r.evaluation_count), reverse=True)",
        "search stats",
    ),
    (
        "week cut-off exclusive",
        "tw_week_idx is not None and ts >=",
        "tw_week_idx is not None and ts >",
        "search stats",
    ),
    (
        "day cut-off exclusive",
        "tw_24h_idx is not None and ts >=",
        "tw_24h_idx is not None and ts >",
        "search stats",
    ),
    (
        "window list cut-off exclusive",
        "ev.timestamp >= cutoff]",
        "ev.timestamp > cutoff]",
        "engine methods",
    ),
    ("threshold inclusive", "correlation < threshold", "correlation <= threshold", "search stats"),
    (
        "failed is submittable",
        "1 if passed and correlation <",
        "1 if correlation <",
        "search stats",
    ),
    (
        "maximum for the floor",
        "0.01 if 0.01 > turnover else turnover",
        "max(0.01, turnover)",
        "search stats",
    ),
    ("reciprocal folded", "* (1.0 / d)", "/ d", "search stats"),
    (
        "score reassociated",
        "sharpe * (1.0 - correlation) * (1.0 / d)",
        "sharpe * ((1.0 - correlation) * (1.0 / d))",
        "search stats",
    ),
    (
        "smaller group first",
        "(-row.windows[0].composite_score, -row.evaluation_count)",
        "(-row.windows[0].composite_score, row.evaluation_count)",
        "search stats",
    ),
    (
        "sums start as ints",
        "[[0.0, 0.0, 0.0, 0.0, 0.0, 0, 0]",
        "[[0, 0.0, 0, 0.0, 0.0, 0, 0]",
        "search stats",
    ),
    ("sum not in place", "sums[0] += sharpe", "sums[0] = sharpe + sums[0]", "search stats"),
    (
        "sample size exclusive",
        "group[0] < min_sample_size",
        "group[0] <= min_sample_size",
        "search stats",
    ),
    ("window as value", "window=tw,", "window=getattr(tw, 'value', tw),", "search stats"),
    (
        "era window ignores era",
        "era_id is None or ev_era == era_id",
        "era_id is None or True",
        "search stats",
    ),
    (
        "shared window sums",
        "[[0] * len(pool_names) for _ in time_windows]",
        "[[0] * len(pool_names)] * len(time_windows)",
        "search stats",
    ),
    (
        "name after family",
        "if value is None:\n            value = item.get(name_key)",
        "if not value:\n            value = item.get(name_key)",
        "usage value",
    ),
    ("false value kept", 'return value if value else ""', "return value", "usage value"),
    ("metadata copied", "        return metadata", "        return list(metadata)", "usage items"),
    (
        "keys swapped",
        '"function": "function_name"',
        '"function": "function_family"',
        "engine methods",
    ),
    (
        "pool aliasing kept",
        '            if eval_type == "strategy":\n',
        '            if eval_type == "signal":\n',
        "fetch",
    ),
    (
        "submitted not filtered",
        "[ev for ev in evals if ev.submitted]",
        "[ev for ev in evals]",
        "fetch",
    ),
    ("limit", "limit=_DEFAULT_ANALYTICS_HISTORY_LIMIT", "limit=10001", "fetch"),
    ("infinite agent unknown", 'return float("inf")', "return None", "tamper delta"),
    ("tolerance inclusive", "delta if delta > 1e-9", "delta if delta > 2e-9", "tamper delta"),
    (
        "avoid reversed",
        "(row.windows[0].composite_score, -row.evaluation_count)\n        )[:top_n]",
        "(row.windows[0].composite_score, row.evaluation_count)\n        )[:top_n]",
        "suggestions",
    ),
    (
        "families unsorted",
        "family_yield_rates.sort(key=lambda entry: -entry.yield_rate)",
        "family_yield_rates.sort(key=lambda entry: entry.yield_rate)",
        "search patterns",
    ),
    (
        "family per function",
        "families = set()\n",
        "families = type('Many', (list,), {'add': list.append})()\n",
        "search patterns",
    ),
    (
        "passed by identity",
        "passed = 1 if ev.passed_thresholds else 0\n            if passed:",
        "passed = ev.passed_thresholds is True\n            if passed:",
        "search patterns",
    ),
    (
        "velocity factor",
        "longest.passes_per_hour * 1.2",
        "longest.passes_per_hour * 1.3",
        "search velocity",
    ),
    (
        "trend of evaluations",
        "if shortest.passes_per_hour > longest.passes_per_hour",
        "if shortest.evaluations_per_hour > longest.evaluations_per_hour",
        "search velocity",
    ),
    (
        "nine suffice",
        "entry.total_evaluations < 10",
        "entry.total_evaluations < 9",
        "search velocity",
    ),
    ("whole hours", "hours = w / 60.0", "hours = w // 60.0", "search velocity"),
    (
        "yield factor",
        "recent_yield_rate < lifetime_yield_rate * 0.8",
        "recent_yield_rate < lifetime_yield_rate * 0.7",
        "yield analysis",
    ),
    (
        "diminishing inclusive",
        "recent_yield_rate < lifetime_yield_rate * 0.5",
        "recent_yield_rate <= lifetime_yield_rate * 0.5",
        "yield analysis",
    ),
    ("flag not boolean", "bool(row[1])", "row[1]", "yield analysis"),
    (
        "status wins",
        "if useful is None:\n                if status",
        "if True:\n                if status",
        "yield analysis",
    ),
    ("tamper case", "str(v).lower()", "str(v)", "yield analysis"),
    (
        "query layout",
        "                       WHERE eval_id=?",
        "  WHERE eval_id=?",
        "yield analysis",
    ),
    ("candidate shared", "candidate = dict(record)", "candidate = record", "yield analysis"),
    (
        "attribute read twice",
        '"is_pnl_mi": is_pnl_mi,',
        '"is_pnl_mi": getattr(ev, "is_pnl_mi", None),',
        "yield analysis",
    ),
    ("pairs by lift", "-entry.passed_cooccurrences", "-entry.lift", "correlation patterns"),
    ("pair of equals", "for j in range(i + 1,", "for j in range(i,", "correlation patterns"),
    (
        "bool threshold",
        "issubclass(type(threshold), bool) or not issubclass(type(threshold), (int, float))",
        "not issubclass(type(threshold), (int, float))",
        "pool entry",
    ),
    (
        "eager candidates",
        "    if active_handle is not None:\n        yield",
        "    if True:\n        yield",
        "pool resolution",
    ),
    (
        "later pools searched",
        "if not pools:\n            raise",
        "if not pools:\n            continue\n            raise",
        "pool resolution",
    ),
    (
        "cause dropped",
        "raise AuthError(_AUTH_REQUIRED_MESSAGE) from exc",
        "raise AuthError(_AUTH_REQUIRED_MESSAGE) from None",
        "resolution",
    ),
    (
        "stopped handle used",
        '        if getattr(handle, "_stopped", False):\n            continue\n',
        '        if getattr(handle, "_stopped", False):\n            pass\n',
        "resolution",
    ),
    (
        "runtime despite handle",
        "if active_handle is None:\n        runtime",
        "if active_handle is not ...:\n        runtime",
        "resolution",
    ),
    (
        "engine not cached",
        "    if _singleton is not None:\n        return _singleton\n",
        "    if _singleton is ...:\n        return _singleton\n",
        "cached engine",
    ),
    (
        "login checked once",
        "    _require_registered_or_logged_in(onboarding_mod)\n    if _singl",
        "    _singleton or _require_registered_or_logged_in(onboarding_mod)\n    if _singl",
        "module calls",
    ),
    (
        "velocity cut-off in hours",
        "cutoff = now - w * 60\n",
        "cutoff = now - w * 3600\n",
        "search velocity",
    ),
    (
        "windows checked after fetch",
        "                if w <= 0:",
        "                if w < 0:",
        "search velocity",
    ),
    (
        "type checked late",
        "        self._validate_eval_type(eval_type)\n        if top_n < 1:",
        "        if top_n < 1:",
        "correlation patterns",
    ),
    (
        "names not only once",
        "                if name:\n                    names.add(name)",
        "                names.add(name)",
        "correlation patterns",
    ),
    (
        "depths unsorted",
        "for depth in sorted(depth_total):",
        "for depth in depth_total:",
        "search patterns",
    ),
    (
        "ruled by the later flag",
        "if eval_pool == EvalPool.SUBMITTED:",
        "if eval_pool is EvalPool.SUBMITTED:",
        "fetch",
    ),
    (
        "integer zero rates",
        "submittable_yield={name: 0.0 for",
        "submittable_yield={name: 0 for",
        "search stats",
    ),
    (
        "column of turnover",
        "            turnover = ev.turnover\n            correlation",
        "            turnover = (per_column or {}).get(col + '_turnover', ev.turnover)\n"
        "            correlation",
        "search stats",
    ),
]

MOST_SEEDS = 6000


def broken_copy(text: str, replacement: str) -> ModuleType:
    """The model with `text` replaced wherever it stands in its source."""
    assert text in SOURCE, "the model no longer holds the text that this case breaks"
    module = ModuleType("broken_copy")
    exec(compile(SOURCE.replace(text, replacement), "broken_copy", "exec"), vars(module))
    return module


@pytest.fixture(autouse=True)
def named_copy(monkeypatch: pytest.MonkeyPatch) -> None:
    """Dataclasses look their module up by name while they are made."""
    monkeypatch.setitem(sys.modules, "broken_copy", ModuleType("broken_copy"))
    monkeypatch.setitem(vars(sys.modules["broken_copy"]), "__name__", "broken_copy")


@pytest.mark.parametrize(
    ("text", "replacement", "kind"),
    [pytest.param(*rest, id=name) for name, *rest in BREAKS],
)
def test_broken_copy_is_noticed(text: str, replacement: str, kind: str) -> None:
    module = broken_copy(text, replacement)
    assert any(compare_seed(kind, seed, module) for seed in range(MOST_SEEDS))


@pytest.mark.parametrize("kind", list(KINDS))
def test_true_copy_agrees(kind: str) -> None:
    module = broken_copy("None", "None")
    assert not any(compare_seed(kind, seed, module) for seed in range(150))
