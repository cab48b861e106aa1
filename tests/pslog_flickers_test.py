#!/usr/bin/env python3
"""The causes that pslog names for hand-written logs, each with and without threads and times.

usage: pslog_flickers_test.py PSLOG
"""

import json
import subprocess
import sys

# Tags of an invented pipeline, all in pipe 2: S is set for each frame, G is computed from it, T has no history, Q is a
# queue.
TAGS = {"S": 1, "G": 2, "T": 3, "Q": 4, "U": 5}
TYPES = {"T": 1, "Q": 2}
THREADS = {"sensor": 11, "stats": 12, "gains": 13, "isp": 14, "other": 15}


def of(tag, frame):
    return f"camID: 0, pipe: 2, frameID: {frame}, tag: {TAGS[tag]},"


def copied(tag, frame, size=4, data="0x1"):
    return f"{of(tag, frame)}intrData:{data},extrData:0x2,tagSize:{size}"


def plain_get(tag, frame, by, eraser=0):
    lines = [f"V getParamInternal: E cam 0 pipe 2 frame {frame} tag {TAGS[tag]} erasePoint:{eraser}"]
    if eraser:
        lines.append(f"W getParamInternal: frameID {frame} <= Erased {eraser}, {tag} need life >= {eraser - frame + 7}")
    elif by != frame and tag != "T":
        lines.append(f"V permiProc: cam 0 pipe 2 tag {TAGS[tag]} destID {frame} relatedID:{by}")
    return [*lines, f"V _getParam: success  {copied(tag, frame)}"]


def got(tag, frame, by):
    related = [f"V permiProc: cam 0 pipe 2 tag {TAGS[tag]} destID {frame} relatedID:{by}"] if by != frame else []
    return [*related, f"V _getParamSyn: success  {copied(tag, frame)}"]


def wait_lines(tag, frame, ms, timed_out):
    where = f"cam 0 pipe 2 sof {frame} tag {TAGS[tag]}, wait"
    return ([f"W operator(): {where} timeout"] if timed_out else []) + [f"D operator(): {where}: {ms}.000000 ms."]


def stored(tag, frame, function):
    return [f"V permiProc: add checkPoint[{frame}] size:{frame},permiProc:_modifiable", "V createTag: X:ok",
            f"V {function}: success {copied(tag, frame)}"]


def erase(frame, tag, newest):
    save = f"cam 0 pipe 2 frame {newest} tag {TAGS[tag]} erasePoint:0"
    return [f"V _erase: E cam[0] pipe[2] frame[{frame}] and oldest will be erased",
            f"V _erase: tag:{TAGS[tag]} checkPoint size:9", f"V getParamInternal: E {save}",
            f"V _setParam: success {copied(tag, 0)}",
            "V _erase: X:ret:0, cam[0] pipe[2], and finaly frame[0]save to frame[0]"]


def lines_of(step):
    """The messages of one step: "S 7 by 6" and the like."""
    name, *words = step.split()
    tag = words[0] if words and words[0] in TAGS else None
    numbers = [int(word) for word in words if word.lstrip("-").isdigit()]
    if name == "ask":
        return [f"V _getParamSyn: {of(tag, numbers[0])}"]
    if name in ("waited", "timeout"):
        return wait_lines(tag, *numbers, name == "timeout")
    if name == "got":
        return got(tag, *numbers)
    if name == "failed":
        return [f"E _getParamSyn: fail {copied(tag, numbers[0], numbers[1], '0x0')}"]
    if name == "get":
        return plain_get(tag, *numbers)
    if name in ("deliver", "wake"):
        woken = ["V _setParamSyn: set notify all"] if name == "wake" else []
        return [f"V _setParamSyn: {of(tag, numbers[0])}", *woken, *stored(tag, numbers[0], "_setParamSyn")]
    if name == "set":
        return stored(tag, numbers[0], "_setParam")
    if name == "erase":
        return erase(numbers[0], tag, numbers[1])
    return {"end": ["I destroyInstance: destory"], "begin": ["I createInstance: create"]}[name]


