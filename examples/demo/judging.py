"""The far side of a submission: agents that report, and a server that checks and judges."""

from dataclasses import dataclass
from typing import Any

import numpy as np

from demo.performance import Series, sharpe

AGENTS = 40
# These report more than they measured for what they submit.
DISHONEST_AGENTS = frozenset({11, 29})
TOLERATED_EXCESS = 0.25
JUDGED_AFTER_SECONDS = 6 * 3600.0


@dataclass(frozen=True)
class Verdict:
    """What a tracker records of a submission's fate."""

    status: str
    useful_flag: bool | None = None
    rejection_reason: str | None = None

    @property
    def details(self) -> dict[str, Any]:
        """The arguments that go with the status."""
        return {"useful_flag": self.useful_flag, "rejection_reason": self.rejection_reason}


PENDING = Verdict("pending")


def reported(rng: np.random.Generator, agent: int, measured: float) -> float:
    """Return the measure that this agent reports for a candidate that it submits."""
    if agent not in DISHONEST_AGENTS:
        return measured
    return measured * (1.0 + float(rng.uniform(0.05, 0.6)))


def judge(
    later_profit: Series,
    later_correlation: float,
    pool_config: dict[str, Any],
    agent_measure: float,
    server_measure: float,
) -> Verdict:
    """Return the server's verdict, from the days after the era and from its own measure."""
    excess = agent_measure / server_measure - 1.0 if server_measure > 0.0 else 0.0
    if excess > TOLERATED_EXCESS:
        return Verdict("rejected", None, f"tampering: reported measure {excess:.0%} too high")
    limit = pool_config["os_correlation_threshold"]
    if later_correlation >= limit:
        text = f"correlation {later_correlation:.2f} after the era, pool allows {limit:.2f}"
        return Verdict("rejected", None, text)
    if sharpe(later_profit) > 0.0:
        return Verdict("useful", True)
    return Verdict("not_useful", False)
