#!/usr/bin/env python3
"""Stages faults in the pipeline example and compares the run's notes of them with the causes that pslog names.

usage: pslog_causes_test.py PIPELINE PSLOG MISS_WAKE_UPS [--all] [--keep DIR]

MISS_WAKE_UPS is the library that makes a thread miss its wake-ups. --all stages all faults at 30 and at 60 frames a
second and prints a table. Without it only some of them are staged, at 60. --keep keeps the logs.
If the log shows no effect of the staged fault, the run is repeated: on a busy machine a reader may come too late to be
affected.
"""

import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

TRIES = 4
LATE, NEVER, PLAIN, LOST = "late", "never delivered", "plain set", "wake-up lost"
ERASED, TRIMMED, GONE = "erased too early", "trimmed too early", "frame gone"
UNREGISTERED, ENDED, NOT_RUN = "never registered", "store ended", "reader not run"
# Causes that a run without faults can have on a busy machine. LOST then means one of two rare events: a wake-up was
# really lost, or the reader ran again just at its time-out.
OF_BUSY_MACHINE = {LATE, NOT_RUN, LOST}

# Options; the read that is affected; its root cause, and the value that the root cause is about.
LONG_WAIT = "--frame-wait 400"
CASES = [
    ("--stall exposure:400@20", "gain 20", LATE, "gain 20"),
    ("--stall statistics:400@20", "statistics 20", LATE, "statistics 20"),
    ("--stall isp:400@20", "released 20", LATE, "released 20"),
    ("--stall sensor:400@20", "frame ready 20", LATE, "frame ready 20"),
    ("--stall statistics:150@20-22", "statistics 20", LATE, "statistics 20"),
    ("--cameras 2 --stall exposure:400@20", "gain 20", LATE, "gain 20"),
    ("--stage drop:gain@20", "gain 20", NEVER, "gain 20"),
    ("--stage drop:statistics@20", "statistics 20", NEVER, "statistics 20"),
    ("--stage drop:released@20", "released 20", NEVER, "released 20"),
    ("--stage drop:metadata@20", "metadata 20", NEVER, "metadata 20"),
    ("--stage drop:history@10", "history 10", NEVER, "history 10"),
    ("--stage plain:gain@20", "gain 20", PLAIN, "gain 20"),
    ("--stage plain:statistics@20", "statistics 20", PLAIN, "statistics 20"),
    ("--stage plain:released@20", "released 20", PLAIN, "released 20"),
    ("--stage plain:frame-ready@20", "frame ready 20", PLAIN, "frame ready 20"),
    ("--stage lose:gain:isp@20 --stall exposure:25@20", "gain 20", LOST, "gain 20"),
    ("--stage lose:statistics:exposure@20 --stall statistics:25@20", "statistics 20", LOST, "statistics 20"),
    (f"--stage lose:frame-ready:exposure@20 {LONG_WAIT}", "frame ready 20", LOST, "frame ready 20"),
    ("--stage erase:statistics@20", "statistics 19", ERASED, "statistics 19"),
    ("--stage erase:released@20", "released 20", ERASED, "released 20"),
    ("--stage retain:history:10", "history 12", TRIMMED, "history 12"),
    ("--stage retain:history:15", "history 12", TRIMMED, "history 12"),
    ("--stage gone@20", "gain 20", GONE, "gain 20"),
    ("--stage unregistered:gain --frames 8", "gain 5", UNREGISTERED, "gain"),
    ("--stage unregistered:statistics --frames 8", "statistics 3", UNREGISTERED, "statistics"),
    ("--stage unregistered:history", "history 12", UNREGISTERED, "history"),
    ("--stage unregistered:tuning --frames 12", "tuning 5", UNREGISTERED, "tuning"),
    ("--stage end@20", "frame ready 20", ENDED, "frame ready 20"),
    # Chains.
    ("--stall isp:400@20", "frame ready 24", LATE, "released 20"),
    ("--stage drop:statistics@20", "frame ready 24", NEVER, "statistics 20"),
    ("--stage drop:released@20", "frame ready 24", NEVER, "released 20"),
    ("--stage erase:statistics@20", "frame ready 23", ERASED, "statistics 19"),
    (f"--stage lose:frame-ready:exposure@20 {LONG_WAIT}", "gain 20", LOST, "frame ready 20"),
    (f"--stage lose:frame-ready:statistics@20 {LONG_WAIT}", "statistics 20", LOST, "frame ready 20"),
    (f"--stage lose:frame-ready:isp@20 {LONG_WAIT}", "released 20", LOST, "frame ready 20"),
    (f"--stage plain:frame-ready@20 {LONG_WAIT}", "statistics 20", PLAIN, "frame ready 20"),
    # Exposure begins 20 ms late, so that its wait for the statistics ends after the ISP's for the gain.
    ("--stall statistics:400@20 --stall exposure:20@20", "gain 20", LATE, "statistics 20"),
    ("--stage drop:statistics@20 --stall exposure:20@20", "gain 20", NEVER, "statistics 20"),
    ("--stage plain:statistics@20 --stall exposure:20@20", "gain 20", PLAIN, "statistics 20"),
    ("--stage lose:statistics:exposure@20 --stall statistics:35@20 --stall exposure:20@20", "gain 20", LOST,
     "statistics 20"),
    (f"--stage lose:frame-ready:statistics@20 --stall exposure:20@20 {LONG_WAIT}", "gain 20", LOST, "frame ready 20"),
]
QUICK = [0, 6, 9, 11, 15, 18, 20, 22, 27, 32, 40]
CLEAN = ["", "--cameras 2", "--frames 60", "--stall isp:2"]
TAGS = {"frame ready": 4097, "statistics": 4098, "gain": 4099, "history": 4100, "tuning": 4101, "released": 4102,
        "metadata": 131073}


