"""Runs the suite programs: one process a figure, in interleaved rounds, each with a timeout."""

import contextlib
import os
import shutil
import signal
import subprocess
import tempfile
import time
from dataclasses import dataclass, field, replace
from pathlib import Path

from . import machine
from .figures import Figure, Key, read_lines
from .group import GroupError, MemoryGroup
from .plan import Case, Scale


# Seconds after which the machine is looked at again between two cases.
LOOK_INTERVAL = 10


@dataclass(frozen=True)
class Failure:
    """A peer that did not get through a case; what it measured before does not count."""

    case: Case
    peer: str
    reason: str
    rounds: int = 0  # that it had got through


@dataclass
class Results:
    """All that came out of a run."""

    figures: dict[Key, Figure] = field(default_factory=dict)
    failures: list[Failure] = field(default_factory=list)
    skipped: list[str] = field(default_factory=list)  # what was not run, each with its reason
    looks: list[machine.Calibration] = field(default_factory=list)
    remarks: dict[str, None] = field(default_factory=dict)  # what programs said, each once
    ran: list[Case] = field(default_factory=list)



@dataclass(frozen=True)
class Output:
    """What a process printed, and the last line of what it said on standard error."""

    text: str
    said: str


class RunError(Exception):
    """A process that did not do what it should; the text says how."""


class Runner:
    """Starts programs on one processor and reads what they print."""

    def __init__(self, programs: Path, scratch: Path, cpu: int):
        """`programs` is searched for the executables; what they write goes below `scratch`."""
        self._programs = {path.name: path for path in programs.rglob("suite_*") if _runs(path)}
        self._scratch = scratch
        self._cpu = cpu
        self._peers: dict[tuple[str, str], list[str]] = {}

    def peers(self, case: Case) -> list[str]:
        """The peers built for a case's workload. Raises RunError when its program is of no help."""
        known = (case.workload.program, case.argument)
        if known not in self._peers:
            listed = self._start(case.workload.program, ["--peers", case.argument], 60).text
            self._peers[known] = [line.strip() for line in listed.splitlines() if line.strip()]
        peers = [peer for peer in self._peers[known] if peer in (case.peers or (peer,))]
        if not set(peers) & set(case.workload.own):
            raise RunError(f"{case.workload.program} has nothing of ours for {case.argument}")
        return peers

    def measure(
        self, case: Case, peer: str, timeout: float
    ) -> tuple[list[tuple[Key, float]], str]:
        """The figures of one process, and what it remarked on them. Raises RunError."""
        with contextlib.ExitStack() as stack:
            directory = stack.enter_context(tempfile.TemporaryDirectory(dir=self._scratch))
            group = stack.enter_context(MemoryGroup(case.limit)) if case.limit else None
            options = ["--workload", case.argument, "--peer", peer, *case.options]
            if case.disk:
                os.sync()  # what the last process left to be written is not this one's to wait for
            output = self._start(case.workload.program, options, timeout, directory, group)
        try:
            found = read_lines(output.text, limited=bool(case.limit))
        except ValueError as error:
            raise RunError(str(error)) from error
        if not found:
            raise RunError(f"printed nothing{output.said and ': '}{output.said}")
        for key, _ in found:
            if (key.workload, key.peer) != (case.argument, peer):
                raise RunError(f"printed a figure of {key.workload}, {key.peer}")
        part = f"{case.part}: " if case.part else ""
        named = [
            (replace(key, workload=case.workload.name, variant=part + key.variant), value)
            for key, value in found
        ]
        return named, output.said

    def calibrate(self) -> machine.Calibration:
        """Times the fixed work."""
        text = self._start("suite_calibration", [], 60).text
        return machine.look({key.variant: value for key, value in read_lines(text, limited=False)})

    def _start(
        self,
        program: str,
        options: list[str],
        timeout: float,
        directory: str | None = None,
        group: MemoryGroup | None = None,
    ) -> Output:
        """Runs a program to its end. Raises RunError when it is not a good one."""
        if program not in self._programs:
            raise RunError(f"{program} is not built")
        command = [str(self._programs[program]), *options]
        return execute(command, self._cpu, timeout, directory or str(self._scratch), group)


