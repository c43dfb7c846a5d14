"""What is run: the workloads, and their sizes at every scale."""

from dataclasses import dataclass, replace

from .figures import size_value

MIB = 1 << 20

# What a limited process may use beyond its budget: its code, tables and buffers.
ROOM_BEYOND_BUDGET = 64 * MIB

# What a budget of "1/8" is an eighth of.
NODE_BYTES = 72
ELEMENT_BYTES = 8
STRING_BYTES = 1005  # on average: 10 to 2,000
PAIR_BYTES = 16


@dataclass(frozen=True)
class Workload:
    """A kind of work as the results present it."""

    name: str
    title: str
    program: str
    own: tuple[str, ...] = ("store",)  # the peers that are this library
    lines: bool = False  # whether it is drawn over its sizes


@dataclass(frozen=True)
class Case:
    """One workload at one size; every peer runs it in a process of its own."""

    workload: Workload
    options: tuple[str, ...] = ()
    part: str = ""  # what the program calls it, where the workload is made of several
    peers: tuple[str, ...] = ()  # only these; empty for all
    limit: int = 0  # bytes that the process may use with its page cache; 0 for no limit
    disk: int = 0  # bytes that it needs on disk
    timeout: float = 0.0  # seconds a process may take, where the scale's are too few

    def with_peers(self, names: tuple[str, ...]) -> "Case":
        """This case with no other peers than these beside our own."""
        wanted = (*self.workload.own, *names)
        peers = tuple(peer for peer in self.peers if peer in wanted) if self.peers else wanted
        return replace(self, peers=peers)

    @property
    def argument(self) -> str:
        """The workload as its program knows it."""
        return self.part or self.workload.name

    @property
    def name(self) -> str:
        words = [self.workload.name, *([self.part] if self.part else []), *self.options]
        if self.limit:
            words.append(f"within {self.limit // MIB} MiB")
        return " ".join(words)


@dataclass(frozen=True)
class Scale:
    """How much of everything is run."""

    name: str
    rounds: int
    warm_up: bool
    timeout: float  # seconds a process may take
    seconds: float  # after which nothing more is begun; 0 for no end
    objects: tuple[str, ...]
    churn_objects: str
    paging: tuple[str, str, str]  # bytes, budget, seconds a variant
    growth_objects: tuple[str, ...]
    growth_bytes: tuple[str, ...]
    phase: str  # seconds that a phase of reads may take
    nodes: str
    moves: tuple[str, str]  # in memory, and with a budget, when each may wait for the disk
    elements: str
    strings: str
    string_reads: str
    map_pairs: str
    scratch: tuple[str, str]  # bytes, random accesses
    text: str  # bytes to compress
    pairs: str  # allocations and frees
    live: tuple[str, ...]  # blocks for the curve of the next-fit pool


FULL = Scale(
    name="full",
    rounds=5,
    warm_up=True,
    timeout=900,
    seconds=0,
    objects=("1e5", "1e6", "1e7"),
    churn_objects="1e6",
    paging=("2G", "256M", "3"),
    growth_objects=("1e4", "1e5", "1e6", "1e7"),
    growth_bytes=("64M", "256M", "1G", "4G"),
    phase="1",
    nodes="5e6",
    moves=("1e6", "1e5"),
    elements="1e7",
    strings="1e6",
    string_reads="1e6",
    map_pairs="1e7",
    scratch=("1G", "4e5"),
    text="64M",
    pairs="4e6",
    live=("1e2", "1e3", "1e4", "1e5", "1e6"),
)
QUICK = Scale(
    name="quick",
    rounds=3,
    warm_up=False,
    timeout=30,
    seconds=500,
    objects=("1e5", "1e6"),
    churn_objects="3e5",
    paging=("256M", "32M", "0.3"),
    growth_objects=("1e4", "1e5", "1e6"),
    growth_bytes=("64M", "256M"),
    phase="0.3",
    nodes="2e6",
    moves=("3e5", "2e4"),
    elements="2e6",
    strings="1e5",
    string_reads="1e6",
    map_pairs="1e6",
    scratch=("128M", "1e5"),
    text="16M",
    pairs="1e6",
    live=("1e2", "1e3", "1e4", "1e5"),
)
SMOKE = Scale(
    name="smoke",
    rounds=1,
    warm_up=False,
    timeout=20,
    seconds=0,
    objects=("1e3",),
    churn_objects="1e4",
    paging=("8M", "2M", "0.05"),
    growth_objects=("1e4",),
    growth_bytes=("8M",),
    phase="0.05",
    nodes="1e4",
    moves=("1e3", "1e3"),
    elements="1e4",
    strings="1e3",
    string_reads="1e3",
    map_pairs="1e4",
    scratch=("4M", "1e3"),
    text="1M",
    pairs="1e4",
    live=("1e2", "1e3"),
)