class Runs:
    def __init__(self, programs, directory):
        self.programs = programs
        self.directory = directory
        self.number = 0

    def run(self, options, fps):
        """The log's file, the run's notes, and the flickers."""
        self.number += 1
        log = self.directory / f"{self.number}.log"
        # LD_PRELOAD names the library without its folder, because a blank in a path would end the path.
        folder, library = os.path.split(os.path.abspath(self.programs.miss_wake_ups))
        folders = os.pathsep.join(filter(None, [folder, os.environ.get("LD_LIBRARY_PATH")]))
        environment = {**os.environ, "PARAMSET_LOG": "5", "PARAMSET_LOG_TIME": "1", "LD_PRELOAD": library,
                       "LD_LIBRARY_PATH": folders}
        command = [self.programs.pipeline, "--frames", "40", "--fps", str(fps), *options.split()]
        with open(log, "w") as file:
            run = subprocess.run(command, env=environment, stdout=subprocess.PIPE, stderr=file, text=True, timeout=120)
        notes = re.findall(r"^staged: (.+)$", run.stdout, re.M)
        return log, notes, self.flickers(log)

    def flickers(self, log):
        command = [self.programs.pslog, "flickers", "--json", "--most", "10000", str(log)]
        return json.loads(subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout)["flickers"]


def value(text):
    """Tag and frame of "frame ready 20"; a tag alone has no frame."""
    name, _, frame = text.rpartition(" ")
    return (TAGS[name], int(frame)) if frame.isdigit() else (TAGS[text], None)


def judge(flickers, read, cause, root):
    """Returns whether the cause is right (None if the read was not affected), and the cause that pslog names."""
    tag, frame = value(read)
    of_read = [f for f in flickers if (f["tag"], f["frame"]) == (tag, frame)]
    if not of_read:
        return None, "nothing"
    worst = of_read[0]
    last = worst["chain"][-1]
    root_tag, root_frame = value(root)

    def is_root(reason):
        return reason["tag"] == root_tag and root_frame in (None, reason["frame"])

    is_right = is_root(last) and last["cause"] == cause
    if is_root(last) and not is_right and last.get("or_else") == cause:
        return None, worst["story"]  # the log does not show whether it was the fault or a busy machine
    if not is_right and last["cause"] == NOT_RUN:
        return None, worst["story"]  # a busy machine has held up the reader for even longer
    return is_right, worst["story"]


