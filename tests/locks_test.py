#!/usr/bin/env python3
"""Proves that code which uses the store without its mutex does not compile, if the compiler checks locks.

usage: locks_test.py CLANG++ OPTION...   the compiler, and the options that the library is compiled with
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
REFUSED = "-Werror,-Wthread-safety"


def complaint(command, source):
    found = subprocess.run([*command, "-fsyntax-only", "-x", "c++", "-"], input=source, text=True, cwd=ROOT, capture_output=True)
    return found.stderr if found.returncode != 0 else ""


def mistakes():
    """The sources with one mistake each: a lock is not taken, or released at once, or a member is read without it."""
    for path in sorted((ROOT / "src").glob("*.cpp")):
        source = path.read_text()
        for lock in re.finditer(r"^ *(const )?StoreLock lock\(.*\);\n", source, re.M):
            instead = "" if lock[1] else lock[0] + "lock.unlock();\n"
            line = source.count("\n", 0, lock.start()) + 1
            yield f"{path.name}:{line} without the lock", source[: lock.start()] + instead + source[lock.end() :]
        if path.name == "paramset.cpp":
            outside = "ParamSet* ParamSet::getInstance() {\n"
            yield "a pipe read outside", source.replace(outside, outside + "    Hold()->mPipes->at(0, 0);\n")


def main():
    command = [*sys.argv[1:], "-I.", "-Iinclude", "-std=c++17", "-Werror"]
    problems = []
    tried = 0
    if text := complaint(command, (ROOT / "src/paramset.cpp").read_text()):
        problems.append("as it is, the library does not compile:\n" + text)
    for what, source in mistakes():
        tried += 1
        if REFUSED not in complaint(command, source):
            problems.append(what + " compiles, or fails for another reason")
    if tried < 8:
        problems.append(f"only {tried} mistakes were tried: the sources are not written as this test reads them")
    print("\n".join(problems) or f"{tried} mistakes do not compile")
    return 1 if problems else 0


if __name__ == "__main__":
    if sys.argv[1:] in ([], ["-h"], ["--help"]):
        print(__doc__.strip())
        sys.exit(0 if sys.argv[1:] else 2)
    sys.exit(main())
