"""The aims: the ratios that the store should not exceed in a run."""

from results import FLOOR, STORE

AIMED_TAGS = (32, 128, 1024)
AIMED_BYTES = 16
# Greatest ratio of the store's time to the floor's, for each number in AIMED_TAGS; None: no aim. The aims of the erases
# are the ratios that the store had before it had an index.
MOST_TO_FLOOR = {
    "a": (0.60, 0.45, 0.27),
    "b": (0.70, 0.58, 0.32),
    "c": (0.70, 0.58, 0.32),
    "d": (0.60, 0.45, 0.27),
    "e": (0.72, 0.58, 0.55),
    "f": (0.75, 0.45, 0.25),
    "h-16": (0.87, 0.81, None),
    "h-1of16": (1.11, 1.01, None),
    "h-1of200": (1.12, 1.02, None),
    "h-1of300": (1.16, 1.03, None),
    "i": (0.72, 0.58, 0.55),
}
ANSWERS_EARLIER = ("yes", "by a walk", "interpolated")
# The aims relative to the hash table are weaker: it finds a frame's own value in one step and does nothing else.
HASH = "oneTBB hash"
MOST_TO_HASH = {"a": 1.2, "d": 1.2}


class Aim:
    """An aim and the measured ratio."""

    def __init__(self, text, measured, most):
        self.text, self.measured, self.most = text, measured, most

    @property
    def is_met(self):
        return self.measured <= self.most


def floor_aim(row):
    """The aim for the ratio of store to floor in a row of the table; None if there is none."""
    workload, tags, size, threads = row
    if workload not in MOST_TO_FLOOR or tags not in AIMED_TAGS or (size, threads) != (AIMED_BYTES, 1):
        return None
    return MOST_TO_FLOOR[workload][AIMED_TAGS.index(tags)]


def further_aims(results):
    """The aims that do not compare the store with the floor within one row."""
    return [*_growth(results), *_hand_offs(results), *_tails(results), *_peers(results)]


def _growth(results):
    ns = results.ns

    def time(workload, name, tags):
        return ns.get((workload, name, tags, AIMED_BYTES, 1))

    def ratio(name, one, its_tags, other, others_tags):
        times = time(one, name, its_tags), time(other, name, others_tags)
        return times[0] / times[1] if all(times) else None

    aims = []
    for workload in "abcd":
        text = f"({workload}) 1024 tags by 32"
        alone = results.pairs.get((f"{workload}-growth", 1024, AIMED_BYTES, 1))
        among = ratio(STORE, workload, 1024, workload, 32)
        floors = ratio(FLOOR, workload, 1024, workload, 32)
        if alone:
            aims += [Aim(f"{text}, alone", alone, 1.6)]
        if among and floors:
            aims += [Aim(f"{text}, among all contenders (maps: {floors:.2f})", among, 2.0)]
    measured, floors = (ratio(name, "h-1of300", 128, "h-1of16", 128) for name in (STORE, FLOOR))
    if measured and floors:
        aims += [Aim(f"erase of one frame, 128 tags: 300 live by 16 (maps: {floors:.2f})", measured, 1.25)]
    return aims


def _hand_offs(results):
    (store_median, lost), (bare_median, bare_lost) = (results.hand_off(which, 0.5) for which in (STORE, "bare"))
    (store_tail, _), (bare_tail, _) = (results.hand_off(which, 0.99) for which in (STORE, "bare"))
    return [
        Aim(f"(g) hand-off by a bare one, median ({lost} and {bare_lost} lost)", store_median / bare_median, 1.1),
        Aim("(g) hand-off by a bare one, 99th percentile", store_tail / bare_tail, float("inf")),
    ]


def _tails(results):
    """Four modules at once. The floor's lock sleeps immediately, the store's spins first."""
    aims = []
    for quantile, most in (("median", float("inf")), ("99th percentile", float("inf")), ("99.9th percentile", 0.25)):
        store, floor = (results.tail(which, quantile) for which in (STORE, FLOOR))
        aims += [Aim(f"(m) four modules by maps, {quantile}", store / floor, most)]
    return aims


def _peers(results):
    aims = []
    for workload in "abcdei":
        for tags in AIMED_TAGS:
            row = (workload, tags, AIMED_BYTES, 1)
            hash_most = MOST_TO_HASH.get(workload)
            others = [name for name in results.peers if name != HASH or hash_most is None]
            aims += _fastest(results, row, others, 1.0)
            if hash_most is not None:
                aims += _fastest(results, row, [HASH], hash_most)
    return aims


def _fastest(results, row, names, most):
    """The store compared with the fastest of the named peers that can answer from an earlier frame."""
    workload, *shape = row
    times = {name: results.ns.get((workload, name, *shape)) for name in names}
    peers = {name: ns for name, ns in times.items() if ns and results.abilities[name][0] in ANSWERS_EARLIER}
    if not peers:
        return []
    name = min(peers, key=peers.get)
    text = f"({workload}) by {name}, {shape[0]} tags (maps: {results.ratio(row, FLOOR, to=name):.2f})"
    return [Aim(text, results.ratio(row, STORE, to=name), most)]
