"""The results as Markdown: with its drawings, the run's part of docs/performance."""

from .figures import Figure, Key, is_bytes, ratio
from .machine import complaints
from .plan import MIB, WORKLOADS, Scale
from .run import Results
from .targets import REFERENCES, judge, unmeasured

# The folder of the Markdown and the drawings that it shows.
FOLDER = "performance"


def brief(value: float) -> str:
    """Three digits, with a unit from 10,000 on: 0.0123, 8.20, 1234, 378k, 2.04M."""
    for factor, suffix in ((1e9, "G"), (1e6, "M"), (1e4, "k")):
        if abs(value) >= 0.9995 * factor:
            unit = 1e3 if suffix == "k" else factor
            return _digits(value / unit) + suffix
    return _digits(value)


def _digits(value: float) -> str:
    if abs(value) >= 99.95:
        return f"{value:.0f}"
    if abs(value) >= 9.995:
        return f"{value:.1f}"
    return f"{value:.2f}" if abs(value) >= 0.9995 else f"{value:.3g}"


def markdown(results: Results, scale: Scale, described: dict[str, str], drawn: set[str]) -> str:
    """The whole report; `drawn` has the workloads of which there are drawings."""
    lines = ["# Tables", ""]
    lines += [" · ".join(f"{name}: {value}" for name, value in described.items()) + ".", ""]
    lines += _standing(results, scale)
    for name, workload in WORKLOADS.items():
        keys = [key for key in results.figures if key.workload == name]
        failures = [failure for failure in results.failures if failure.case.workload.name == name]
        if not keys and not failures:
            continue
        lines += [f"## {workload.title}", ""]
        if name in drawn:
            lines += [f"![{workload.title}]({name}.svg)", ""]
        lines += _tables(name, keys, results)
        lines += _failures(failures)
        remarks = [remark for remark in results.remarks if remark.split()[0].rstrip(":") == name]
        lines += [f"- {remark}" for remark in remarks] + [""] * bool(remarks)
        lines += _verdicts(name, results)
    return "\n".join(lines).rstrip() + "\n"


def _standing(results: Results, scale: Scale) -> list[str]:
    """How many rounds there were, whether they can be relied on, and what is missing."""
    counts = sorted({len(figure.values) for figure in results.figures.values()})
    rounds = " to ".join(str(count) for count in dict.fromkeys(counts[:1] + counts[-1:])) or "no"
    words = f"Median of {rounds} interleaved rounds, in brackets the least and the most."
    if scale.name != "full":
        words = f"**This was a {scale.name} run: smaller sizes, fewer rounds.** {words}"
    noisy = [figure for figure in results.figures.values() if figure.noisy]
    if noisy:
        words += (
            f" {len(noisy)} of {len(results.figures)} figures, marked with ~, differ by more than "
            "15 % of their median from round to round."
        )
    lines = [words, ""]
    trouble = complaints(results.looks)
    if len(noisy) * 4 > len(results.figures):
        trouble.append("more than a quarter of the figures are marked with ~")
    if trouble:
        lines += ["**This run was too noisy to be relied on:**", ""]
        lines += [f"- {reason}" for reason in trouble] + [""]
    if results.skipped:
        lines += ["**Not run:**", ""] + [f"- {what}" for what in results.skipped] + [""]
    return lines


def _tables(name: str, keys: list[Key], results: Results) -> list[str]:
    """A table for every size, unit and limit, a peer a row; or a size a row of a workload that is
    drawn over its sizes."""
    lines = []
    over_sizes = WORKLOADS[name].lines
    groups: dict[tuple, list[Key]] = {}
    for key in keys:
        rest = (is_bytes(key.size),) if over_sizes else (key.size, key.unit)
        groups.setdefault((key.limited, *rest), []).append(key)
    for chosen in groups.values():
        columns = list(dict.fromkeys((key.variant, key.unit) for key in chosen))
        rows = list(dict.fromkeys((key.peer, key.size) for key in chosen))
        limited = chosen[0].limited
        reference = REFERENCES.get(name, "")
        title = [] if over_sizes else [chosen[0].size, chosen[0].unit]
        if limited:
            title.append(_limit(name, results))
        if any(key.peer == reference for key in chosen) and len(rows) > 1:
            title.append(f"behind the bar divided by the same of {reference}")
        if title:
            lines += [f"**{title[0]}**, {', '.join(title[1:])}:", ""]
        corner = ["peer", "size"] if over_sizes else ["peer"]
        grid = [
            corner + [f"{variant}, {unit}" if over_sizes else variant for variant, unit in columns]
        ]
        for peer, size in rows:
            shown = f"**{peer}**" if peer in WORKLOADS[name].own else peer
            row = [shown, size] if over_sizes else [shown]
            for variant, unit in columns:
                figure = results.figures.get(Key(name, limited, size, variant, unit, peer))
                base = results.figures.get(Key(name, limited, size, variant, unit, reference))
                row.append(_cell(figure, base))
            grid.append(row)
        if len(columns) > len(rows) and not over_sizes:
            grid = [["", *grid[0][1:]], *grid[1:]]
            grid = [list(column) for column in zip(*grid)]
        lines += _rows(grid, len(corner)) + [""]
    return lines


def _rows(grid: list[list[str]], left: int) -> list[str]:
    """A table whose first row is its head and whose first `left` columns are text."""
    rule = ["---"] * left + ["---:"] * (len(grid[0]) - left)
    return [f"| {' | '.join(row)} |" for row in (grid[0], rule, *grid[1:])]


def _limit(name: str, results: Results) -> str:
    cases = [case for case in results.ran if case.workload.name == name and case.limit]
    limits = " or ".join(f"{limit // MIB} MiB" for limit in sorted({case.limit for case in cases}))
    return f"the whole process and the page cache within {limits}"


def _cell(figure: Figure | None, base: Figure | None) -> str:
    if figure is None:
        return ""
    text = brief(figure.median)
    if len(figure.values) > 1:
        text += f" ({brief(min(figure.values))}–{brief(max(figure.values))})"
    if figure.noisy:
        text = "~" + text
    quotient = ratio(figure, base) if base is not None and base is not figure else None
    return f"{text} ∣ {quotient.median:.2f}" if quotient else text


def _failures(failures) -> list[str]:
    if not failures:
        return []
    lines = ["| failed | at | reason |", "| --- | --- | --- |"]
    for failure in failures:
        reason = failure.reason.replace("|", "\\|")
        lines.append(f"| {failure.peer} | {failure.case.name} | {reason} |")
    return lines + [""]


def _verdicts(name: str, results: Results) -> list[str]:
    verdicts = [
        verdict for verdict in judge(results.figures) if verdict.target.workload == name
    ]
    missing = unmeasured(results.figures, {name})
    if not verdicts and not missing:
        return []
    lines = ["| what | size | to reach | measured | reached |", "| --- | --- | --- | --- | --- |"]
    for verdict in verdicts:
        size = verdict.size + (", limited" if verdict.limited else "")
        what = verdict.variant
        if len(WORKLOADS[name].own) > 1:
            what = f"{verdict.target.own}, {what}"
        lines.append(
            f"| {what} | {size} | {verdict.target.wording()} | {verdict.measured} "
            f"| {verdict.answer()} |"
        )
    lines += [f"| {what} | | | | not measured |" for what in missing]
    return lines + [""]
