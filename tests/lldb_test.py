#!/usr/bin/env python3
"""Tries the lldb command of tools/lldb/paramset.py on the store of a stopped process and of its core file.

usage: lldb_test.py pipeline PIPELINE
       lldb_test.py hung LIBRARY PLATFORM_LIBRARY

"pipeline" stops the pipeline while three modules wait for a frame that is not there. "hung" is a process in which one
thread holds the store's mutex and another waits for it. Exit status 77: lldb cannot be used here.
"""

import ctypes
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SKIPPED = 77
FRAMES = 20
NEXT = FRAMES + 1
DEADLINE_S = 120


def skip(why):
    print(f"lldb_test.py: skipped: {why}")
    sys.exit(SKIPPED)


def run(arguments):
    return subprocess.run(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=DEADLINE_S)


def ask(where, commands):
    """The output of each of the commands, in one session of lldb."""
    arguments = [os.path.join(ROOT, "scripts", "lldb"), "-b"]
    for command in commands:
        # The command is called from a script, because lldb would exit at the first command that fails.
        arguments += ["-o", "script result = lldb.SBCommandReturnObject()",
                      "-o", f"script lldb.debugger.GetCommandInterpreter().HandleCommand('{command}', result)",
                      "-o", "script print('ASKED', result.GetOutput(), result.GetError(), sep='\\n')"]
    done = run(arguments + where)
    answers = done.stdout.split("\nASKED\n")
    if len(answers) != len(commands) + 1:
        if "attach failed" in done.stdout or "Operation not permitted" in done.stdout:
            skip("a process cannot be traced here")
        raise AssertionError(f"lldb says:\n{done.stdout}")
    return [answer.split("\n(lldb) script", 1)[0].strip("\n") for answer in answers[1:]]


def expect(answer, *patterns):
    for pattern in patterns:
        assert re.search(pattern, answer, re.M), f"there is no {pattern!r} in\n{answer}"


def little_endian(number):
    return number.to_bytes(4, "little").hex(" ")


# Commands, and texts that the output must have. 4097 is "frame ready", erased six frames behind; 4101 is of type 1.
QUESTIONS = (
    ("waiters", [rf"(thread \d \(tid \d+\) waits for frame {NEXT} of tag 4097 frame ready, camera 0, pipe 0: "
                 rf"no value since frame {FRAMES}\n?){{3}}"]),
    ("status", [rf"^  0    0 7: 15 to {NEXT} +4097 frame ready +24    0      6 6: 15 to {FRAMES} +14 +yes$",
                r"^ +131073 \(metadata\)", r"^ +4101 tuning +40    1      1 - +- +yes$"]),
    ("frames 0 0", [r"^ +0 +4097 frame ready +0x\w+$", rf"^ +{FRAMES} +4097 frame ready +0x\w+ +delivered$",
                    rf"^ +{FRAMES} 131073 \(metadata\) +0x\w+$", rf"^ +{NEXT} +4097 frame ready +- +waited for$"]),
    (f"value 0 0 {FRAMES} 4097", [rf"answered by frame {FRAMES}, it has a value of its own\n"
                                  rf"000000  {little_endian(FRAMES)}"]),
    ("value 0 0 last 4097", [rf"the newest frame is {NEXT}\nframe {NEXT}, tag 4097 frame ready "
                             rf"\(pipeline::FrameReady, 24 bytes\): answered by frame {FRAMES}, the newest before it",
                             rf"^000000  {little_endian(FRAMES)}"]),
    ("value 0 0 3 4097", [rf"answered by frame 0, values up to frame 14 are erased\n000000  {little_endian(14)}"]),
    ("value 0 2 3 4101", [r"answered by frame 0, the tag is of type 1\n0+  (00 ){8}"]),
    ("value 0 9 3 4097", [r"answered by frame 0, neither it nor an .*\nframe 0 has no value yet: a read creates one"]),
    ("value 0 0 1 4242", [r"^error: paramset: tag 4242 is not registered, so reads fail$"]),
    ("value 5 0 1 4097", [r"^error: paramset: camera 5 is out of limit, 0 to 4$"]),
    ("frames 0 14", [r"^error: paramset: pipe 14 is out of limit, 0 to 13$"]),
    ("frames 0", [r"^error: paramset: the following arguments are required: PIPE$"]),
    ("--help", [r"^    waiters +which threads wait"]),
)
COMMANDS = ["paramset " + question for question, _ in QUESTIONS]


