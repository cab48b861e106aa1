#!/usr/bin/env python3
"""Compares pslog's counts for a log of the pipeline with the pipeline's own counts.

usage: pslog_counts_test.py PIPELINE PSLOG
"""

import os
import re
import subprocess
import sys

# In the last run exposure asks for frames that the ISP has erased meanwhile. Some logs have times and thread ids.
RUNS = (
    (["--frames", "60", "--fps", "100"], "1"),
    (["--frames", "25", "--fps", "60", "--stall", "statistics:80"], "0"),
    (["--frames", "40", "--cameras", "2", "--stall", "exposure:60", "--stall", "isp:20"], "0"),
    (["--frames", "9", "--stall", "exposure:1000"], "1"),
)
COLUMNS = ("sets", "gets", "itself", "earlier", "frame 0", "waits", "time-outs", "failed")
METADATA_COLUMNS = COLUMNS[:3]


def pipelines_counts(table):
    """The sums of the modules' rows. The last columns of a row are fall-backs and failures."""
    sums = dict.fromkeys(COLUMNS, 0)
    for line in table.splitlines():
        words = line.split()
        if len(words) != 13 or words[0] not in ("set-up", "sensor", "statistics", "exposure", "isp"):
            continue
        numbers = [words[i] for i in (1, 2, 3, 4, 5, 6, 10, 12)]
        for column, number in zip(COLUMNS, numbers):
            sums[column] += int(number)
    return sums


def pipelines_metadata(table):
    rows = re.findall(r"^metadata: (\d+) set, (\d+) got, (\d+) of the frame itself$", table, re.M)
    return dict(zip(METADATA_COLUMNS, (sum(map(int, column)) for column in zip(*rows))))


def pslogs_counts(summary, metadata):
    """The sums of the tags' rows, or of the metadata's. A name may contain blanks."""
    sums = dict.fromkeys(COLUMNS, 0)
    for line in summary.splitlines():
        words = line.split()
        if len(words) < 18 or not words[0].isdigit() or ("(metadata)" in words) != metadata:
            continue
        numbers = [words[i] for i in (-14, -13, -12, -11, -10, -7, -3, -2)]
        for column, number in zip(COLUMNS, numbers):
            sums[column] += int(number)
    return sums


def expected_of_late_reads(log):
    """The expected lines of the summary about reads after an erasure: one for each tag, with the number of reads."""
    needed = {}
    for name, number in re.findall(r": frameID \d+ <= Erased \d+, (.+) need life >= (\d+)$", log, re.M):
        needed.setdefault(name, []).append(int(number))
    return {
        f" {name}: retain 6, needed {max(n)}: register with {max(n)}  ({len(n)} reads, 0 writes)\n": len(n)
        for name, n in needed.items()
    }


def problems_of(run, answer, with_threads):
    theirs, ours = pipelines_counts(run.stdout), pslogs_counts(answer, metadata=False)
    late = expected_of_late_reads(run.stderr)
    # The pipeline counts a get as one that waited if its value was stamped after the get began. The store prints a line
    # between the stamp and the delivery. If a get begins in that time, pslog counts a wait but the pipeline does not.
    # And an erase may end the wait for an erased frame just at its time-out.
    slack = {"waits": theirs["waits"] * 0.3 + 5, "time-outs": sum(late.values())}
    problems = [f"{c} differ" for c in COLUMNS if abs(theirs[c] - ours[c]) > slack.get(c, 0)]
    metadata = pslogs_counts(answer, metadata=True)
    if pipelines_metadata(run.stdout) != {c: metadata[c] for c in METADATA_COLUMNS}:
        problems.append("metadata differs")
    problems += [f"the summary lacks: {line}" for line in late if line not in answer]
    if ("used after its erasure" in answer) != bool(late):
        problems.append("reads after an erasure")
    if " of the store, 0 of others, 0 damaged\n" not in answer or ("no thread ids" in answer) == with_threads:
        problems.append("lines or threads were not understood")
    if 0 in (theirs["gets"], theirs["waits"], metadata["gets"]):
        problems.append("nothing was compared")
    return problems, sum(late.values())


def main():
    pipeline, pslog = sys.argv[1:]
    failed = False
    late_reads = 0
    for arguments, with_time in RUNS:
        environment = {**os.environ, "PARAMSET_LOG": "5", "PARAMSET_LOG_TIME": with_time}
        run = subprocess.run([pipeline, *arguments], env=environment, capture_output=True, text=True, check=True)
        answer = subprocess.run([pslog, "summary"], input=run.stderr, capture_output=True, text=True, check=True).stdout
        problems, late = problems_of(run, answer, with_time == "1")
        late_reads += late
        if problems:
            print(f"{' '.join(arguments)}: {problems}\n{run.stdout}\n{answer}")
            failed = True
    if late_reads == 0:
        print("no run has a read after an erasure")
    return 1 if failed or late_reads == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
