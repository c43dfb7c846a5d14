"""Command line of the driver; scripts/bench.sh starts it once everything is built."""

import argparse
import dataclasses
import json
import os
import signal
import sys
import tempfile
from pathlib import Path

from . import against, machine, plan, plots, tables
from .run import Results, Runner, RunError, run

ROOT = Path(__file__).resolve().parents[3]
BUILD = ROOT / "build" / "bench"


def main() -> int:
    options = _options()
    scale = plan.QUICK if options.quick else plan.SMOKE if options.smoke else plan.FULL
    if options.rounds:
        scale = dataclasses.replace(scale, rounds=options.rounds)
    cases = plan.cases(scale, options.large)
    if options.only:
        cases = [case for case in cases if case.workload.name in options.only]
    if options.peers:
        cases = [case.with_peers(options.peers) for case in cases]
    if options.list:
        for case in cases:
            print(f"{case.workload.program:18} {case.name}")
        return 0
    # So that what is under way is ended and cleared away.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit("bench: interrupted"))
    BUILD.mkdir(parents=True, exist_ok=True)
    cpu = max(os.sched_getaffinity(0))
    options.output.mkdir(parents=True, exist_ok=True)
    try:
        with tempfile.TemporaryDirectory(dir=BUILD, prefix="scratch-") as scratch:
            if options.against:
                return against.compare(
                    ROOT, options.against, options.output, Path(scratch), cpu, scale.rounds
                )
            runner = Runner(BUILD / "bench" / "suite", Path(scratch), cpu)
            unknown = set(options.peers) - {name for case in cases for name in runner.peers(case)}
            if unknown:
                raise RunError(f"nobody is called '{', '.join(sorted(unknown))}' in these workloads")
            described = machine.describe(ROOT, cpu)
            results = run(runner, cases, scale, Path(scratch))
    except (RunError, against.AgainstError) as error:
        print(f"bench: {error}", file=sys.stderr)
        return 1
    _write(results, scale, described, options.output)
    print(f"{len(results.figures)} figures, {len(results.failures)} failures", file=sys.stderr)
    own = [failure for failure in results.failures if failure.peer in failure.case.workload.own]
    for failure in own:
        print(f"bench: our own {failure.case.name} failed: {failure.reason}", file=sys.stderr)
    return 1 if own else 0


def _options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="scripts/bench.sh",
        description="Compares the library with others: builds the suite, runs every peer in "
        "interleaved rounds on one processor and reports medians, ratios and the figures to reach.",
        epilog="Writes results.json, the tables and drawings, and prints the tables.",
    )
    scales = parser.add_mutually_exclusive_group()
    scales.add_argument(
        "--quick", action="store_true", help="smaller sizes and fewer rounds, within ten minutes"
    )
    scales.add_argument(
        "--smoke", action="store_true", help="tiny sizes, one round: whether everything works"
    )
    parser.add_argument(
        "--only",
        metavar="WORKLOAD[,..]",
        type=_workloads,
        help="only these: " + ", ".join(plan.WORKLOADS),
    )
    parser.add_argument(
        "--peers",
        metavar="PEER[,..]",
        type=_names,
        default=(),
        help="this library beside these and no others, for example 'pointer,bdb pool'; a figure to "
        "reach that asks for the best peer is then the best of these",
    )
    parser.add_argument("--rounds", metavar="N", type=_positive, help="rounds to measure")
    parser.add_argument(
        "--large", action="store_true", help="with 1e8 objects and 64 GiB, which takes hours"
    )
    parser.add_argument("--list", action="store_true", help="print what would be run, run nothing")
    parser.add_argument(
        "--output",
        metavar="DIR",
        type=Path,
        default=BUILD / "results",
        help="where to write (default: build/bench/results)",
    )
    parser.add_argument(
        "--against",
        metavar="REV",
        help="compare with the library at a revision instead: times of the store alone, and "
        "instructions of its hot paths; fails when these grew by more than 2 %%",
    )
    options = parser.parse_args()
    narrowed = options.only or options.peers
    if options.against and (narrowed or options.large or options.list or options.smoke):
        parser.error("--against goes with --quick, --rounds and --output alone")
    return options


def _names(text: str) -> tuple[str, ...]:
    return tuple(name.strip() for name in text.split(",") if name.strip())


def _workloads(text: str) -> set[str]:
    names = set(_names(text))
    unknown = names - set(plan.WORKLOADS)
    if unknown or not names:
        raise argparse.ArgumentTypeError(
            f"unknown workload '{', '.join(sorted(unknown))}'; there are "
            + ", ".join(plan.WORKLOADS)
        )
    return names


def _positive(text: str) -> int:
    if not text.isdecimal() or not 1 <= int(text) <= 1000:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number from 1 to 1000")
    return int(text)


def _write(
    results: Results, scale: plan.Scale, described: dict[str, str], output: Path
) -> None:
    """Writes everything that came of a run and prints the Markdown."""
    folder = output / tables.FOLDER
    folder.mkdir(exist_ok=True)
    drawn = set()
    for name, workload in plan.WORKLOADS.items():
        figures = [figure for key, figure in results.figures.items() if key.workload == name]
        if figures:
            plots.draw(workload, figures, folder / f"{name}.svg")
            drawn.add(name)
    report = tables.markdown(results, scale, described, drawn)
    (folder / "tables.md").write_text(report)
    record = {
        "scale": scale.name,
        "rounds": scale.rounds,
        "machine": described,
        "complaints": machine.complaints(results.looks),
        "calibration": [dataclasses.asdict(look) for look in results.looks],
        "figures": [
            {
                **dataclasses.asdict(key),
                "values": figure.values,
                "median": figure.median,
                "noisy": figure.noisy,
            }
            for key, figure in results.figures.items()
        ],
        "failures": [
            {
                "case": failure.case.name,
                "peer": failure.peer,
                "reason": failure.reason,
                "rounds before": failure.rounds,
            }
            for failure in results.failures
        ],
        "remarks": list(results.remarks),
        "skipped": results.skipped,
    }
    (output / "results.json").write_text(json.dumps(record, indent=1) + "\n")
    print()
    if scale.name != plan.SMOKE.name:  # whose figures tell nothing
        print(report)
    for what in results.skipped:
        print(f"NOT RUN: {what}", file=sys.stderr)
    print(f"Written to {output}", file=sys.stderr)


if __name__ == "__main__":
    sys.exit(main())
