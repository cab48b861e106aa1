#!/usr/bin/env python3
"""Proves that the files of src/ keep to their layers, as docs/architecture.md draws them.

usage: layers_test.py [FOLDER]   the sources; default: those of this file's repository

- Apart from its own, a file includes only files of lower layers, and calls only private operations of the store that
  are defined there.
- Only pipe_store.* includes the index.
- Only pipe_store.* changes the contents of pipes and frames, except ParamFrame's own operations, which programs call.
"""

import pathlib
import re
import sys

# From the lowest to the highest. A layer may use those before it, and the files of its own name.
LAYERS = [
    "attempts relaxed changes store_lock hold tag_table pipe_index waiters trace allocation",
    "pipe_store",
    "request",
    "pipes",
    "frame_resolution",
    "sync_access frame_lifetime metadata external_ops",
    "paramset",
]
LEVEL = {name: level for level, names in enumerate(LAYERS) for name in names.split()}
# Which files of the lowest layer may include which others of it.
BESIDE = {("waiters", "relaxed"), ("trace", "relaxed"), ("hold", "attempts"), ("tag_table", "attempts")}

HELD = r"\bm(?:Frames|CheckPoint|ErasePoint|Tags|Status)\b"
READS = r"\.(?:find|size|empty|end|count)\("
DEFINITION = re.compile(r"^(?:inline )?[\w:<>&*, ]*?(\w+)::(~?\w+)(?:<\w+>)?\(", re.M)


def code(path):
    """The source without comments and message texts, with unchanged line numbers."""
    text = re.sub(r"//.*", "", path.read_text())
    return re.sub(r'"(?:[^"\\\n]|\\.)*"', lambda found: found[0] if found[0].startswith('"src/') else '""', text)


def functions(text):
    """Each line with the class and the name of the function that it is in."""
    owner = name = None
    for number, line in enumerate(text.splitlines(), 1):
        if found := DEFINITION.match(line):
            owner, name = found.groups()
        elif line.startswith("}"):
            owner = name = None
        yield number, line, owner, name


def private_operations(folder):
    header = code(folder.parent / "include/paramset.h")
    private = header[header.index("private:", header.index("class ParamSet {")) :]
    names = set(re.findall(r"(\w+)\([^;{}]*\)[^;{}()]*(?:\(mMutex\))?;", private[: private.index("\n};")]))
    return {name for name in names if not name.startswith("PARAMSET_")} - {"ParamSet"}


def check(folder, problem):
    files = sorted(path for path in folder.glob("*.[ch]*") if path.suffix in (".h", ".cpp"))
    texts = {path: code(path) for path in files}
    home = {}  # private operation: the file that defines it
    operations = private_operations(folder)
    for path, text in texts.items():
        for owner, name in DEFINITION.findall(text):
            if owner == "ParamSet" and name in operations and re.search(rf"^[^\n;]*ParamSet::{name}\(", text, re.M):
                home[name] = path.stem
    if len(home) < 18:
        problem(f"only {len(home)} private operations were found: the sources are not written as this test reads them")

    for path, text in texts.items():
        stem = path.stem
        if stem not in LEVEL:
            problem(f"{path.name} is in no layer; add it to LAYERS here and to docs/architecture.md")
            continue
        for number, line, owner, name in functions(text):
            where = f"{path.name}:{number}"
            if found := re.match(r'#include "src/(\w+)\.h"', line):
                other = found[1]
                if other != stem and (stem, other) not in BESIDE and LEVEL.get(other, 99) >= LEVEL[stem]:
                    problem(f"{where}: includes {other}.h, which is not of a lower layer")
                if other == "pipe_index" and stem not in ("pipe_store", "pipe_index"):
                    problem(f"{where}: includes the index, which only pipe_store may include")
            for call in re.findall(r"(?<![\w.:>~])(?:store->|this->|ParamSet::)?(\w+)\(", line):
                target = home.get(call, stem)
                if owner is not None and name != call and target != stem and LEVEL[target] >= LEVEL[stem]:
                    problem(f"{where}: calls {call} of {target}, which is not of a lower layer")
            for found in re.finditer(HELD, line):
                if stem == "pipe_store" or owner == "ParamFrame" or re.match(READS, line[found.end() :]):
                    continue
                problem(f"{where}: {found[0]} is changed, or may be changed, outside pipe_store")


def main():
    here = pathlib.Path(__file__).resolve().parent.parent / "src"
    problems = []
    check(pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else here, problems.append)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    if sys.argv[1:] in (["-h"], ["--help"]):
        print(__doc__.strip())
        sys.exit(0)
    sys.exit(main())
