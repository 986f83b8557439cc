"""The real prices that the search runs over, and the eras and universes cut out of them."""

import csv
import gzip
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from numpy.typing import NDArray

Matrix = NDArray[np.float64]

DATA_FILE = Path(__file__).parent.parent / "data" / "daily_prices.csv.gz"


@dataclass(frozen=True)
class Prices:
    """Daily prices of some instruments; each matrix has a row per day, a column per ticker.

    Prices are in US dollars, adjusted for splits and dividends; volume in adjusted shares.
    """

    tickers: tuple[str, ...]
    dates: NDArray[np.str_]
    open: Matrix
    high: Matrix
    low: Matrix
    close: Matrix
    volume: Matrix

    def of(self, tickers: tuple[str, ...]) -> "Prices":
        """Return the prices of some of the instruments, in the order asked for."""
        columns = [self.tickers.index(ticker) for ticker in tickers]
        matrices = (self.open, self.high, self.low, self.close, self.volume)
        return Prices(tickers, self.dates, *[matrix[:, columns] for matrix in matrices])

    def days(self, first: str, last: str) -> slice:
        """Return the rows of the days from `first` to `last`, both included."""
        return slice(
            int(np.searchsorted(self.dates, first, side="left")),
            int(np.searchsorted(self.dates, last, side="right")),
        )


@dataclass(frozen=True)
class Era:
    """A range of days to search in; submissions are judged on the days after it."""

    era_id: str
    first: str
    last: str
    judged_until: str


# The days before the first era are there for the functions that look back.
ERAS = (
    Era("2006-2007", "2006-01-01", "2007-12-31", "2008-06-30"),
    Era("2008-2009", "2008-01-01", "2009-12-31", "2010-06-30"),
    Era("2010-2011", "2010-01-01", "2011-12-31", "2012-06-30"),
    Era("2012", "2012-01-01", "2012-08-31", "2013-03-01"),
)

UNIVERSES: dict[str, tuple[str, ...]] = {
    "all_four": ("AAPL", "GOOG", "IBM", "MSFT"),
    "enterprise": ("IBM", "MSFT"),
    "platforms": ("AAPL", "GOOG", "MSFT"),
}


def load_prices(path: Path = DATA_FILE) -> Prices:
    """Read the shipped prices; see the README beside the file for columns and source."""
    with gzip.open(path, "rt", encoding="ascii", newline="") as text:
        rows = list(csv.DictReader(text))
    tickers = tuple(sorted({row["ticker"] for row in rows}))
    dates = np.array([row["date"] for row in rows if row["ticker"] == tickers[0]])

    def matrix(column: str) -> Matrix:
        # Rows are sorted by ticker and date, and every ticker has every date.
        values = np.array([float(row[column]) for row in rows])
        return values.reshape(len(tickers), len(dates)).T

    close = matrix("close")
    factor = matrix("adj_close") / close
    return Prices(
        tickers,
        dates,
        open=matrix("open") * factor,
        high=matrix("high") * factor,
        low=matrix("low") * factor,
        close=close * factor,
        volume=matrix("volume") / factor,
    )
