"""The figures to reach, and whether they were."""

from dataclasses import dataclass

from .figures import LESS_IS_BETTER, Figure, Key, Ratio, advantage

# Peers that keep what does not fit into a budget on disk, as the store does.
BUDGETED = ("bdb pool", "bdb btree", "sqlite", "rocksdb", "stxxl")

# Those, and peers that map a file which the system pages.
DISK_BACKED = (*BUDGETED, "lmdb", "boost interprocess")

GROUPS = {
    BUDGETED: "the best peer with a budget",
    DISK_BACKED: "every peer on disk",
}

# The peer that a workload's figures are divided by in its tables.
REFERENCES = {
    "hotpin": "pointer table",
    "dependent": "pointer table",
    "churn": "malloc",
    "paging": "pread",
    "tree": "pointer",
    "vector": "std::vector",
    "strings": "std::string",
    "map": "std::unordered_map",
    "scratch": "stdio",
    "gzip": "isal",
    "allocators": "mimalloc",
}

# "Level" with a peer: no more behind it than this.
LEVEL = 0.95

# "Ahead" of a peer: by any distance at all.
AHEAD = 1.0

STRING_READS = ("hash in order", "copy in order", "hash at random", "copy at random")


@dataclass(frozen=True)
class Target:
    """What one of our figures is to reach, against peers or as a number."""

    workload: str
    variants: tuple[str, ...]  # empty for all that have the unit
    unit: str
    peers: tuple[str, ...] = ()  # the best of these counts; empty when `most` is set
    factor: float = AHEAD  # how many times better than those peers, below 1 for "at most 1/factor"
    most: float = 0.0  # the number not to exceed
    limited: bool | None = None  # with or without a memory limit; None for both
    own: str = "store"

    def wording(self) -> str:
        if not self.peers:
            return f"at most {self.most:g} {self.unit}"
        whom = GROUPS.get(self.peers) or " and ".join(self.peers)
        if self.factor == AHEAD:
            return f"ahead of {whom}"
        if self.factor == LEVEL:
            return f"level with {whom}"
        if self.factor > 1:
            return f"at least {self.factor:g} times as good as {whom}"
        if LESS_IS_BETTER[self.unit]:
            return f"at most {1 / self.factor:.3g} times {whom}"
        return f"at least {self.factor:.3g} times {whom}"


TARGETS = (
    *(
        target
        for workload, variant in (("hotpin", "random"), ("dependent", "chain"))
        for target in (
            Target(workload, (variant,), "ns", ("pointer table",), factor=1 / 1.5),
            Target(workload, (variant,), "ns", BUDGETED, factor=2.5),
        )
    ),
    Target("churn", (), "ns", ("malloc",), factor=LEVEL),
    Target("churn", ("bytes a byte fresh",), "bytes/byte", most=1.15),
    Target("churn", ("bytes a byte churned",), "bytes/byte", most=1.25),
    Target(
        "paging",
        ("load", "uniform read", "zipf read", "scan", "uniform update"),
        "1/s",
        BUDGETED,
        factor=3,
        limited=False,
    ),
    Target("paging", ("uniform read",), "1/s", ("pread",), factor=LEVEL, limited=True),
    Target("paging", ("zipf read",), "1/s", BUDGETED, factor=1.3, limited=True),
    Target("paging", ("scan",), "1/s", BUDGETED, factor=1.2, limited=True),
    Target("paging", ("uniform update",), "1/s", BUDGETED, factor=1.3, limited=True),
    Target("tree", ("build",), "ns", ("pointer",), factor=1 / 2, limited=False),
    Target("tree", ("walk",), "ns", ("pointer",), factor=1 / 3, limited=False),
    Target("tree", ("build in 1/8", "walk in 1/8", "move in 1/8"), "ns", DISK_BACKED, limited=True),
    Target("vector", ("scan",), "ns", ("std::vector",), factor=1 / 1.5),
    Target("vector", ("get at random",), "ns", ("store, pins",), factor=1 / 1.3),
    Target("strings", STRING_READS, "ns", ("std::string",), factor=1 / 1.3),
    Target("strings", tuple(f"{name} in 1/8" for name in STRING_READS), "ns", BUDGETED),
    Target(
        "map",
        ("insert in 1/8", "find in 1/8", "assign in 1/8"),
        "ns",
        ("sqlite", "lmdb"),
    ),
    Target("map", ("resident beside the budget in 1/8",), "bytes", most=1 << 20),
    Target("scratch", ("write", "read"), "MB/s", ("stdio", "pread")),
    Target("scratch", ("random read", "random write"), "ns", ("stdio", "pread")),
    Target("gzip", ("100 B calls", "4 KiB calls", "1 MiB calls"), "MB/s", ("isal",), factor=LEVEL),
    *(
        target
        for own in ("fixed pool", "fixed pool, no header")
        for target in (
            Target("allocators", ("lifo: pair", "fifo: pair"), "ns", most=2.5, own=own),
            Target("allocators", ("random: pair",), "ns", ("mimalloc",), own=own),
        )
    ),
    Target("allocators", ("churn: pair",), "ns", ("mimalloc",), own="arena"),
    Target("allocators", ("churn: resident",), "bytes", ("mimalloc",), own="arena"),
)


