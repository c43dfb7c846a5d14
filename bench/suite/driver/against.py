"""The library beside an earlier revision of itself: times, and instructions of the hot paths.

One program, bench/suite/hotpaths, is built from the present sources against both libraries.
"""

import json
import re
import subprocess
from dataclasses import dataclass
from pathlib import Path

from . import machine
from .figures import Figure, Key, Ratio, ratio, read_lines
from .run import RunError, execute
from .tables import brief

# Instructions of an operation that grew by more than this part are a fault.
GROWTH_LIMIT = 0.02


class AgainstError(Exception):
    """The comparison cannot be made; the text says why."""


@dataclass(frozen=True)
class HotPath:
    """An operation of the program: its objects and how often it is done."""

    operation: str
    objects: int  # for the times
    times: int
    counted_objects: int  # under the profiler, which is fifty times slower
    counted: int


HOT_PATHS = (
    HotPath("pin", 1_000, 10_000_000, 1_000, 100_000),
    HotPath("pin", 1_000_000, 3_000_000, 0, 0),
    HotPath("pin in groups of 32", 1_000_000, 3_000_000, 1_000, 96_000),
    HotPath("follow", 1_000_000, 1_000_000, 1_000, 100_000),
    HotPath("walk", 1_000_000, 10_000_000, 10_000, 100_000),
    HotPath("allocate and free", 1_000, 5_000_000, 1_000, 100_000),
    HotPath("replace", 1_000_000, 1_000_000, 10_000, 100_000),
    HotPath("page in", 32_768, 200_000, 16_384, 20_000),
    HotPath("page out and in", 32_768, 100_000, 16_384, 20_000),
    HotPath("fixed pool", 100_000, 10_000_000, 1_000, 100_000),
    HotPath("memory pool", 1_000, 3_000_000, 1_000, 100_000),
    HotPath("arena", 100_000, 3_000_000, 1_000, 100_000),
)


@dataclass(frozen=True)
class Count:
    """Instructions of one operation in both libraries."""

    operation: str
    before: float
    now: float

    @property
    def growth(self) -> float:
        return self.now / self.before - 1

    @property
    def grew(self) -> bool:
        return self.growth > GROWTH_LIMIT


def compare(
    root: Path, revision: str, output: Path, scratch: Path, cpu: int, rounds: int
) -> int:
    """Builds, measures, writes against.md and against.json, and prints the Markdown.

    Returns the status to exit with: 1 when a hot path takes more instructions. Raises AgainstError,
    or RunError when a program fails.
    """
    commit = _commit(root, revision)
    if not commit:
        raise AgainstError(f"'{revision}' is no revision of this repository")
    folder = root / "build" / "against"
    folder.mkdir(parents=True, exist_ok=True)
    earlier = folder / "earlier"
    if not (earlier / ".git").exists():
        _run(["git", "-C", str(root), "worktree", "prune"])
        _run(["git", "-C", str(root), "worktree", "add", "--detach", str(earlier), commit])
    _run(["git", "-C", str(earlier), "checkout", "--quiet", "--detach", commit])
    before = _build(root, earlier, folder / "earlier-build")
    now = _build(root, root, folder / "present-build")

    missing = _missing(before, scratch, cpu)
    figures: dict[Path, dict[Key, Figure]] = {before: {}, now: {}}
    paths = [path for path in HOT_PATHS if path.operation not in missing]
    for number in range(rounds + 1):  # the first one warms up
        label = f"round {number} of {rounds}" if number else "warm-up"
        for path in paths:
            print(f"{path.operation}, {path.objects} objects: {label}", flush=True)
            for program in (before, now):
                command = [str(program), path.operation, str(path.objects), str(path.times)]
                text = execute(command, cpu, 300, str(scratch)).text
                for key, value in read_lines(text, limited=False) if number else ():
                    figures[program].setdefault(key, Figure(key)).values.append(value)
    counts = []
    for path in paths:
        if path.counted:
            print(f"{path.operation}: counting instructions", flush=True)
            counts.append(
                Count(
                    path.operation,
                    _instructions(before, path, scratch, cpu),
                    _instructions(now, path, scratch, cpu),
                )
            )
    described = machine.describe(root, cpu)
    named = f"{revision} ({commit[:12]})"
    ratios = {key: ratio(figures[now][key], figures[before][key]) for key in figures[before]}
    report = markdown(named, described, figures[before], figures[now], ratios, counts, missing)
    (output / "against.md").write_text(report)
    record = {
        "against": commit,
        "machine": described,
        "times": [
            {
                "operation": key.variant,
                "objects": key.size,
                "before": figure.values,
                "now": figures[now][key].values,
            }
            for key, figure in figures[before].items()
        ],
        "instructions": [
            {"operation": count.operation, "before": count.before, "now": count.now}
            for count in counts
        ],
        "missing before": sorted(missing),
    }
    (output / "against.json").write_text(json.dumps(record, indent=1) + "\n")
    print()
    print(report)
    return 1 if any(count.grew for count in counts) else 0


