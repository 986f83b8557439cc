"""Rebuild `daily_prices.csv.gz` from the sample data package that it was taken from.

    pip install bokeh_sampledata==2026.1
    python examples/data/extract_prices.py

Keeps the days on which all four tickers traded, from the first day of the youngest
one on, so that every column of the demo's price matrices is complete.
"""

import csv
import gzip
from collections.abc import Iterable
from importlib.resources import files
from io import StringIO
from pathlib import Path

SOURCE = files("bokeh_sampledata") / "_data" / "stocks.csv.gz"
TARGET = Path(__file__).with_name("daily_prices.csv.gz")
TICKERS = ("AAPL", "GOOG", "IBM", "MSFT")
COLUMNS = ("ticker", "date", "open", "high", "low", "close", "volume", "adj_close")


def source_rows() -> list[dict[str, str]]:
    """Return the source's rows of the four tickers, as text, in its order."""
    with SOURCE.open("rb") as packed, gzip.open(packed, "rt", encoding="utf-8", newline="") as text:
        return [row for row in csv.DictReader(text) if row["Ticker"] in TICKERS]


def common_days(rows: Iterable[dict[str, str]]) -> set[str]:
    """Return the dates on which every ticker has a row."""
    days: dict[str, set[str]] = {ticker: set() for ticker in TICKERS}
    for row in rows:
        days[row["Ticker"]].add(row["Date"])
    return set.intersection(*days.values())


def main() -> None:
    rows = source_rows()
    days = common_days(rows)
    text = StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow(COLUMNS)
    for row in sorted(rows, key=lambda row: (row["Ticker"], row["Date"])):
        if row["Date"] in days:
            prices = [row[name] for name in ("Ticker", "Date", "Open", "High", "Low", "Close")]
            writer.writerow([*prices, row["Volume"], f"{float(row['Adj Close']):.6f}"])
    # No time stamp in the header of the archive: the same data gives the same bytes.
    TARGET.write_bytes(gzip.compress(text.getvalue().encode("ascii"), mtime=0))
    print(f"{TARGET.name}: {len(days)} days of {len(TICKERS)} tickers")


if __name__ == "__main__":
    main()