@dataclass(frozen=True)
class Verdict:
    """What came of a target at one size."""

    target: Target
    variant: str
    size: str
    limited: bool
    measured: str
    reached: bool | None  # None when a figure is missing
    in_noise: bool = False  # whether some rounds say otherwise

    def answer(self) -> str:
        if self.reached is None:
            return "not measured"
        answer = "yes" if self.reached else "**no**"
        return answer + (", not in every round" if self.in_noise else "")


def judge(figures: dict[Key, Figure]) -> list[Verdict]:
    """Holds every figure that has a target against it."""
    found = []
    for target in TARGETS:
        for key in figures:
            if (
                key.workload == target.workload
                and key.peer == target.own
                and key.unit == target.unit
                and (not target.variants or key.variant in target.variants)
                and target.limited in (None, key.limited)
            ):
                found.append(_verdict(target, figures, key))
    return found


def unmeasured(figures: dict[Key, Figure], workloads: set[str]) -> list[str]:
    """The targets of these workloads for which we have no figure at all, in words."""
    have = {(key.workload, key.peer, key.unit, key.variant) for key in figures}
    found = []
    for target in TARGETS:
        if target.workload not in workloads:
            continue
        for variant in target.variants or (None,):
            if not any(
                (workload, peer, unit) == (target.workload, target.own, target.unit)
                and variant in (None, name)
                for workload, peer, unit, name in have
            ):
                named = f", {variant}" if variant else ""
                found.append(f"{target.own}{named}: {target.wording()}")
    return found


def _verdict(target: Target, figures: dict[Key, Figure], key: Key) -> Verdict:
    own = figures[key]
    if not target.peers:
        reached = own.median <= target.most
        in_noise = (max(own.values) <= target.most) != (min(own.values) <= target.most)
        return Verdict(
            target, key.variant, key.size, key.limited, f"{own.median:.3g}", reached, in_noise
        )
    rivals: list[tuple[Ratio, str]] = []
    for other, figure in figures.items():
        named = other.peer in target.peers
        same = (other.workload, other.limited, other.size, other.variant, other.unit) == (
            key.workload,
            key.limited,
            key.size,
            key.variant,
            key.unit,
        )
        if named and same and other.peer != key.peer:
            quotient = advantage(own, figure)
            if quotient:
                rivals.append((quotient, other.peer))
    if not rivals:
        return Verdict(target, key.variant, key.size, key.limited, "no peer", None)
    least, peer = min(rivals, key=lambda rival: rival[0].median)
    if target.factor <= 1 and LESS_IS_BETTER[target.unit]:
        shown = f"{1 / least.median:.2f} times {peer} ({1 / least.high:.2f} to {1 / least.low:.2f})"
    else:
        shown = f"{least.median:.2f} times as good as {peer} ({least.low:.2f} to {least.high:.2f})"
    return Verdict(
        target,
        key.variant,
        key.size,
        key.limited,
        shown,
        _meets(least.median, target.factor),
        _meets(least.low, target.factor) != _meets(least.high, target.factor),
    )


def _meets(value: float, factor: float) -> bool:
    return value > factor if factor == AHEAD else value >= factor