def markdown(
    named: str,
    described: dict[str, str],
    before: dict[Key, Figure],
    now: dict[Key, Figure],
    ratios: dict[Key, Ratio | None],
    counts: list[Count],
    missing: set[str],
) -> str:
    """The report of a comparison with revision `named`."""
    lines = [f"## Against {named}", ""]
    lines += [" · ".join(f"{name}: {value}" for name, value in described.items()) + ".", ""]
    lines += [
        "| instructions of one | before | now | growth | |",
        "| --- | ---: | ---: | ---: | --- |",
    ]
    for count in counts:
        verdict = f"**above {100 * GROWTH_LIMIT:.0f} %**" if count.grew else ""
        lines.append(
            f"| {count.operation} | {count.before:.1f} | {count.now:.1f} "
            f"| {100 * count.growth:+.1f} % | {verdict} |"
        )
    lines += [
        "",
        "Times are medians; in brackets the least and the most ratio of any one round.",
        "",
        "| operation | objects | before, ns | now, ns | ratio |",
        "| --- | ---: | ---: | ---: | ---: |",
    ]
    for key, figure in before.items():
        quotient = ratios[key]
        shown = ""
        if quotient:
            shown = f"{quotient.median:.2f} ({quotient.low:.2f}–{quotient.high:.2f})"
        mark = "~" if figure.noisy or now[key].noisy else ""
        lines.append(
            f"| {key.variant} | {key.size} | {brief(figure.median)} | {brief(now[key].median)} "
            f"| {mark}{shown} |"
        )
    if missing:
        lines += ["", f"Not in that revision: {', '.join(sorted(missing))}."]
    return "\n".join(lines) + "\n"


def _build(root: Path, source: Path, build: Path) -> Path:
    """Builds and installs the library in `source`, then the program against it; its path."""
    print(f"Building {source}", flush=True)
    library, installed, program = build / "library", build / "installed", build / "program"
    compiler = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_COMPILER=g++"]
    parts = ["-DQRT_BUILD_TESTS=OFF", "-DQRT_BUILD_EXAMPLES=OFF", "-DQRT_BUILD_BENCH=OFF"]
    _run(["cmake", "-S", str(source), "-B", str(library), *compiler, *parts])
    _run(["cmake", "--build", str(library)])
    _run(["cmake", "--install", str(library), "--prefix", str(installed)])
    place = [f"-DCMAKE_PREFIX_PATH={installed}"]
    _run(["cmake", "-S", str(root / "bench/suite/hotpaths"), "-B", str(program), *compiler, *place])
    _run(["cmake", "--build", str(program)])
    return program / "suite_hotpaths"


def _missing(program: Path, scratch: Path, cpu: int) -> set[str]:
    """The operations that an earlier library has not got."""
    found = set()
    for path in HOT_PATHS:
        try:
            execute([str(program), path.operation, "1000", "1"], cpu, 60, str(scratch))
        except RunError as error:
            if "in this revision" not in str(error):
                raise
            found.add(path.operation)
    return found


def _instructions(program: Path, path: HotPath, scratch: Path, cpu: int) -> float:
    """Instructions of one operation: what a longer run takes beyond a shorter one."""
    totals = []
    for count in (path.counted, 3 * path.counted):
        report = scratch / "callgrind.out"
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={report}"]
        command += [str(program), path.operation, str(path.counted_objects), str(count)]
        execute(command, cpu, 300, str(scratch))
        total = re.search(r"^totals: (\d+)", report.read_text(), re.MULTILINE)
        if not total:
            raise RunError(f"callgrind counted nothing for {path.operation}")
        totals.append(int(total.group(1)))
    return (totals[1] - totals[0]) / (2 * path.counted)


def _commit(root: Path, revision: str) -> str:
    """The full name of a revision; empty when there is none."""
    command = ["git", "-C", str(root), "rev-parse", "--verify", "--quiet", "--end-of-options"]
    done = subprocess.run([*command, revision + "^{commit}"], capture_output=True, text=True)
    return done.stdout.strip() if done.returncode == 0 else ""


def _run(command: list[str]) -> None:
    """Runs a command that builds; shows what it said only when it failed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        print(done.stdout[-4000:], flush=True)
        raise AgainstError(f"failed: {' '.join(command)}")
