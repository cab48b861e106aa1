#!/usr/bin/env python3
"""Reads callgrind's dumps of paramset_instructions, and compares the store's counts with those kept in a file.

usage: instructions.py FOLDER_OF_DUMPS FILE compare|update
"""

import sys
from pathlib import Path

TOLERANCE = 0.03
NOTE = "# Instructions of one step under callgrind: workload/contender/tags/bytes. scripts/bench --instructions --update\n"


def counts_of(folder):
    """Instructions per step, by workload/contender/tags/bytes."""
    counts = {}
    for dump in Path(folder).glob("callgrind.out.*"):
        name = total = None
        for line in dump.read_text().splitlines():
            if line.startswith("desc: Trigger: Client Request: "):
                name = line.rsplit(" ", 1)[1]
            elif line.startswith("totals: "):
                total = int(line.split()[1])
        if name is not None and total is not None:
            name, steps = name.rsplit("/", 1)
            counts[name] = total / int(steps)
    return dict(sorted(counts.items(), key=lambda item: (item[0].split("/")[0], int(item[0].split("/")[2]), item[0])))


def read_kept(path):
    lines = path.read_text().splitlines() if path.exists() else []
    pairs = (line.split() for line in lines if line and not line.startswith("#"))
    return {name: float(count) for name, count in pairs}


def compare(counts, kept):
    """Prints store, floor and kept count side by side; false if a count of the store differs from the kept one."""
    is_good = True
    print(f"{'':24}{'store':>12}{'maps':>12}{'ratio':>8}{'kept':>12}{'change':>9}")
    for name in (name for name in counts if "/store/" in name):
        store, floor = counts[name], counts[name.replace("/store/", "/maps/")]
        text = f"{name.replace('/store', ''):24}{store:12.1f}{floor:12.1f}{store / floor:8.2f}"
        if name in kept:
            change = store / kept[name] - 1
            differs = abs(change) > TOLERANCE
            text += f"{kept[name]:12.1f}{change:+9.1%}{'  DIFFERS' if differs else ''}"
            is_good &= not differs
        else:
            text += "  not in the file"
            is_good = False
        print(text)
    for name in kept.keys() - counts.keys():
        print(f"{name}: not counted")
        is_good = False
    return is_good


def main():
    folder, file, task = sys.argv[1], Path(sys.argv[2]), sys.argv[3]
    counts = counts_of(folder)
    if not counts:
        sys.exit(f"no dumps in {folder}")
    if task == "update":
        lines = [f"{name} {count:.1f}\n" for name, count in counts.items() if "/store/" in name]
        file.write_text(NOTE + "".join(lines))
    return 0 if compare(counts, read_kept(file)) else 1


if __name__ == "__main__":
    sys.exit(main())