def log_of(steps, threads=True, level="V"):
    """Each step is (milliseconds, thread, what)."""
    register = "ParamSet tag:{}, name:{}, dataType:int, size:4, tagType:{}, retainNum:{}"
    all_lines = [(0, "other", "I register_tag: " + register.format(TAGS[tag], tag, TYPES.get(tag, 0), 6))
                 for tag in TAGS if tag != "U"]
    for ms, thread, what in sorted(steps, key=lambda step: step[0]):
        all_lines += [(ms, thread, line) for line in lines_of(what)]
    text = ""
    for ms, thread, line in all_lines:
        if "VDIWE".index(line[0]) < "VDIWE".index(level):
            continue
        ids = f"  812 {THREADS[thread]:5} {line[0]} ParamSet" if threads else f"{line[0]}/ParamSet(  812)"
        text += f"11-22 10:00:{ms // 1000:02}.{ms % 1000:03} {ids}: 1, {line[2:]}\n"
    return text


def clean(frames, period=30):
    """S and G for each frame: stats delivers S, gains waits for S and delivers G, isp waits for G."""
    steps = []
    for frame in frames:
        at = frame * period
        steps += [(at, "stats", f"deliver S {frame}"), (at + 1, "gains", f"ask S {frame}"),
                  (at + 1, "gains", f"got S {frame} {frame}"), (at + 2, "gains", f"deliver G {frame}"),
                  (at + 3, "isp", f"ask G {frame}"), (at + 3, "isp", f"got G {frame} {frame}")]
    return steps


BEFORE, AFTER = clean(range(1, 10)), clean(range(20, 25))
WAIT = [(300, "isp", "ask G 10"), (350, "isp", "timeout G 10 50")]
FELL_BACK = [*WAIT, (350, "isp", "got G 10 9")]
OWN = [*WAIT, (350, "isp", "got G 10 10")]
# Frame 10 of S is 90 ms late, because its thread began late.
CHAIN = [(300, "stats", "ask T 10"), (400, "stats", "timeout T 10 100"), (400, "stats", "got T 10 10"),
         (350, "other", "wake T 10"), (401, "stats", "wake S 10"), (302, "gains", "ask S 10"),
         (352, "gains", "timeout S 10 50"), (352, "gains", "got S 10 9"), (420, "gains", "ask S 11"),
         (470, "gains", "timeout S 11 50"), (470, "gains", "got S 11 9")]

ERASED = [(300, "isp", "erase G 15 9"), (310, "isp", "get G 8 0 9")]

