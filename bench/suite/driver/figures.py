"""The figures that the suite programs print, collected over rounds."""

import json
import math
import statistics
from dataclasses import dataclass, field

# How a unit is read: whether less of it is better.
LESS_IS_BETTER = {
    "ns": True,
    "bytes": True,
    "bytes/byte": True,
    "pages": True,
    "instructions": True,
    "1/s": False,
    "MB/s": False,
}

# A figure whose rounds differ by more than this part of their median is marked.
NOISY_SPREAD = 0.15


@dataclass(frozen=True, order=True)
class Key:
    """What a figure is of: all of a line but its value, and whether memory was limited."""

    workload: str
    limited: bool
    size: str
    variant: str
    unit: str
    peer: str


@dataclass
class Figure:
    """One key's values, a round each."""

    key: Key
    values: list[float] = field(default_factory=list)

    @property
    def median(self) -> float:
        return statistics.median(self.values)

    @property
    def spread(self) -> float:
        """Distance between the extremes as a part of the median."""
        distance = max(self.values) - min(self.values)
        return distance / abs(self.median) if self.median else (math.inf if distance else 0.0)

    @property
    def noisy(self) -> bool:
        return self.spread > NOISY_SPREAD


@dataclass(frozen=True)
class Ratio:
    """A quotient of two figures: of their medians, and the least and most of any one round."""

    median: float
    low: float
    high: float


def ratio(a: Figure, b: Figure) -> Ratio | None:
    """`a` divided by `b`, round by round as they ran side by side; None when `b` was ever 0."""
    if not all(b.values):
        return None
    rounds = [x / y for x, y in zip(a.values, b.values)]
    median = a.median / b.median
    return Ratio(median, min(rounds + [median]), max(rounds + [median]))


def advantage(a: Figure, b: Figure) -> Ratio | None:
    """How many times better `a` is than `b`, whichever way their unit is read."""
    return ratio(b, a) if LESS_IS_BETTER[a.key.unit] else ratio(a, b)


def read_lines(text: str, limited: bool) -> list[tuple[Key, float]]:
    """Reads what one run printed.

    Raises ValueError, with the line at fault, for anything but figures in known units and for a
    figure that comes twice.
    """
    found: dict[Key, float] = {}
    for line in text.splitlines():
        if not line.strip():
            continue
        try:
            record = json.loads(line)
            names = {name: record[name] for name in ("workload", "size", "variant", "unit", "peer")}
            value = record["value"]
        except (ValueError, KeyError, TypeError) as error:
            raise ValueError(f"printed a line that is no figure: {line.strip()[:120]}") from error
        if not all(isinstance(name, str) for name in names.values()):
            raise ValueError(f"printed a name that is no text: {line.strip()[:120]}")
        number = isinstance(value, (int, float)) and not isinstance(value, bool)
        if not number or not math.isfinite(value):
            raise ValueError(f"printed a value that is no number: {line.strip()[:120]}")
        if names["unit"] not in LESS_IS_BETTER:
            raise ValueError(f"printed an unknown unit: {line.strip()[:120]}")
        key = Key(limited=limited, **names)
        if key in found:
            raise ValueError(f"printed a figure twice: {line.strip()[:120]}")
        found[key] = float(value)
    return list(found.items())


def size_value(size: str) -> float | None:
    """The number that a size stands for, such as 1e6, 256M or 2G; None when it is none."""
    suffixes = {"K": 2.0**10, "M": 2.0**20, "G": 2.0**30, "T": 2.0**40}
    try:
        return float(size[:-1]) * suffixes[size[-1]] if size[-1:] in suffixes else float(size)
    except ValueError:
        return None


def is_bytes(size: str) -> bool:
    """Whether a size counts bytes, as 64M does, and not things, as 1e6 does."""
    return size[-1:] in ("K", "M", "G", "T")
