#!/usr/bin/env python3
"""Writes the report of scripts/coverage_report, whose help describes it."""
import json
import sys


class Reason:
    def __init__(self, where, line):
        parts = [part.strip() for part in line.split(" | ")]
        if len(parts) != 4:
            sys.exit("%s: not of the form file | number | text | reason: %s" % (where, line.strip()))
        self.where, (self.file, self.number, self.text, self.why) = where, parts
        first, _, last = self.number.partition("-")
        self.least = 0 if first == "*" else int(first)
        self.most = float("inf") if first == "*" else int(last or first)
        self.count = 0
        self.has_line = False

    def fits(self, file, text):
        has_text = text.startswith(self.text[1:]) if self.text.startswith("^") else self.text in text
        return has_text and self.file in ("*", file)

    def fault(self):
        if not self.has_line:
            return "%s: stale reason, no line of %s has the text '%s'" % (self.where, self.file, self.text)
        if self.count < self.least:
            return "%s: stale reason, it is for %s missed branches of '%s' in %s, but %d are missed" % (
                self.where, self.number, self.text, self.file, self.count)
        return None


def read_reasons(path):
    lines = enumerate(open(path), 1)
    return [Reason("%s:%d" % (path, n), line) for n, line in lines if line.strip() and not line.startswith("#")]


def reason_for(reasons, file, text):
    for reason in reasons:
        if reason.fits(file, text) and reason.count < reason.most:
            reason.count += 1
            return reason.why
    return None


def main(coverage_path, reasons_path, report_path):
    reasons = read_reasons(reasons_path)
    lines = missed_lines = branches = missed_branches = 0
    faults = []
    explained = []
    for file in json.load(open(coverage_path))["files"]:
        source = open(file["file"]).read().splitlines()
        for line in file["lines"]:
            if line["gcovr/noncode"]:
                continue
            text = source[line["line_number"] - 1].strip()
            where = "%s:%d: %s" % (file["file"], line["line_number"], text)
            for reason in reasons:
                reason.has_line |= reason.fits(file["file"], text)
            lines += 1
            if line["count"] == 0:
                missed_lines += 1
                faults.append("missed line: " + where)
            branches += len(line["branches"])
            for branch in line["branches"]:
                if branch["count"] == 0 and line["count"] > 0:
                    missed_branches += 1
                    why = reason_for(reasons, file["file"], text)
                    if why is None:
                        faults.append("missed branch without a reason in %s: %s" % (reasons_path, where))
                    else:
                        explained.append(where + "\n    " + why)
    faults += [fault for fault in (reason.fault() for reason in reasons) if fault]
    if not lines:
        faults.append("%s has no lines" % coverage_path)
    summary = "%d of %d lines, %d of %d branches, %d faults" % (
        lines - missed_lines, lines, branches - missed_branches, branches, len(faults))
    open(report_path, "w").write("\n".join([summary, ""] + faults + ["", "Missed branches with a reason:"] + explained) + "\n")
    print("\n".join(explained + faults))
    print("amount:", summary)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
