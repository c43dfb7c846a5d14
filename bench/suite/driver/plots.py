"""The results as drawings: one SVG a workload, to be read on light and on dark backgrounds."""

import math
import textwrap
from pathlib import Path

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402  (the backend has to be chosen first)

from .figures import LESS_IS_BETTER, Figure, is_bytes, size_value  # noqa: E402
from .plan import Workload  # noqa: E402
from .tables import brief  # noqa: E402

# Halfway between black and white: every colour here stands out against both.
TEXT = "#7d8590"
# A peer has one colour in all drawings: this library's are warm, those that take the same part in
# several drawings, memory as it is first of all, share one.
COLOURS = {
    "store": "#e8590c",
    "store 1/16": "#f5a524",
    "vector": "#e8590c",
    "map": "#e8590c",
    "string map": "#f5a524",
    "fixed pool": "#e8590c",
    "fixed pool, no header": "#f08c3a",
    "arena": "#c2410c",
    "pool": "#f5a524",
    "pointer": "#228be6",
    "malloc": "#228be6",
    "std": "#228be6",
    "std::unordered_map": "#228be6",
    "stdio": "#228be6",
    "zlib -6": "#228be6",
    "pointer table": "#5c7cfa",
    "mimalloc": "#5c7cfa",
    "zlib -1": "#5c7cfa",
    "pointer table, called": "#9c6ade",
    "jemalloc": "#9c6ade",
    "memfd": "#9c6ade",
    "bdb pool": "#12a37a",
    "boost pool": "#12a37a",
    "isal": "#12a37a",
    "pread": "#1098ad",
    "std pmr": "#1098ad",
    "bdb btree": "#7a9a3a",
    "stxxl": "#c28a00",
    "boost interprocess": "#78909c",
    "chain": "#78909c",
    "lmdb": "#d6457f",
    "sqlite": "#a0522d",
    "rocksdb": "#845ef7",
}
# For a peer that the table does not know.
UNKNOWN = "#78909c"

# Titles are broken before they are wider than their panel.
TITLE_WIDTH = 40

STYLE = {
    "svg.fonttype": "none",
    "svg.hashsalt": "suite",
    "font.family": "sans-serif",
    "font.size": 9,
    "text.color": TEXT,
    "axes.labelcolor": TEXT,
    "axes.edgecolor": TEXT,
    "axes.titlesize": 10,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "xtick.color": TEXT,
    "ytick.color": TEXT,
    "legend.labelcolor": TEXT,
    "legend.frameon": False,
    "grid.color": TEXT,
    "grid.alpha": 0.25,
}

# Bars that differ by more than this are drawn on a logarithmic axis.
WIDE_RANGE = 30

COLUMNS = 3

# What the name of a variant ends with, or holds, when objects were announced before they were pinned.
ANNOUNCED = " announced"


def draw(workload: Workload, figures: list[Figure], path: Path) -> None:
    """Draws the figures of a workload into an SVG file."""
    with plt.rc_context(STYLE):
        panels = _line_panels(figures) if workload.lines else _bar_panels(figures)
        columns = min(COLUMNS, len(panels))
        rows = math.ceil(len(panels) / columns)
        most = max(len({_label(figure) for figure in panel}) for panel in panels.values())
        height = 2.6 if workload.lines else 0.85 + 0.24 * most
        drawing, axes = plt.subplots(
            rows, columns, figsize=(3.6 * columns, height * rows), squeeze=False
        )
        for axis in axes.flat[len(panels) :]:
            axis.set_visible(False)
        for axis, (title, panel) in zip(axes.flat, panels.items()):
            (_lines if workload.lines else _bars)(axis, panel, title)
        drawing.tight_layout()
        drawing.savefig(path, transparent=True, metadata={"Date": None})
        plt.close(drawing)


def _colour(figure: Figure) -> str:
    return COLOURS.get(figure.key.peer, UNKNOWN)


def _title(title: str, unit: str, *remarks: str) -> str:
    """A panel's title, with its unit and which way is better, on as many lines as it takes."""
    said = ", ".join([unit, *([] if LESS_IS_BETTER[unit] else ["more is better"]), *remarks])
    between = " " if len(title) + len(said) + 3 <= TITLE_WIDTH else "\n"
    return f"{textwrap.fill(title, TITLE_WIDTH)}{between}({said})"