# The name of a case, its steps, and its flickers in any order, each as "tag frame: root cause [or other cause]".
CASES = [
    ("nothing", [], []),
    ("late", [*FELL_BACK, (380, "gains", "deliver G 10")], ["G 10: late"]),
    ("never delivered", FELL_BACK, ["G 10: never delivered"]),
    ("plain set", [*OWN, (320, "gains", "set G 10")], ["G 10: plain set"]),
    ("plain set before a delivery that wakes nobody",
     [*OWN, (290, "gains", "set G 10"), (320, "gains", "deliver G 10")], ["G 10: plain set"]),
    ("wake-up lost", [*OWN, (310, "gains", "wake G 10")], ["G 10: wake-up lost"]),
    ("came as the wait ended", [*OWN, (347, "gains", "wake G 10")], ["G 10: late or wake-up lost"]),
    ("two readers slept on", [*OWN, (305, "other", "ask G 10"), (310, "gains", "wake G 10"),
                              (355, "other", "timeout G 10 50"), (355, "other", "got G 10 10")],
     ["G 10: reader not run or wake-up lost", "G 10: reader not run or wake-up lost"]),
    ("longer than the time-out", [*OWN, (310, "gains", "wake G 10"), (400, "isp", "ask G 11"),
                                  (410, "gains", "wake G 11"), (480, "isp", "timeout G 11 80"),
                                  (480, "isp", "got G 11 11")],
     ["G 10: wake-up lost", "G 11: reader not run or wake-up lost"]),
    ("erased", ERASED, ["G 8: erased too early"]),
    ("erased while it waited", [(300, "isp", "ask G 10"), (310, "other", "erase G 16 9"),
                                (311, "isp", "waited G 10 11"), (311, "isp", "got G 10 0")],
     ["G 10: erased too early"]),
    ("frame gone", [*WAIT, (310, "other", "erase S 16 9"), (330, "gains", "deliver G 10"),
                    (350, "isp", "failed G 10 4")], ["G 10: frame gone"]),
    ("not registered", [(300, "isp", "ask U 10"), (350, "isp", "timeout U 10 50"), (350, "isp", "failed U 10 0")],
     ["tag 5 10: never registered"]),
    ("waited twice", [*FELL_BACK, (351, "isp", "ask G 10"), (380, "gains", "wake G 10"),
                      (380, "isp", "waited G 10 29"), (380, "isp", "got G 10 10")], ["G 10: late"]),
    ("plain get too early", [(300, "isp", "get S 10 9"), (310, "stats", "deliver S 10")] +
     [(30 * f + 5, "isp", f"get S {f} {f}") for f in range(1, 9)], ["S 10: late"]),
    ("late for a value that never came", [
        *FELL_BACK, (301, "gains", "ask S 10"), (351, "gains", "timeout S 10 50"), (351, "gains", "got S 10 9"),
        (352, "gains", "deliver G 10")], ["S 10: never delivered", "G 10: never delivered"]),
    ("late for a value that never came, and then held up", [
        *FELL_BACK, (301, "gains", "ask S 10"), (351, "gains", "timeout S 10 50"), (351, "gains", "got S 10 9"),
        (363, "gains", "deliver G 10")], ["S 10: never delivered", "G 10: never delivered"]),
    ("late for a frame that was gone", [
        *FELL_BACK, (301, "gains", "ask S 10"), (310, "other", "erase G 16 9"), (330, "stats", "deliver S 10"),
        (351, "gains", "timeout S 10 50"), (351, "gains", "failed S 10 4"), (352, "gains", "deliver G 10")],
     ["S 10: frame gone", "G 10: frame gone"]),
    # Cases without a flicker.
    ("tag without history", [(300, "isp", "get T 10 0")], []),
    ("tag that is set now and then", [(40, "other", "set Q 1"), (250, "other", "set Q 8")] +
     [(30 * f + 9, "isp", f"get Q {f} {1 if f < 8 else 8}") for f in range(1, 10)], []),
    ("reader of the frame before", [(30 * f - 5, "isp", f"get S {f} {f - 1}") for f in range(2, 10)], []),
    ("frame that no value was set before", [(10, "isp", "get Q 1 0"), (40, "other", "set Q 2")], []),
]


def flickers_of(pslog, text):
    command = [pslog, "flickers", "--json"]
    run = subprocess.run(command, input=text, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=True)
    return json.loads(run.stdout)["flickers"]


def named(flickers):
    def text(flicker):
        last = flicker["chain"][-1]
        return f"{flicker['name']} {flicker['frame']}: {last['cause']}" + (
            f" or {last['or_else']}" if "or_else" in last else "")
    return sorted(text(flicker) for flicker in flickers)


