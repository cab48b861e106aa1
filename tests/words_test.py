#!/usr/bin/env python3
"""Proves that the documents agree with the sources.

messages: the messages in src/, those that docs/log.md lists and those that pslog knows are the same set, with their
          functions, and docs/log.md has their levels.
guide:    every piece of code in docs/guide.md is, word for word, in the example that it names, and README.md contains
          the complete programs of examples/quickstart/.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
STRING = r'"((?:[^"\\]|\\.)*)"'
LEVELS = {"4 / 5": {"traceLevel()", "traced ? 4 : 5"}, "4 / 5 erase": {"traceLevel()"}}


def literals(text, macros):
    """The string that results from adjacent literals and macros of literals."""
    result = ""
    for literal, name in re.findall(STRING + r"|(\b[A-Z_]{5,}\b)", text):
        result += macros[name] if name else literal
    return result.replace('\\"', '"')


def macros_in(text):
    return {name: literals(value, {}) for name, value in re.findall(r"#define (\w+_TEXT) (.*)", text)}


def function_at(lines, index):
    for line in reversed(lines[: index + 1]):
        if re.match(r"    \S.* operator\(\)\(", line):
            return "operator()"
        found = re.match(r"(?:\[\[.*?\]\] )?\w[^(;]*?(~?\w+)(?:<\w+>)?\(", line)
        if found:
            return found[1]
    raise ValueError("no function around " + lines[index])


def in_sources():
    files = sorted((ROOT / "src").glob("*.[ch]*"))
    macros = macros_in("".join(file.read_text() for file in files))
    found = {}
    for file in files:
        lines = file.read_text().splitlines()
        for index, line in enumerate(lines):
            if line.endswith("\\") or line.startswith("#define"):
                continue
            calls = re.findall(r"PS_LOG\(((?:[^,()]|\([^()]*\))+), (.*)", line)
            calls += [("traceLevel()", rest) for rest in re.findall(r"PS_TRACE\((.*)", line)]
            for level, rest in calls:
                text = re.match(r"(?:" + STRING + r"|PS_COPY_TEXT|\s)+", rest)[0]
                found.setdefault((function_at(lines, index), literals(text, macros)), set()).add(level)
    return found


def in_list():
    rows = re.findall(r"^\| ([\d /a-z]+) \| (\S+) \| `(.*?)` \| (.+?) \| (.+?) \|$", (ROOT / "docs/log.md").read_text(), re.M)
    return {(function, text): LEVELS.get(level, {level}) for level, function, text, _, _ in rows}, len(rows)


def in_pslog():
    source = (ROOT / "tools/pslog/message.cpp").read_text()
    rows = re.findall(r"\{Kind::\w+,\s*" + STRING + r",\s*((?:" + STRING + r"|COPY_TEXT|\s)+)\}", source)
    return {(row[0], literals(row[1], macros_in(source))) for row in rows}


def check_messages(problem):
    sources = in_sources()
    listed, rows = in_list()
    if len(sources) < 50:
        problem(f"only {len(sources)} messages were found in src/: the sources are not written as this test reads them")
    if rows != len(listed):
        problem("docs/log.md lists a message twice")
    for name, known in (("docs/log.md", set(listed)), ("pslog", in_pslog())):
        for function, text in sorted(set(sources) - known):
            problem(f"{name} lacks {function}: {text}")
        for function, text in sorted(known - set(sources)):
            problem(f"{name} has a message that src/ does not print, {function}: {text}")
    for message in sorted(set(sources) & set(listed)):
        if not sources[message] <= listed[message]:
            problem(f"docs/log.md has another level than {sources[message]} for {message}")


def squeezed(text):
    return " ".join(text.split())


def check_guide(problem):
    guide = (ROOT / "docs/guide.md").read_text()
    pieces = re.findall(r"```cpp (\S+)\n(.*?)```", guide, re.S)
    if guide.count("```") != 2 * len(pieces):
        problem("a piece of code in docs/guide.md names no example")
    for name, code in pieces:
        if squeezed(code) not in squeezed((ROOT / name).read_text()):
            problem(f"{name} does not have this piece of docs/guide.md:\n{code}")
    shown = {name for name, _ in pieces}
    for example in sorted((ROOT / "examples/guide").glob("*.cpp")):
        if f"examples/guide/{example.name}" not in shown:
            problem(f"docs/guide.md shows no code of {example.name}")
    programs = dict(re.findall(r"```(?:c|cpp) (\S+)\n(.*?)```", (ROOT / "README.md").read_text(), re.S))
    for file in sorted((ROOT / "examples/quickstart").iterdir()):
        if programs.get(f"examples/quickstart/{file.name}") != file.read_text():
            problem(f"README.md does not show examples/quickstart/{file.name} completely, or shows more")


def main():
    problems = []
    {"messages": check_messages, "guide": check_guide}[sys.argv[1]](problems.append)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