def staged_run(runs, case, fps):
    options, read, cause, root = case
    for _ in range(TRIES):
        log, notes, flickers = runs.run(options, fps)
        wanted = len(re.findall(r"@\d+|retain|unregistered", options))
        right, story = judge(flickers, read, cause, root)
        if right is not None and len(notes) >= wanted:
            break
    return right and len(notes) >= wanted, story, log, flickers


def retain_number_serves(runs, flickers, fps):
    """Whether trimming no longer makes a read of history fail if the retain number is the one that pslog names."""
    needed = max(f["chain"][-1].get("retain", 0) for f in flickers if f["cause"] == TRIMMED)
    _, _, after = runs.run(f"--stage retain:history:{needed}", fps)
    return needed > 0 and not [f for f in after if f["cause"] == TRIMMED]


def is_quiet(log):
    """Whether the log has nothing that pslog could report: no time-out, no failure, no earlier or erased frame."""
    text = log.read_text()
    if re.search(r"wait timeout|need life|: fail |fail to match", text):
        return False
    return all(a == b for a, b in re.findall(r"destID (\d+) relatedID:(\d+)", text))


def clean_run(runs, options, fps):
    """Problems, and whether the run was clean on this machine."""
    for _ in range(TRIES):
        log, _, flickers = runs.run(options, fps)
        if is_quiet(log):
            return [f["story"] for f in flickers], True
        others = [f["story"] for f in flickers if f["cause"] not in OF_BUSY_MACHINE]
        if others:
            return others, False
    return [], False


def print_table(table):
    """A row for each fault, with its result at each rate."""
    rows = {}
    for fps, options, read, cause, root, right in table:
        rows.setdefault((options, read, cause, root), {})[fps] = "right" if right else "WRONG"
    print("| staged | read | cause at the root | 30/s | 60/s |\n|---|---|---|---|---|")
    for (options, read, cause, root), results in rows.items():
        print(f"| `{options or 'nothing'}` | {read} | {cause}{': ' + root if root else ''} | {results[30]} | {results[60]} |")
    staged = [row for row in table if row[3] != "none"]
    print(f"{sum(row[-1] for row in staged)} of {len(staged)} staged runs right, "
          f"{sum(row[-1] for row in table) - sum(row[-1] for row in staged)} of {len(table) - len(staged)} clean ones")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("pipeline", "pslog", "miss_wake_ups"):
        parser.add_argument(name)
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--keep", type=pathlib.Path)
    arguments = parser.parse_args()
    cases = CASES if arguments.all else [CASES[i] for i in QUICK]
    problems, table = [], []
    with tempfile.TemporaryDirectory() as temporary:
        directory = arguments.keep or pathlib.Path(temporary)
        directory.mkdir(parents=True, exist_ok=True)
        runs = Runs(arguments, directory)
        for fps in (30, 60) if arguments.all else (60,):
            for case in cases:
                right, story, log, flickers = staged_run(runs, case, fps)
                table.append((fps, *case, bool(right)))
                if not right:
                    problems.append(f"{log.name}: {case} at {fps}: {story}")
                elif case[2] == TRIMMED and not retain_number_serves(runs, flickers, fps):
                    problems.append(f"{log.name}: {case} at {fps}: with the named retain number, reads still fail")
            for options in CLEAN if arguments.all else CLEAN[:1]:
                named, is_clean = clean_run(runs, options, fps)
                if not is_clean:
                    print(f"no run at {fps} was clean on this machine: {options}", file=sys.stderr)
                table.append((fps, options, "all", "none", "", not named))
                problems += [f"no fault, {options} at {fps}: {story}" for story in named]
    if arguments.all:
        print_table(table)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
