"""What a run was made on, and whether it kept still meanwhile."""

import datetime
import os
import platform
import re
import subprocess
from dataclasses import dataclass
from pathlib import Path

# Times of one fixed piece of work that differ by more than this part say that the machine did not
# keep still: work in registers first, then work that waits for memory, which neighbours disturb
# more.
CALIBRATION_LIMITS = {"compute": 0.05, "memory": 0.15}

# A driver and the one process that it waits for make a load of 1.
LOAD_LIMIT = 1.5

# The part of its time that a virtual machine may have taken away from it.
STOLEN_LIMIT = 0.02


@dataclass
class Calibration:
    """One look at the machine: times of the fixed work by its name, load and processor time."""

    when: str
    times: dict[str, float]
    load: float
    ticks: int  # of all processors since the machine started
    stolen: int  # those of them that went to other machines on the same hardware


def _output(*command: str) -> str:
    try:
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return "unknown"


def _field(path: str, pattern: str) -> str:
    match = re.search(pattern, Path(path).read_text(), re.MULTILINE)
    return match.group(1) if match else "unknown"


def describe(root: Path, cpu: int) -> dict[str, str]:
    """The machine, the system and the state of the sources in `root`."""
    memory = int(_field("/proc/meminfo", r"^MemTotal:\s+(\d+)")) / 2**20
    commit = _output("git", "-C", str(root), "describe", "--always", "--dirty", "--abbrev=12")
    return {
        "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC"),
        "processor": _field("/proc/cpuinfo", r"^model name\s*:\s*(.+)$"),
        "cores": str(os.cpu_count()),
        "memory": f"{memory:.1f} GiB",
        "kernel": platform.release(),
        "system": _field("/etc/os-release", r'^PRETTY_NAME="(.+)"$'),
        "compiler": _output("g++", "--version").partition("\n")[0],
        "commit": commit,
        "pinned to": f"processor {cpu}",
        "load before": f"{os.getloadavg()[0]:.2f}",
    }


def look(times: dict[str, float]) -> Calibration:
    """Notes the state of the machine beside the times of the fixed work."""
    ticks = [int(word) for word in _field("/proc/stat", r"^cpu\s+(.+)$").split()]
    return Calibration(
        when=datetime.datetime.now(datetime.timezone.utc).strftime("%H:%M:%S"),
        times=times,
        load=os.getloadavg()[0],
        ticks=sum(ticks[:8]),
        stolen=ticks[7],
    )


def complaints(looks: list[Calibration]) -> list[str]:
    """What speaks against figures that were taken between these looks."""
    found = []
    for name, limit in CALIBRATION_LIMITS.items():
        times = sorted(look.times[name] for look in looks if name in look.times)
        if not times:
            found.append(f"the fixed {name} loop was not timed")
            continue
        middle = times[len(times) // 2]
        drift = (times[-1] - times[0]) / middle
        if drift > limit:
            found.append(
                f"the fixed {name} loop took between {times[0]:.3g} and {times[-1]:.3g} ns a step, "
                f"{100 * drift:.0f} % apart where {100 * limit:.0f} % are allowed"
            )
    load = max(look.load for look in looks)
    if load > LOAD_LIMIT:
        found.append(f"the load average reached {load:.2f}: other work was running")
    ticks = looks[-1].ticks - looks[0].ticks
    stolen = (looks[-1].stolen - looks[0].stolen) / ticks if ticks else 0
    if stolen > STOLEN_LIMIT:
        found.append(f"{100 * stolen:.1f} % of the processors' time went to other machines")
    return found