WORKLOADS = {
    workload.name: workload
    for workload in (
        Workload("hotpin", "Pin, read, dismiss", "suite_objects"),
        Workload("dependent", "Pins that depend on each other", "suite_objects"),
        Workload("churn", "Allocate and free", "suite_objects"),
        Workload("paging", "Larger than memory", "suite_objects"),
        Workload("growth", "From few objects to many", "suite_objects", lines=True),
        Workload("tree", "Trees", "suite_trees"),
        Workload("vector", "Vectors", "suite_vectors", own=("store", "store, pins")),
        Workload("strings", "Strings", "suite_strings"),
        Workload("map", "Maps", "suite_maps"),
        Workload("scratch", "Scratch files", "suite_files", own=("store", "store 1/16")),
        Workload("gzip", "Gzip while writing", "suite_files"),
        Workload(
            "allocators",
            "Allocators",
            "suite_allocators",
            own=("fixed pool", "fixed pool, no header", "arena", "pool"),
        ),
        Workload(
            "nextfit",
            "Next fit over live blocks",
            "suite_allocators",
            own=("pool", "arena"),
            lines=True,
        ),
    )
}

# Patterns of use, each a workload of its own to the program.
ALLOCATOR_PATTERNS = (
    "lifo",
    "fifo",
    "random",
    "random read",
    "fixed churn",
    "churn",
    "churn read",
    "churn large",
    "burst",
)


def cases(scale: Scale, large: bool) -> list[Case]:
    """Everything there is to run at a scale, `large` with the ends that take hours and 64 GiB."""

    total, budget, seconds = scale.paging
    paging = ("--bytes", total, "--budget", budget, "--seconds", seconds)
    phase = ("--seconds", scale.phase)
    found = [
        Case(WORKLOADS[name], ("--objects", count, *phase))
        for name in ("hotpin", "dependent")
        for count in scale.objects
    ]
    found.append(Case(WORKLOADS["churn"], ("--objects", scale.churn_objects)))
    found.append(Case(WORKLOADS["paging"], paging, disk=_bytes(total) * 3))
    found.append(
        Case(
            WORKLOADS["paging"],
            paging,
            limit=_bytes(budget) + ROOM_BEYOND_BUDGET,
            disk=_bytes(total) * 3,
        )
    )
    sizes = [("--objects", count, 0, 0) for count in scale.growth_objects]
    sizes += [("--bytes", size, _bytes(size), 0) for size in scale.growth_bytes]
    if large:
        sizes.append(("--objects", "1e8", 0, 3600))
        sizes += [("--bytes", size, _bytes(size), 4 * 3600) for size in ("16G", "64G")]
    for option, size, stored, timeout in sizes:
        found.append(
            Case(
                WORKLOADS["growth"],
                (option, size, *phase),
                disk=stored + stored // 8,
                timeout=timeout,
            )
        )
    tree = ("--nodes", scale.nodes)
    stored = int(float(scale.nodes)) * NODE_BYTES
    in_memory, paged = scale.moves
    found.append(Case(WORKLOADS["tree"], (*tree, "--moves", in_memory)))
    found.append(
        Case(
            WORKLOADS["tree"],
            (*tree, "--budget", "1/8", "--moves", paged),
            limit=stored // 8 + ROOM_BEYOND_BUDGET,
            disk=stored * 3,
        )
    )
    elements = ("--elements", scale.elements)
    stored = int(float(scale.elements)) * ELEMENT_BYTES
    found.append(Case(WORKLOADS["vector"], elements))
    found.append(Case(WORKLOADS["vector"], (*elements, "--budget", "1/8"), disk=stored * 4))
    strings = ("--strings", scale.strings, "--reads", scale.string_reads)
    stored = int(float(scale.strings)) * STRING_BYTES
    found.append(Case(WORKLOADS["strings"], strings))
    found.append(Case(WORKLOADS["strings"], (*strings, "--budget", "1/8"), disk=stored * 3))
    maps = ("--pairs", scale.map_pairs, *phase)
    stored = int(float(scale.map_pairs)) * PAIR_BYTES
    found.append(Case(WORKLOADS["map"], maps, peers=("store", "std::unordered_map")))
    for limit in (0, stored // 8 + ROOM_BEYOND_BUDGET):
        found.append(
            Case(WORKLOADS["map"], (*maps, "--budget", "1/8"), limit=limit, disk=stored * 8)
        )
    size, accesses = scale.scratch
    found.append(
        Case(
            WORKLOADS["scratch"],
            ("--bytes", size, "--accesses", accesses),
            disk=_bytes(size) * 3,
        )
    )
    found.append(Case(WORKLOADS["gzip"], ("--text", scale.text)))
    pairs = ("--pairs", scale.pairs)
    found += [Case(WORKLOADS["allocators"], pairs, part) for part in ALLOCATOR_PATTERNS]
    found += [
        Case(
            WORKLOADS["nextfit"],
            (*pairs, "--live", live),
            part="churn",
            peers=("pool", "arena", "malloc"),
        )
        for live in scale.live
    ]
    return found


def _bytes(size: str) -> int:
    return int(size_value(size) or 0)