def execute(
    command: list[str],
    cpu: int,
    timeout: float,
    directory: str,
    group: MemoryGroup | None = None,
) -> Output:
    """Runs a command on one processor, with `directory` for what it writes, and waits for it.

    Raises RunError, with what it said, when it did not end well.
    """
    try:
        process = subprocess.Popen(
            ["taskset", "-c", str(cpu), *command],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            errors="replace",
            env={**os.environ, "TMPDIR": directory},
            start_new_session=True,
            preexec_fn=group.enter if group else None,
        )
    except (OSError, subprocess.SubprocessError) as error:
        raise RunError(f"could not be started: {error}") from error
    try:
        output, errors = process.communicate(timeout=timeout)
    except subprocess.TimeoutExpired as error:
        raise RunError(f"no end after {timeout:.0f} s") from error
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
    said = (errors.strip().splitlines() or [""])[-1][:200]
    if process.returncode < 0:
        name = signal.Signals(-process.returncode).name
        full = ", out of the memory it was allowed" if group and group.kills() else ""
        raise RunError(f"ended by {name}{full}")
    if process.returncode > 0:
        raise RunError(f"status {process.returncode}{said and ': '}{said}")
    return Output(output, said)


def _runs(path: Path) -> bool:
    return path.is_file() and os.access(path, os.X_OK)


def limits_work(results: Results) -> bool:
    """Whether processes can be limited here; says so in the results when not."""
    try:
        with MemoryGroup(64 << 20):
            return True
    except GroupError as error:
        results.skipped.append(
            f"everything under a memory limit: no control group can be made ({error}); run as root "
            "where the memory controller may be written to"
        )
        return False


def run(runner: Runner, cases: list[Case], scale: Scale, scratch: Path) -> Results:
    """Runs all cases, with a look at the machine before, between and after."""
    results = Results()
    limited = limits_work(results) if any(case.limit for case in cases) else False
    end = time.monotonic() + scale.seconds if scale.seconds else None
    cases = [case for case in cases if limited or not case.limit]
    results.looks.append(runner.calibrate())
    looked = time.monotonic()
    for index, case in enumerate(cases):
        share = None
        if end is not None:
            left = end - time.monotonic()
            if left <= 0:
                results.skipped.append(f"{case.name}: the time for a {scale.name} run was over")
                continue
            share = time.monotonic() + left / (len(cases) - index)
        free = shutil.disk_usage(scratch).free
        if case.disk > free:
            results.skipped.append(
                f"{case.name}: needs {case.disk >> 20} MiB on disk where {free >> 20} are free"
            )
            continue
        results.ran.append(case)
        _run_case(runner, case, scale, share, results)
        if time.monotonic() - looked > LOOK_INTERVAL:
            results.looks.append(runner.calibrate())
            looked = time.monotonic()
    results.looks.append(runner.calibrate())
    return results


def _run_case(
    runner: Runner, case: Case, scale: Scale, share: float | None, results: Results
) -> None:
    """The rounds of one case: every peer once a round, so that what changes meanwhile meets all.

    A peer that fails is not tried again. After the first round that counts none is begun that would
    likely end after `share`, a monotonic time.
    """
    try:
        peers = runner.peers(case)
    except RunError as error:
        results.failures.append(Failure(case, case.workload.own[0], str(error)))
        print(f"{case.name}: {error}", flush=True)
        return
    timeout = max(case.timeout, scale.timeout)
    figures: dict[Key, Figure] = {}
    longest = 0.0
    for number in range(0 if scale.warm_up else 1, scale.rounds + 1):
        if number > 1 and share is not None and time.monotonic() + longest > share:
            break
        label = f"round {number} of {scale.rounds}" if number else "warm-up"
        print(f"{case.name}: {label}: {', '.join(peers)}", flush=True)
        begun = time.monotonic()
        for peer in list(peers):
            try:
                found, said = runner.measure(case, peer, timeout)
            except (RunError, GroupError) as error:
                print(f"{case.name}: {peer} FAILED: {error}", flush=True)
                results.failures.append(Failure(case, peer, str(error), max(0, number - 1)))
                figures = {key: figure for key, figure in figures.items() if key.peer != peer}
                peers.remove(peer)
                continue
            if said:
                results.remarks[f"{case.name}: {said}"] = None
            for key, value in found if number else ():
                figures.setdefault(key, Figure(key)).values.append(value)
        longest = max(longest, time.monotonic() - begun)
    results.figures.update(figures)
