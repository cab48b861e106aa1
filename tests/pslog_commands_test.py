#!/usr/bin/env python3
"""Runs pslog's subcommands on logs of the pipeline, as a user would.

usage: pslog_commands_test.py PIPELINE PSLOG
"""

import json
import os
import pty
import re
import select
import subprocess
import sys
import tempfile
import time

PIPELINE, PSLOG = sys.argv[1:]
STALL = ["--stall", "statistics:55"]
problems = []


def expect(holds, what):
    if not holds:
        problems.append(what)


def log_of(name, level=5, arguments=(), times="1"):
    environment = {**os.environ, "PARAMSET_LOG": str(level), "PARAMSET_LOG_TIME": times}
    with open(name, "wb") as log:
        command = [PIPELINE, "--frames", "40", "--fps", "60", *arguments]
        subprocess.run(command, env=environment, stdout=subprocess.DEVNULL, stderr=log, check=True)


def pslog(*arguments, stdin=None):
    with open(stdin or os.devnull, "rb") as log:
        return subprocess.run([PSLOG, *arguments], stdin=log, capture_output=True, text=True, errors="strict")


def content(name):
    with open(name, "rb") as file:
        return file.read()


def test_output_never_replaces_what_it_must_not():
    os.symlink("bad", "link")
    os.link("bad", "hard")
    os.mkdir("folder")
    with open("notes", "w") as notes:
        notes.write("of <svg, but no picture\n")
    refused = (
        (["bad"], "bad", None),
        (["link"], "bad", None),
        (["hard", "--force"], "bad", None),
        (["bad", "--force"], "link", None),
        (["/dev/stdin"], "-", "bad"),
        (["bad"], "-", "link"),
        (["bad"], "/dev/stdin", "hard"),
        (["bad"], "good", None),
        (["notes"], "bad", None),
        (["folder", "--force"], "bad", None),
        (["no/such/folder"], "bad", None),
        (["/dev/full"], "bad", None),
        (["new", "--trace", "new"], "bad", None),
    )
    before = content("bad"), content("notes"), sorted(os.listdir())
    for (svg, *options), log, stdin in refused:
        run = pslog("timeline", "--svg", svg, *options, log, stdin=stdin)
        is_refused = run.returncode == 1 and run.stderr.startswith("pslog: ") and run.stderr.count("\n") == 1
        expect(is_refused, f"timeline --svg {svg} {options} {log}: {run}")
    expect(before == (content("bad"), content("notes"), sorted(os.listdir())), "a refused output has changed something")

    for svg, *options in (["new.svg"], ["new.svg"], ["notes", "--force"]):
        expect(pslog("timeline", "--svg", svg, *options, "bad").returncode == 0, f"{svg} {options} is not written")
        expect(b"<svg " in content(svg)[:100] and content(svg).endswith(b"</svg>\n"), f"{svg} is not a picture")
    expect(pslog("timeline", "--svg", "/dev/stdout", "bad").stdout.endswith("</svg>\n"), "no picture on /dev/stdout")
    nothing = pslog("timeline", "--svg", "nothing.svg", os.devnull)
    expect(nothing.returncode == 1 and "no message" in nothing.stderr, f"an empty log is not reported: {nothing}")
    expect(not os.path.exists("nothing.svg"), "an empty log gives a picture")
    expect(sorted(os.listdir()) == sorted(before[2] + ["new.svg"]), f"files are left: {os.listdir()}")


def test_one_line_says_what_is_wrong():
    nothing = "no message of the store in "
    cases = (
        ([], 2, "subcommand"),
        (["sumary", "bad"], 2, '"sumary"'),
        (["summary", "bad", "good"], 2, "good"),
        (["flickers", "--most", "0", "bad"], 2, "1 to 100000"),
        (["why", "0", "bad"], 2, "FRAME"),
        (["check", "bad"], 2, "--max-time-outs"),
        (["check", "--max-time-outs", "few", "bad"], 2, '"few" is no number from 0 on'),
        (["check", "--max-time-outs", "-1", "bad"], 2, '"-1" is no number from 0 on'),
        (["summary", "no such file"], 1, "no such file: No such file"),
        (["summary", "."], 1, "Is a directory"),
        (["summary"], 1, nothing),
        (["flickers", PSLOG], 1, nothing),
        (["top"], 1, nothing),
        (["why", "0", "20"], 1, nothing),
        (["why", "0", "4711", "bad"], 1, "nothing about frame 4711 of camera 0"),
        (["frame", "0", "2", "4711", "bad"], 1, "nothing about frame 4711 of camera 0, pipe 2"),
    )
    for arguments, result, words in cases:
        run = pslog(*arguments)
        is_told = run.stderr.startswith("pslog: ") and run.stderr.count("\n") == 1 and words in run.stderr
        expect(run.returncode == result and is_told and run.stdout == "", f"{arguments}: {run}")


