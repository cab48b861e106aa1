"""The results of a run: medians of the repetitions in all its processes, by workload, contender and shape."""

import json
import statistics
from collections import defaultdict
from pathlib import Path

WORKLOADS = {
    "a": "get at a frame that holds the value",
    "b": "get five frames past the newest checkpoint",
    "c": "get 250 checkpoints back in a list of 300",
    "d": "set in place",
    "e": "stream: a frame sets all tags, erases with a lag of 10",
    "f": "synchronous set, then get of what is delivered",
    "h-16": "erase of all tags by 16 frames",
    "h-1of16": "erase of one frame of 16",
    "h-1of200": "erase of one frame of 200",
    "h-1of300": "erase of one frame of 300",
    "i": "mix: a frame sets all tags, reads each twice, erases",
    "j": "set of new values: a frame sets all tags",
    "k-one": "threads on one camera, a set to three gets",
    "k-several": "threads on a camera each, a set to three gets",
    "l": "create and destroy the store, with its registrations",
    "m": "four modules on one camera, each call by itself",
}
STORE, FLOOR = "store", "maps"
PEERS = {
    "ordered map": None,
    "any per frame": None,
    "oneTBB hash": "libtbb-dev",
    "SQLite": "libsqlite3-dev",
    "LMDB": "liblmdb-dev",
    "tf2": "libtf2-dev",
}  # with the package that each needs
PER_TAG = ("e", "i", "j")  # a step handles all tags once; its time is divided by their number


class Results:
    """Nanoseconds by (workload, contender, tags, bytes, threads); ratios of pairs by the same key without contender."""

    def __init__(self, folder):
        runs = [json.loads(path.read_text()) for path in sorted(Path(folder).glob("bench.*.json"))]
        self.context = runs[0]["context"]
        entries = [entry for run in runs for entry in run["benchmarks"]]
        self.errors = sorted({entry["name"] for entry in entries if entry.get("error_occurred")})
        times = defaultdict(list)
        holds = defaultdict(list)
        pairs = defaultdict(list)
        for entry in entries:
            if entry["run_type"] == "iteration" and not entry.get("error_occurred"):
                self._add(entry, times, holds, pairs)
        self.ns = {key: statistics.median(values) for key, values in times.items()}
        self.pairs = {row: statistics.median(values) for row, values in pairs.items()}
        self.holds = {way: statistics.median(values) for way, values in holds.items()}
        measured = {key[1] for key in self.ns}
        self.peers = [name for name in PEERS if name in measured]
        self.left_out = {name: package for name, package in PEERS.items() if name not in measured}
        self.contenders = [STORE, FLOOR, "flat", *self.peers]
        self.abilities = {
            key.removeprefix("abilities "): value.split("|")
            for key, value in self.context.items()
            if key.startswith("abilities ")
        }
        self.hand_offs = [json.loads(path.read_text()) for path in Path(folder).glob("handoffs.*.json")]

    def _add(self, entry, times, holds, pairs):
        workload, contender, tags, size, *rest = entry["run_name"].split("/")
        if workload == "hold":
            holds[contender].append(entry["cpu_time"])
            return
        if workload == "pair":
            pairs[contender, int(tags), int(size), 1].append(entry["ratio"])
            return
        # Processor time excludes the time of other processes. For timed steps and several threads there is only wall
        # time.
        wall = "manual_time" in rest or "real_time" in rest
        ns = entry["real_time" if wall else "cpu_time"]
        if workload in PER_TAG:
            ns /= int(tags)
        times[workload, contender, int(tags), int(size), entry.get("threads", 1)].append(ns)

    def rows(self):
        """The (workload, tags, bytes, threads) that were measured, in order."""
        order = list(WORKLOADS)
        rows = {(key[0], *key[2:]) for key in self.ns if key[1] == STORE}
        return sorted(rows, key=lambda row: (order.index(row[0]), row[2], row[1], row[3]))

    def ratio(self, row, contender, to=FLOOR):
        """Time of a contender divided by that of another; None if one of them was not measured."""
        if (contender, to) == (STORE, FLOOR) and row in self.pairs:
            return self.pairs[row]
        workload, *shape = row
        one, other = (self.ns.get((workload, name, *shape)) for name in (contender, to))
        return one / other if one and other else None

    def tail(self, which, quantile):
        """The median of a quantile over all blocks of four modules."""
        place = ("median", "99th percentile", "99.9th percentile").index(quantile)
        return statistics.median(block[place] for run in self.hand_offs for block in run["modules"][which])

    def hand_off(self, which, quantile):
        """A quantile of the hand-offs of the store or the bare one, and how many notifications were lost."""
        runs = [run[which] for run in self.hand_offs]
        times = sorted(ns for run in runs for ns in run["ns"])
        value = statistics.median(times) if quantile == 0.5 else times[int(quantile * len(times))]
        return value, sum(run["lost"] for run in runs)
