"""A copy of the sources with a build of its own, in which mutants are built and tested."""

import math
import os
import re
import resource
import shutil
import signal
import subprocess
from pathlib import Path

# What a mutant may do to the machine: it may ask for endless memory and write endless files.
_MEMORY = 16 << 30
_FILE = 2 << 30


class Failure(RuntimeError):
    """What has to hold before the first mutant does not."""


def _limit(seconds: float) -> None:
    limits = {
        resource.RLIMIT_AS: _MEMORY,
        resource.RLIMIT_FSIZE: _FILE,
        resource.RLIMIT_CORE: 0,
        resource.RLIMIT_CPU: math.ceil(seconds),
    }
    for which, most in limits.items():
        # The hard limit stays: tests set limits of their own.
        resource.setrlimit(which, (most, resource.getrlimit(which)[1]))


def run(command: list[str], timeout: float, **options) -> tuple[int | None, str]:
    """@return exit status, negative for a signal and None for a timeout, and what was printed"""
    process = subprocess.Popen(
        command,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        errors="replace",
        start_new_session=True,
        **options,
    )
    try:
        output, _ = process.communicate(timeout=timeout)
        return process.returncode, output
    except subprocess.TimeoutExpired:
        return None, ""
    finally:
        # Children that a test made must not outlive it.
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def _processor_time() -> float:
    """@return seconds that all ended children took"""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


class Workspace:
    """The copy, its build and its tests' temporary files, all below one folder."""

    def __init__(self, root: Path, folder: Path):
        self.source = folder / "source"
        self.build = folder / "build"
        self.temporary = folder / "tmp"
        self._synchronise(root)
        self._configure()

    def _synchronise(self, root: Path) -> None:
        """Makes the copy equal. Files that are equal keep their times, so that they stay built."""
        listed = subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=root,
            check=True,
            capture_output=True,
            text=True,
        ).stdout
        names = {name for name in listed.split("\0") if name and (root / name).is_file()}
        for old in self.source.rglob("*"):
            if old.is_file() and str(old.relative_to(self.source)) not in names:
                old.unlink()
        for name in names:
            target = self.source / name
            content = (root / name).read_bytes()
            if not target.is_file() or target.read_bytes() != content:
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(content)
                shutil.copymode(root / name, target)

    def _configure(self) -> None:
        # Little optimisation and no debug information: a mutant is built and run once.
        options = ["-DCMAKE_BUILD_TYPE=Debug", "-DQRT_BUILD_EXAMPLES=OFF"]
        options += ["-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g0 -D_GLIBCXX_ASSERTIONS"]
        if shutil.which("ccache"):
            options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        command = ["cmake", "-S", str(self.source), "-B", str(self.build), "-G", "Ninja", *options]
        status, output = run(command, 300)
        if status != 0:
            raise Failure(output)

    def compiled(self) -> set[str]:
        """@return the sources that this system compiles, relative to the top folder"""
        text = (self.build / "compile_commands.json").read_text()
        files = {Path(name).resolve() for name in re.findall(r'"file": "([^"]+)"', text)}
        top = self.source.resolve()
        return {str(file.relative_to(top)) for file in files if top in file.parents}

    def make(self, programs: list[str], timeout: float) -> bool:
        """Builds test programs. @return whether that worked"""
        status, self.output = run(["ninja", "-C", str(self.build), *programs], timeout)
        return status == 0

    def test(self, program: str, timeout: float) -> tuple[str, float]:
        """Runs a test program up to its first failure.

        The timeout is in processor time, which other work on the machine does not change; a program
        that only waits has twenty times as long.

        @return passed, failed or timed out, and the processor time it took in seconds
        """
        found = list((self.build / "tests").rglob(program))
        found = [path for path in found if path.is_file()]
        if len(found) != 1:
            raise Failure(f"{program} was built {len(found)} times")
        self.temporary.mkdir(exist_ok=True)
        begun = _processor_time()
        status, self.output = run(
            [str(found[0]), "--gtest_fail_fast", "--gtest_brief=1"],
            20 * timeout,
            cwd=found[0].parent,
            env={**os.environ, "TMPDIR": str(self.temporary)},
            preexec_fn=lambda: _limit(timeout),
        )
        shutil.rmtree(self.temporary, ignore_errors=True)
        words = {None: "timed out", -signal.SIGXCPU: "timed out", 0: "passed"}
        return words.get(status, "failed"), _processor_time() - begun

    def write(self, path: str, content: str) -> None:
        """Changes a file of the copy; its new time has it built again."""
        (self.source / path).write_text(content)