def test_check_names_what_broke():
    most = ["--max-fall-backs", "100000", "--max-time-outs", "100000", "--max-wait-p99", "1e6"]
    statistics = r"(.*\n)* +camera 0 pipe 1 tag 4098 statistics: \d+\n"
    cases = (
        ("good", most, 0, "^ok .*\nok .*\nok .*\n$"),
        ("bad", ["--max-time-outs", "3"], 1, r"^BROKEN time-outs: \d+, at most 3\n" + statistics),
        ("bad", ["--max-fall-backs", "3"], 1, r"^BROKEN fall-backs: \d+, at most 3\n" + statistics),
        ("bad", ["--max-wait-p99", "20"], 1, r"^BROKEN wait-p99: \d+ ms, at most 20\n" + statistics),
        ("poor", most[2:4], 0, "^ok     time-outs: [1-9]"),
        ("poor", most[:2], 1, r"^BROKEN fall-backs: \?, .*\n +level 5 is needed; .*PARAMSET_LOG=5"),
        ("poor", most[4:], 1, r"^BROKEN wait-p99: \? ms, .*\n +level 4 is needed; "),
        (os.devnull, ["--max-time-outs", "0"], 1, r"^BROKEN time-outs: \?"),
    )
    for log, options, result, text in cases:
        run = pslog("check", log, *options)
        expect(run.returncode == result and re.search(text, run.stdout), f"check {log} {options}: {run}")
        answer = json.loads(pslog("check", "--json", log, *options).stdout)
        expect(answer["ok"] == (result == 0), f"check --json {log} {options}: {answer}")


def test_diff_tells_better_from_worse():
    for logs, title in ((("good", "bad"), "worse"), (("bad", "good"), "better")):
        run = pslog("diff", *logs)
        lines = run.stdout.partition(f"\n{title}\n")[2].partition("\n\n")[0]
        found = re.search(r"tag 4098 statistics: time-outs, (\d+) of \d+ -> (\d+) of \d+", lines)
        expect(found and (int(found[1]) < int(found[2])) == (title == "worse"), f"diff {logs}: {run.stdout}")
        tags = json.loads(pslog("diff", "--json", *logs).stdout)["tags"]
        statistics = [tag for tag in tags if tag["name"] == "statistics"][0]
        expect("time-outs" in statistics[title] and statistics["a"]["gets"] > 0, f"diff --json {logs}: {statistics}")
    same = pslog("diff", "bad", "bad").stdout
    expect(same.endswith("\nno difference beyond chance\n"), f"diff of a log with itself: {same}")
    poor = pslog("diff", "poor", "bad").stdout
    expect(re.search(r"statistics +\? +\d+ +\? +\d+ +\d+ +\d+ +\? +\d+ ", poor), f"diff with a poor log: {poor}")


def read_until(file, wanted):
    text, end = "", time.monotonic() + 60
    while not re.search(wanted, text, re.S) and select.select([file], [], [], max(0, end - time.monotonic()))[0]:
        got = os.read(file, 65536).decode()
        if not got:
            break
        text += got
    expect(re.search(wanted, text, re.S), f"top has not printed {wanted}: {text}")


def test_top_prints_while_the_log_is_written():
    row = r" 0    1   4098 statistics [^\n]* [1-9]\d* +[1-9]\d* +\d+: "
    log = content("bad")
    for on_terminal in (False, True):
        reader, writer = pty.openpty() if on_terminal else os.pipe()
        top = subprocess.Popen([PSLOG, "top"], stdin=subprocess.PIPE, stdout=writer)
        os.close(writer)
        top.stdin.write(log)
        top.stdin.flush()
        redrawn = r"\x1b\[H\x1b\[J.*" + row + r".*\x1b\[H\x1b\[J"
        read_until(reader, redrawn if on_terminal else r"^ +last.*\ntime .*" + row)
        top.stdin.close()
        expect(top.wait() == 0, "top has failed")
        os.close(reader)
    lines = pslog("top", "--json", "bad").stdout.splitlines()
    tags = {tag["tag"]: tag for tag in json.loads(lines[-1])["tags"]}
    expect(tags[4098]["all_time_outs"] > 0 and tags[4098]["sets_per_second"] > 1, f"top --json: {tags[4098]}")


def test_long_names_do_not_shift_columns():
    with open("long", "wb") as log:
        log.write(content("bad").replace(b"statistics", b"statistics of the sharpness"))
    for command, column in ((["diff", "long"], " A "), (["top"], "sets/s")):
        text = pslog(*command, "long").stdout
        header = re.search(r"^.*\bcam pipe .*$", text, re.M)[0]
        end = len(header[:header.index(column)] + column.rstrip())
        rows = re.findall(r"^.* 4097 frame ready .*$|^.* 4098 statistics of the sharpness .*$", text, re.M)
        expect(len(rows) >= 2 and all(re.search(r" [\d.]+$", row[:end]) and row[end] == " " for row in rows),
               f"{command}: {text}")


def test_json_is_utf_8_whatever_the_log_has():
    with open("wild", "wb") as log:
        log.write(content("bad").replace(b"statistics", b"st\xff\x1b[31m\x00\xe2\x82\xac") + bytes(range(128, 256)))
    for command in (["summary"], ["top"], ["diff", "wild"], ["check", "--max-time-outs", "0"],
                    ["frame", "0", "1", "9"], ["why", "0", "9"], ["flickers"]):
        run = pslog(*command, "--json", "wild")
        answer = json.loads(run.stdout.splitlines()[-1] if command == ["top"] else run.stdout)
        names = {tag["name"] for tag in answer.get("tags", [])}
        texts = [happening["text"].partition("4098 ")[2] for happening in answer.get("happenings", [])]
        names.update(text.partition(",")[0] for text in texts)
        has_names = command[0] not in ("check", "why", "flickers")
        expect(not has_names or "st\\xff\\x1b[31m\\x00\u20ac" in names, f"{command}: {names}")
        expect(not re.search(r"[\x00-\x09\x0b-\x1f\x7f-\x9f]", run.stdout), f"{command}: control characters")


def main():
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        log_of("good")
        log_of("bad", arguments=STALL)
        log_of("poor", level=3, arguments=STALL)
        for name, test in list(globals().items()):
            if name.startswith("test_"):
                test()
        os.chdir("/")
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