def check(answers):
    for answer, (_, patterns) in zip(answers, QUESTIONS):
        expect(answer, *patterns)


def core_of(process, folder):
    done = run(["gcore", "-o", os.path.join(folder, "core"), str(process.pid)])
    assert done.returncode == 0, f"gcore says:\n{done.stdout}"
    return os.path.join(folder, f"core.{process.pid}")


def all_wait(process):
    """Stops the process while the modules wait. If one is between two waits of 50 ms, continues and stops it again."""
    end = time.monotonic() + DEADLINE_S
    while time.monotonic() < end:
        process.send_signal(signal.SIGSTOP)
        answers = ask(["-p", str(process.pid)], COMMANDS + ["process detach -s true"])
        if answers[0].count("waits for") == 3:
            return answers
        process.send_signal(signal.SIGCONT)
        time.sleep(0.1)
    raise AssertionError(f"the modules do not wait:\n{answers[0]}")


def pipeline(program):
    with tempfile.TemporaryDirectory() as folder, open(os.path.join(folder, "log"), "w") as log, subprocess.Popen(
        [program, "--input", "-"], stdin=subprocess.PIPE, stderr=log, env=dict(os.environ, PARAMSET_LOG="2")
    ) as process:
        try:
            process.stdin.write(b"YUV4MPEG2 W16 H16 F30:1 C420jpeg\n" + FRAMES * (b"FRAME\n" + bytes(384)))
            process.stdin.flush()
            while f"sof {NEXT} tag 4097, wait timeout" not in pathlib.Path(log.name).read_text():
                assert process.poll() is None
                time.sleep(0.05)
            live = all_wait(process)
            check(live)
            core = ask(["-c", core_of(process, folder), program], COMMANDS)
            check(core)
            assert core[1:] == live[1 : len(core)], f"of the core\n{core}\nof the process\n{live}"
        finally:
            process.kill()


def hang(library, platform):
    """The store's log fills a pipe that nobody reads, with the mutex held."""
    ctypes.CDLL(platform, ctypes.RTLD_GLOBAL)
    store = ctypes.CDLL(library)
    print("no store yet", flush=True)
    sys.stdin.readline()
    store._ZN4zarn8ParamSet14createInstanceEv()
    store.registerPsDynamicParam(7, 4, 0, b"a name that is too long for a string to hold in itself", b"int")
    value = ctypes.c_uint32(0)
    store.setPsParam(0, 3, 5, 7, ctypes.byref(value))
    print("begins", flush=True)

    def read():
        while True:
            store.getPsParam(0, 3, 6, 7, ctypes.byref(value))

    for _ in range(2):
        threading.Thread(target=read).start()


def hung(library, platform):
    environment = dict(os.environ, PARAMSET_LOG="5")
    with subprocess.Popen([sys.executable, __file__, "hang", library, platform], env=environment,
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
        try:
            process.stdout.readline()
            answers = ask(["-p", str(process.pid)], ["paramset status"])
            expect(answers[0], r"^error: paramset: no store: it was not created yet, or was destroyed$")
            process.stdin.write("\n")
            process.stdin.flush()
            process.stdout.readline()
            end = time.monotonic() + DEADLINE_S
            while "mutex, which" not in answers[0] and time.monotonic() < end:
                answers = ask(["-p", str(process.pid)], ["paramset waiters", "paramset status"])
            expect(answers[0], r"^(thread \d .*) holds the store's mutex: the store may be half changed\n"
                               r"(thread \d .*) waits for the store's mutex, which \1 holds$")
            expect(answers[1], r"^  0    3 1: 5 to 5 +7 a name that is too long for a string to hold in itself +4 ")
        finally:
            process.kill()


def main():
    role, *arguments = sys.argv[1:]
    # A preloaded library may interfere: a device's allocator, for example, reserves more memory than gcore can write.
    os.environ.pop("LD_PRELOAD", None)
    for tool in ("lldb", "gcore"):
        if role != "hang" and not shutil.which(tool):
            skip(f"there is no {tool}")
    {"pipeline": pipeline, "hung": hung, "hang": hang}[role](*arguments)


if __name__ == "__main__":
    main()