def check(problem, pslog):
    for what, steps, expected in CASES:
        for threads in (True, False):
            found = named(flickers_of(pslog, log_of([*BEFORE, *steps, *AFTER], threads)))
            # Without thread ids, all reads of a value are reported as those of one reader.
            if (found if threads else sorted(set(found))) != (sorted(expected) if threads else sorted(set(expected))):
                problem(f"{what}, {'with' if threads else 'without'} threads: {found}, not {expected}")
    # Different ends of a log.
    for what, steps, expected in [
        ("store ended", [*FELL_BACK, (320, "other", "end")], ["G 10: store ended"]),
        ("log ended", FELL_BACK, ["G 10: never delivered or late"]),
        ("another store", [(360, "other", "begin"), (400, "isp", "ask G 9"), (450, "isp", "timeout G 9 50"),
                           (450, "isp", "got G 9 0")], ["G 9: never delivered or late"]),
    ]:
        found = named(flickers_of(pslog, log_of([*BEFORE, *steps])))
        if found != expected:
            problem(f"{what}: {found}, not {expected}")
    found = named(flickers_of(pslog, log_of([*BEFORE, *FELL_BACK, (380, "gains", "deliver G 10")], level="W")))
    if found != ["tag 2 10: not known"]:
        problem(f"wrong causes for a log of level 2: {found}")
    found = named(flickers_of(pslog, log_of([*BEFORE, *ERASED], level="I")))
    if found != ["G 8: erased too early"]:
        problem(f"wrong causes for a log of level 3: {found}")


def check_words(problem, pslog):
    flickers = flickers_of(pslog, log_of([*BEFORE, *CHAIN]))
    story = next((f["story"] for f in flickers if (f["name"], f["frame"]) == ("S", 10)), "")
    expected = ("S of 9 used for 10: S of 10 came 49 ms late, because the wake-up for T of 10 was lost: "
                "thread 12 (S) slept through it (or else: reader not run)")
    if story != expected:
        problem(f"the story of a chain of causes is wrong: {story}")
    erased = flickers_of(pslog, log_of([*BEFORE, *ERASED, *AFTER]))
    if erased[0]["chain"][-1].get("retain") != 8 or "retain number of 8" not in erased[0]["advice"]:
        problem(f"the retain number that is needed is not named: {erased[0]}")
    late = flickers_of(pslog, log_of([*BEFORE, *CASES[1][1], *AFTER]))[0]
    if (late["frames_off"], late["waited_ms"], late["chain"][0]["late_us"]) != (1, 50, 30000):
        problem(f"the numbers of a late value are wrong: {late}")


def check_why(problem, pslog):
    def why(frame):
        return subprocess.run([pslog, "why", "0", str(frame)], input=log_of([*BEFORE, *CHAIN]), text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    told = why(10).stdout
    for part in ("11-22 10:00:00.302      2.000 ms  pipe 2   thread 13 (G) ", "asks for tag 1 S, and waits if needed\n",
                 "because the wake-up for T of 10 was lost", " to change it: "):
        if part not in told:
            problem(f"the story of a frame lacks {part}: {told}")
    if "every read of frame 5 got in time" not in why(5).stdout:
        problem(f"the story of a frame without flickers is wrong: {why(5).stdout}")
    if why(99).returncode != 1 or "nothing about frame 99" not in why(99).stderr:
        problem("a frame that is not in the log is not reported as missing")


# "gains" waits 25 ms for each S, as usual. With frame 10 it is then busy for 22 ms, which is unusual.
PACED = [step for f in range(1, 11) for step in [
    (30 * f - 25, "gains", f"ask S {f}"), (30 * f, "stats", f"wake S {f}"), (30 * f, "gains", f"waited S {f} 25"),
    (30 * f, "gains", f"got S {f} {f}"), (30 * f + (22 if f == 10 else 1), "gains", f"wake G {f}")]]


def check_unusual(problem, pslog):
    waits = [(276, "isp", "ask G 10"), (306, "isp", "timeout G 10 30"), (306, "isp", "got G 10 9")]
    last = flickers_of(pslog, log_of([*PACED, *waits]))[0]["chain"][-1]
    if (last["name"], last.get("busy_us"), last.get("busy_frame")) != ("G", 22000, 10):
        problem(f"the unusual step of the thread is not named as the cause: {last}")


def main():
    problems = []
    check(problems.append, sys.argv[1])
    check_words(problems.append, sys.argv[1])
    check_unusual(problems.append, sys.argv[1])
    check_why(problems.append, sys.argv[1])
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
