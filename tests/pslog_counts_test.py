#!/usr/bin/env python3
"""Compares what pslog counts in a log of the pipeline with what the pipeline counted itself.

usage: pslog_counts_test.py PIPELINE PSLOG
"""

import os
import subprocess
import sys

RUNS = (
    ["--frames", "60", "--fps", "100"],
    ["--frames", "40", "--fps", "60", "--stall", "statistics:80"],
    ["--frames", "40", "--cameras", "2", "--stall", "exposure:60", "--stall", "isp:20"],
)
COLUMNS = ("sets", "gets", "itself", "earlier", "frame 0", "waits", "time-outs", "failed")


def pipelines_counts(table):
    """The sums of the modules' rows. A row ends in the count of fall-backs and of failures."""
    sums = dict.fromkeys(COLUMNS, 0)
    for line in table.splitlines():
        words = line.split()
        if len(words) != 13 or words[0] not in ("set-up", "sensor", "statistics", "exposure", "isp"):
            continue
        numbers = [words[i] for i in (1, 2, 3, 4, 5, 6, 10, 12)]
        for column, number in zip(COLUMNS, numbers):
            sums[column] += int(number)
    return sums


def pslogs_counts(summary):
    """The sums of the tags' rows, but for the metadata's; a name may hold blanks."""
    sums = dict.fromkeys(COLUMNS, 0)
    for line in summary.splitlines():
        words = line.split()
        if len(words) < 18 or not words[0].isdigit() or "(metadata)" in words:
            continue
        numbers = [words[i] for i in (-14, -13, -12, -11, -10, -7, -3, -2)]
        for column, number in zip(COLUMNS, numbers):
            sums[column] += int(number)
    return sums


def main():
    pipeline, pslog = sys.argv[1:]
    environment = {**os.environ, "PARAMSET_LOG": "5"}
    failed = False
    for arguments in RUNS:
        run = subprocess.run([pipeline, *arguments], env=environment, capture_output=True, text=True, check=True)
        answer = subprocess.run([pslog, "summary"], input=run.stderr, capture_output=True, text=True, check=True).stdout
        theirs, ours = pipelines_counts(run.stdout), pslogs_counts(answer)
        wrong = [c for c in COLUMNS if theirs[c] != ours[c] and c != "waits"]
        # The pipeline takes a get for one that waited if its value was stamped after the get began. Between the stamp
        # and the delivery lies the printing of a line, and there either of them may be the first.
        if abs(theirs["waits"] - ours["waits"]) > theirs["waits"] * 0.3 + 5:
            wrong.append("waits")
        if wrong or theirs["gets"] == 0 or theirs["waits"] == 0 or " 0 damaged" not in answer:
            print(f"{' '.join(arguments)}: {wrong} differ\n{theirs}\n{ours}\n{run.stdout}\n{answer}")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
