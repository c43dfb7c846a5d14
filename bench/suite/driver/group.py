"""A memory limit around a process and the page cache it fills: a control group of its own."""

import contextlib
import os
import signal
import time
from pathlib import Path


class GroupError(Exception):
    """No group can be made here; the text says why."""


class MemoryGroup:
    """A control group below the driver's own, version 1 or 2, that holds one process after another.

    Use it in a `with` statement: at its end whatever still runs inside is killed and the group is
    removed.
    """

    def __init__(self, limit: int):
        """Makes a group that may use `limit` bytes. Raises GroupError when that is not allowed."""
        self.path, self._version = _make()
        try:
            if self._version == 1:
                self._write("memory.limit_in_bytes", str(limit))
                self._try("memory.swappiness", "0")
            else:
                self._write("memory.max", str(limit))
                self._try("memory.swap.max", "0")
        except OSError as error:
            self.remove()
            raise GroupError(f"{self.path}: {error.strerror}") from error

    def __enter__(self) -> "MemoryGroup":
        return self

    def __exit__(self, *_) -> None:
        self.remove()

    def enter(self) -> None:
        """Moves the calling process into the group; for a child between fork and exec."""
        self._write("cgroup.procs", "0")

    def kills(self) -> int:
        """How many processes of the group were killed because it was full."""
        name = "memory.oom_control" if self._version == 1 else "memory.events"
        for line in (self.path / name).read_text().splitlines():
            word, _, count = line.partition(" ")
            if word == "oom_kill":
                return int(count)
        return 0

    def remove(self) -> None:
        """Kills what is inside and removes the group, for which the kernel may need a moment."""
        for _ in range(100):
            with contextlib.suppress(FileNotFoundError):
                for line in (self.path / "cgroup.procs").read_text().split():
                    with contextlib.suppress(ProcessLookupError):
                        os.kill(int(line), signal.SIGKILL)
            try:
                self.path.rmdir()
                return
            except FileNotFoundError:
                return
            except OSError:
                time.sleep(0.05)
        print(f"warning: {self.path} could not be removed", flush=True)

    def _write(self, name: str, value: str) -> None:
        (self.path / name).write_text(value)

    def _try(self, name: str, value: str) -> None:
        with contextlib.suppress(OSError):
            self._write(name, value)


def _candidates() -> list[tuple[Path, int]]:
    """Where a group may be made: the process's own groups and those above, nearest first."""
    own = {}
    for line in Path("/proc/self/cgroup").read_text().splitlines():
        number, controllers, path = line.split(":", 2)
        if number == "0" and not controllers:
            own[2] = path
        elif "memory" in controllers.split(","):
            own[1] = path
    found = []
    for line in Path("/proc/self/mountinfo").read_text().splitlines():
        fields = line.split()
        mount, rest = Path(fields[4]), fields[fields.index("-") + 1 :]
        if rest[0] == "cgroup" and "memory" in rest[2].split(","):
            version = 1
        elif rest[0] == "cgroup2":
            version = 2
        else:
            continue
        if version not in own:
            continue
        # Inside a container the mount may begin below the hierarchy's root.
        inside = mount / own[version].lstrip("/")
        start = inside if inside.is_dir() else mount
        while True:
            found.append((start, version))
            if start == mount:
                break
            start = start.parent
    return found


def _make() -> tuple[Path, int]:
    """Makes a group where memory can be limited; the group and the version of its hierarchy."""
    reasons = []
    for parent, version in _candidates():
        path = parent / f"qrt-bench-{os.getpid()}"
        try:
            path.mkdir()
        except OSError as error:
            reasons.append(f"{parent}: {error.strerror}")
            continue
        if (path / ("memory.limit_in_bytes" if version == 1 else "memory.max")).exists():
            return path, version
        path.rmdir()
        reasons.append(f"{parent}: its groups have no memory limit")
    raise GroupError("; ".join(reasons) or "no hierarchy of control groups limits memory")
