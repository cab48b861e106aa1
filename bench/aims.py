"""What the store is to reach, as ratios of one run."""

from results import FLOOR, STORE

AIMED_TAGS = (32, 128)
AIMED_BYTES = 16
MOST_TO_FLOOR = {
    "a": 1.35,
    "b": 1.15,
    "c": 1.4,
    "d": 1.35,
    "e": 1.4,
    "f": 1.5,
    "h-16": 1.4,
    "h-1of16": 1.4,
    "h-1of200": 1.4,
    "h-1of300": 1.4,
}
ANSWERS_EARLIER = ("yes", "by a walk", "interpolated")


class Aim:
    """One aim with what was measured for it."""

    def __init__(self, text, measured, most):
        self.text, self.measured, self.most = text, measured, most

    @property
    def is_met(self):
        return self.measured <= self.most


def floor_aim(row):
    """The most that the store may take by the floor in a row of the table; None where there is no such aim."""
    workload, tags, size, _ = row
    return MOST_TO_FLOOR.get(workload) if tags in AIMED_TAGS and size == AIMED_BYTES else None


def further_aims(results):
    """The aims that compare other things than the store and the floor of one row."""
    ns = results.ns

    def store(workload, tags):
        return ns.get((workload, STORE, tags, AIMED_BYTES, 1))

    def floors(one, its_tags, other, others_tags):
        times = [ns.get((w, FLOOR, tags, AIMED_BYTES, 1)) for w, tags in ((one, its_tags), (other, others_tags))]
        return f"{times[0] / times[1]:.2f}" if all(times) else "not measured"

    def by(text, one, other, most):
        return [Aim(text, one / other, most)] if one and other else []

    aims = []
    for tags in AIMED_TAGS:
        aims += by(f"(c) by (b), {tags} tags", results.pairs.get(("c-by-b", tags, AIMED_BYTES, 1)), 1, 1.6)
    text = f"erase of one frame, 128 tags: 300 live by 16 (maps: {floors('h-1of300', 128, 'h-1of16', 128)})"
    aims += by(text, store("h-1of300", 128), store("h-1of16", 128), 1.25)
    for workload in "abcd":
        text = f"({workload}) 1024 tags by 32 (maps: {floors(workload, 1024, workload, 32)})"
        aims += by(text, store(workload, 1024), store(workload, 32), 2.5)
    (store_median, lost), (bare_median, bare_lost) = (results.hand_off(which, 0.5) for which in (STORE, "bare"))
    (store_tail, _), (bare_tail, _) = (results.hand_off(which, 0.99) for which in (STORE, "bare"))
    aims += by(f"(g) hand-off by a bare one, median ({lost} and {bare_lost} lost)", store_median, bare_median, 1.1)
    aims += [Aim("(g) hand-off by a bare one, 99th percentile", store_tail / bare_tail, float("inf"))]
    for workload in "abdi":
        for tags in AIMED_TAGS:
            aims += _fastest_peer(results, (workload, tags, AIMED_BYTES, 1))
    return aims


def _fastest_peer(results, row):
    workload, *shape = row
    peers = {
        name: results.ns[workload, name, *shape]
        for name in results.peers
        if (workload, name, *shape) in results.ns and results.abilities[name][0] in ANSWERS_EARLIER
    }
    if not peers:
        return []
    name = min(peers, key=peers.get)
    floor = results.ratio(row, FLOOR, to=name)
    text = f"({workload}) by the fastest peer, {shape[0]} tags: {name} (maps: {floor:.2f})"
    return [Aim(text, results.ratio(row, STORE, to=name), 1.0)]