def _bar_panels(figures: list[Figure]) -> dict[tuple[str, str], list[Figure]]:
    """A panel for every variant, size and limit. What was announced stands beside what was not."""
    panels: dict[tuple[str, str], list[Figure]] = {}
    for figure in figures:
        key = figure.key
        if key.unit == "pages":
            continue  # only some peers count them
        limit = ", limited" if key.limited else ""
        variant = key.variant.replace(ANNOUNCED, "")
        panels.setdefault((f"{variant}, {key.size}{limit}", key.unit), []).append(figure)
    return panels


def _line_panels(figures: list[Figure]) -> dict[tuple[str, str], list[Figure]]:
    """A panel for every variant, over those sizes that are numbers."""
    panels: dict[tuple[str, str], list[Figure]] = {}
    for figure in figures:
        if size_value(figure.key.size) is not None:
            of = "bytes" if is_bytes(figure.key.size) else "objects"
            title = f"{figure.key.variant} over {of}"
            panels.setdefault((title, figure.key.unit), []).append(figure)
    return panels


def _bars(axis, panel: list[Figure], title: tuple[str, str]) -> None:
    """A bar a peer, with a thin line from the least to the most and the median written behind."""
    names = [_label(figure) for figure in panel]
    medians = [figure.median for figure in panel]
    least = [figure.median - min(figure.values) for figure in panel]
    most = [max(figure.values) - figure.median for figure in panel]
    axis.barh(
        names,
        medians,
        xerr=(least, most),
        color=[_colour(figure) for figure in panel],
        height=0.7,
        error_kw={"ecolor": TEXT, "elinewidth": 1},
    )
    positive = [value for value in medians if value > 0]
    widest = max(max(figure.values) for figure in panel)
    if positive and max(positive) > WIDE_RANGE * min(positive):
        axis.set_xscale("log")
        axis.set_title(_title(*title, "log scale"))
        low = min(min(figure.values) for figure in panel if figure.median > 0)
        axis.set_xlim(low / 3, widest * 8)
    else:
        axis.set_title(_title(*title))
        axis.set_xlim(0, widest * 1.3 if widest else 1)
    for row, figure in enumerate(panel):
        axis.annotate(
            brief(figure.median),
            (max(figure.values), row),
            xytext=(4, 0),
            textcoords="offset points",
            va="center",
        )
    axis.invert_yaxis()
    axis.tick_params(axis="y", length=0)
    axis.xaxis.set_visible(False)
    axis.spines["bottom"].set_visible(False)


def _label(figure: Figure) -> str:
    return figure.key.peer + (", announced" if ANNOUNCED in figure.key.variant else "")


def _lines(axis, panel: list[Figure], title: tuple[str, str]) -> None:
    """A line a peer over the sizes, both axes logarithmic."""
    axis.set_title(_title(*title))
    for peer in dict.fromkeys(figure.key.peer for figure in panel):
        points = sorted(
            (size_value(figure.key.size), figure) for figure in panel if figure.key.peer == peer
        )
        sizes = [size for size, _ in points]
        medians = [figure.median for _, figure in points]
        colour = _colour(points[0][1])
        axis.plot(sizes, medians, marker="o", markersize=4, color=colour, label=peer)
        axis.fill_between(
            sizes,
            [min(figure.values) for _, figure in points],
            [max(figure.values) for _, figure in points],
            color=colour,
            alpha=0.2,
            linewidth=0,
        )
    axis.set_xscale("log")
    labels = {size_value(figure.key.size): figure.key.size for figure in panel}
    axis.set_xticks(list(labels), list(labels.values()))
    axis.minorticks_off()
    low = min(min(figure.values) for figure in panel)
    high = max(max(figure.values) for figure in panel)
    if low > 0:
        ticks = _ticks(low, high)
        axis.set_yscale("log")
        axis.set_ylim(ticks[0], ticks[-1])
        axis.set_yticks(ticks, [brief(tick) for tick in ticks])
        axis.minorticks_off()
    axis.grid(True)
    if len({figure.key.peer for figure in panel}) > 1:
        axis.legend()


def _ticks(low: float, high: float) -> list[float]:
    """1, 2 and 5 times powers of ten, from below `low`, which is above 0, to above `high`."""
    found = []
    for power in range(math.floor(math.log10(low)) - 1, math.ceil(math.log10(high)) + 2):
        found += [step * 10.0**power for step in (1, 2, 5)]
    first = max(index for index, tick in enumerate(found) if tick <= low)
    last = min(index for index, tick in enumerate(found) if tick >= high)
    return found[first : max(last, first + 1) + 1]
