#!/usr/bin/env python3
"""Prints a Markdown table of the store's times as multiples of 'maps', with the C library's allocator and a device's.

usage: allocators.py FOLDER, which has the runs with the C library's in libc/ and with the device's in scudo/
"""

import sys
from pathlib import Path

from report import markdown, number
from results import FLOOR, STORE, WORKLOADS, Results


def main():
    libc, scudo = (Results(Path(sys.argv[1], name)) for name in ("libc", "scudo"))
    head = ["", "tags", "store by *maps*, glibc", "store by *maps*, scudo", "store, scudo by glibc"]
    head += ["*maps*, scudo by glibc"]
    rows = []
    for row in libc.rows():
        workload, *shape = row
        ratios = [libc.ratio(row, STORE), scudo.ratio(row, STORE)]
        ratios += [scudo.ns[(workload, name, *shape)] / libc.ns[(workload, name, *shape)] for name in (STORE, FLOOR)]
        rows.append([f"({workload}) {WORKLOADS[workload]}", str(shape[0]), *map(number, ratios)])
    print(markdown(head, rows), end="")
    errors = libc.errors + scudo.errors
    for name in errors:
        print(f"wrong answer: {name}", file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
