"""Changes the library in one small way at a time and tells which changes no test notices."""

import argparse
import random
import sys
import time
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

from mutants import Mutant, find
from workspace import Failure, Workspace

ROOT = Path(__file__).resolve().parents[2]
KNOWN = Path(__file__).resolve().parent / "equivalent.txt"

EPILOGUE = """\
A mutant is one operator, constant or condition that differs, or one statement that is missing. It is
built into the module's test programs. Killed: a test fails, or runs into the timeout. Survived: all
pass, so that nothing says what the line is for, or the change changes nothing. Those that are known
to change nothing are in tests/mutation/equivalent.txt, with reasons, and are not tried.

Ends with 0 when all that was asked for was tried, whatever survived.
"""


@dataclass(frozen=True)
class Module:
    """Where a module's code is and which programs test it, the quickest first."""

    folder: str
    programs: tuple[str, ...]


MODULES = {
    "engine": Module("platform/libtcmalloc_virtualmm", ("engine_tests",)),
    "core": Module("src/core", ("core_tests", "core_store_tests")),
    "nodes": Module("src/nodes", ("nodes_tests", "nodes_store_tests")),
    "alloc": Module("src/alloc", ("alloc_tests",)),
    "strings": Module("src/strings", ("strings_tests", "strings_store_tests")),
    "file": Module("src/file", ("file_tests", "file_store_tests")),
    "qrtcore": Module("platform/QRTCore", ("qrtcore_tests",)),
}


def files_of(module: Module, top: Path, paths: list[str], compiled: set[str]) -> list[str]:
    """@return the module's sources and headers, those listed for include/ as well"""
    listed = (top / module.folder / "CMakeLists.txt").read_text().split("HEADERS", 1)[1].split()
    files = [f"include/{name}" for name in listed if (top / "include" / name).is_file()]
    for file in sorted((top / module.folder).rglob("*")):
        name = str(file.relative_to(top))
        if file.suffix == ".h" or name in compiled:
            files.append(name)
    if paths:
        files = [name for name in files if any(f"{name}/".startswith(f"{p}/") for p in paths)]
    return files


def read_known() -> dict[tuple[str, str, str], str]:
    """@return the reason for each mutant that changes nothing, by file, line of code and change"""
    known = {}
    for line in KNOWN.read_text().splitlines():
        if line and not line.startswith("#"):
            path, source, label, reason = line.split(" | ")
            known[path, source, label] = reason
    return known


def candidates(top: Path, files: list[str], known: dict) -> tuple[list[Mutant], int]:
    """@return the mutants to choose from, and how many known ones were left out"""
    found = [mutant for name in files for mutant in find(name, (top / name).read_text())]
    rest = [m for m in found if (m.path, m.source, m.label) not in known]
    return rest, len(found) - len(rest)


def judge(space: Workspace, mutant: Mutant, module: Module, limits: dict, build: float) -> str:
    """@return what became of a mutant: killed, timed out, survived or not compiled"""
    original = (space.source / mutant.path).read_text()
    space.write(mutant.path, mutant.apply(original))
    try:
        if not space.make(list(module.programs), build):
            return "not compiled"
        for program in module.programs:
            result, _ = space.test(program, limits[program])
            if result != "passed":
                return "killed" if result == "failed" else result
        return "survived"
    finally:
        space.write(mutant.path, original)


def try_module(space: Workspace, name: str, chosen: list[Mutant], timeout: float) -> list:
    """@return each mutant of a module with what became of it"""
    module = MODULES[name]
    limits = {}
    if not space.make(list(module.programs), 3600):
        raise Failure(space.output)
    for program in module.programs:
        result, seconds = space.test(program, 300)
        if result != "passed":
            raise Failure(f"{program} has {result} without any change:\n{space.output}")
        limits[program] = max(timeout, 3 * seconds)
        print(f"{program} passes in {seconds:.1f} s")
    results = []
    for mutant in chosen:
        begun = time.monotonic()
        result = judge(space, mutant, module, limits, 600)
        print(f"{result:12} {time.monotonic() - begun:5.0f} s  {mutant}", flush=True)
        results.append((mutant, result))
    return results


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="scripts/mutate.sh",
        description=__doc__,
        epilog=EPILOGUE,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("paths", nargs="*", help="only these files and folders [the modules' own]")
    parser.add_argument(
        "--module",
        action="append",
        choices=MODULES,
        help="may be repeated [engine, core, nodes and alloc]",
    )
    parser.add_argument("--sample", type=int, default=25, help="mutants of each module, 0: all [25]")
    parser.add_argument("--seed", type=int, default=1, help="another one draws another sample [1]")
    parser.add_argument("--line", type=int, help="only mutants of this line")
    parser.add_argument(
        "--timeout",
        type=float,
        default=10,
        help="seconds of processor time for a program, at least 3 times its own [10]",
    )
    parser.add_argument("--list", action="store_true", help="print what would be tried, try nothing")
    return parser.parse_args()


def main() -> int:
    options = parse()
    space = Workspace(ROOT, ROOT / "build" / "mutation")
    compiled = space.compiled()
    known = read_known()
    paths = [str(Path(path).resolve().relative_to(ROOT)) for path in options.paths]
    modules = options.module or (list(MODULES) if paths else ["engine", "core", "nodes", "alloc"])
    rows, survivors = [], []
    for name in modules:
        # The copy's files, which no edit changes meanwhile.
        files = files_of(MODULES[name], space.source, paths, compiled)
        found, left_out = candidates(space.source, files, known)
        chosen = [mutant for mutant in found if options.line in (None, mutant.line)]
        if options.sample and len(chosen) > options.sample:
            chosen = random.Random(options.seed).sample(chosen, options.sample)
            chosen.sort(key=found.index)
        if options.list:
            print(*chosen, sep="\n")
        if options.list or not chosen:
            continue
        results = try_module(space, name, chosen, options.timeout)
        counts = Counter(result for _, result in results)
        rows.append((name, len(found), left_out, len(results), counts))
        survivors += [mutant for mutant, result in results if result == "survived"]
    if rows:
        print("\n| module | mutants | known | tried | killed | timed out | survived | not compiled |")
        print("| --- | --- | --- | --- | --- | --- | --- | --- |")
    for name, total, left_out, tried, counts in rows:
        words = ("killed", "timed out", "survived", "not compiled")
        print("|", " | ".join(map(str, (name, total, left_out, tried, *(counts[word] for word in words)))), "|")
    for mutant in survivors:
        print(f"survived  {mutant}")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        print(failure, file=sys.stderr)
        sys.exit(1)
