"""How much a run measures."""

from dataclasses import dataclass


@dataclass(frozen=True)
class Settings:
    """Numbers of records, evaluations and rounds of each part of a run.

    `rounds` are those of repeated calls, a turn of which repeats a call until `turn_seconds` are
    filled, and `fresh_rounds` those of first calls. `side_records` and `side_rounds` are for what
    is not in the table of demands. Growth is measured on the whole field up to `model_up_to`
    records, on the extension and the floor beyond.
    """

    records: int
    rounds: int
    turn_seconds: float
    fresh_rounds: int
    kind_records: int
    kind_rounds: int
    side_records: int
    side_rounds: int
    demo_evaluations: int
    growth_sizes: tuple[int, ...]
    model_up_to: int
    memory_records: int
    sqlite_records: int
    postgres_records: int
    import_rounds: int


FULL = Settings(
    records=10_000,
    rounds=7,
    turn_seconds=0.02,
    fresh_rounds=5,
    kind_records=5_000,
    kind_rounds=3,
    side_records=10_000,
    side_rounds=3,
    demo_evaluations=6_000,
    growth_sizes=(1_000, 10_000, 100_000, 1_000_000),
    model_up_to=100_000,
    memory_records=100_000,
    sqlite_records=10_000,
    postgres_records=1_000,
    import_rounds=15,
)
# Enough to see where things stand and that everything works.
QUICK = Settings(
    records=4_000,
    rounds=2,
    turn_seconds=0.005,
    fresh_rounds=1,
    kind_records=500,
    kind_rounds=1,
    side_records=1_000,
    side_rounds=1,
    demo_evaluations=200,
    growth_sizes=(1_000, 4_000),
    model_up_to=4_000,
    memory_records=5_000,
    sqlite_records=500,
    postgres_records=100,
    import_rounds=3,
)
