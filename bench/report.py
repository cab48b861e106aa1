#!/usr/bin/env python3
"""Prints the table of a run's ratios and writes the Markdown report with its plots, into the folder of the run."""

import subprocess
import sys
from pathlib import Path

import plots
from aims import floor_aim, further_aims
from results import FLOOR, PER_TAG, STORE, WORKLOADS, Results

ABILITIES = ("from an earlier frame", "bounded history", "blocking wait", "erase by frame", "message trail")


def number(value):
    """A ratio with two decimals if it is below 10, else none; empty if there is no ratio."""
    if value is None:
        return ""
    return f"{value:.2f}" if value < 10 else f"{value:.0f}"


def verdict(measured, most):
    if most is None or most == float("inf"):
        return ["", ""]
    return [f"{most:.2f}", "met" if measured <= most else "NOT MET"]


def ratio_table(results):
    others = [name for name in results.contenders if name not in (STORE, FLOOR)]
    head = ["workload", "tags", "bytes", "threads", STORE, "aim", "", *others]
    rows = []
    for row in results.rows():
        measured = results.ratio(row, STORE)
        shape = [f"({row[0]})", *map(str, row[1:])]
        peers = [number(results.ratio(row, name)) for name in others]
        rows.append([*shape, number(measured), *verdict(measured, floor_aim(row)), *peers])
    for aim in further_aims(results):
        rows.append([aim.text, "", "", "", number(aim.measured), *verdict(aim.measured, aim.most)] + [""] * len(others))
    return head, rows


def missed_aims(results):
    rows = [(row, results.ratio(row, STORE), floor_aim(row)) for row in results.rows()]
    missed = [
        f"({row[0]}) by maps, {row[1]} tags: {number(measured)}, at most {most}"
        for row, measured, most in rows
        if most is not None and measured is not None and measured > most
    ]
    return missed + [f"{aim.text}: {number(aim.measured)}, at most {aim.most}" for aim in further_aims(results) if not aim.is_met]


def time_table(results):
    head = ["workload", "tags", "bytes", "threads", *results.contenders]
    rows = []
    for row in results.rows():
        workload, *shape = row
        times = (results.ns.get((workload, name, *shape)) for name in results.contenders)
        rows.append([f"({workload})", *map(str, shape), *(f"{ns:.0f}" if ns else "" for ns in times)])
    return head, rows


def ability_table(results):
    rows = [[name, *results.abilities[name]] for name in results.contenders if name in results.abilities]
    return ["contender", *ABILITIES], rows


def print_aligned(head, rows):
    # The first cell of an aim's row is a long text; it may extend over the empty columns beside it.
    widths = [max(len(row[i]) for row in [head, *rows] if i > 0 or row[1] or row is head) for i in range(len(head))]
    for row in [head, *rows]:
        first = row[0].ljust(sum(widths[:4]) + 6) if row[0] and not row[1] else None
        cells = [cell.rjust(width) for cell, width in zip(row[4:], widths[4:])]
        shape = [cell.rjust(width) for cell, width in zip(row[1:4], widths[1:4])]
        print("  ".join([first, *cells] if first else [row[0].ljust(widths[0]), *shape, *cells]).rstrip())


def markdown(head, rows):
    lines = ["| " + " | ".join(cells) + " |" for cells in [head, ["---"] * len(head), *rows]]
    return "\n".join(lines) + "\n"


def cautions(results):
    """What a reader must know before trusting the table."""
    lines = [f"{name} is left out: {package} is not installed" for name, package in results.left_out.items()]
    load = results.context.get("load_avg", [0])[0]
    if load > results.context["num_cpus"] / 2:
        lines.append(f"the machine was busy (load {load:.1f}): ratios may be off by a third; run again when it is idle")
    return lines


def output_of(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    return done.stdout.strip() if done.returncode == 0 else ""


def machine(results, build):
    cache = Path(build, "CMakeCache.txt").read_text().splitlines()
    settings = dict(line.split("=", 1) for line in cache if "=" in line and not line.startswith(("#", "//")))
    compiler = settings.get("CMAKE_CXX_COMPILER:FILEPATH", settings.get("CMAKE_CXX_COMPILER:STRING", "c++"))
    model = [line.split(":", 1)[1].strip() for line in output_of("lscpu").splitlines() if line.startswith("Model name")]
    governor = Path("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor")
    flags = [settings.get("CMAKE_CXX_FLAGS:STRING", ""), settings.get("CMAKE_CXX_FLAGS_RELEASE:STRING", "")]
    return {
        "processor": f"{' '.join(model) or 'unknown'}, {results.context['num_cpus']} cores",
        "governor": governor.read_text().strip() if governor.exists() else "unknown",
        "load before the run": ", ".join(f"{load:.1f}" for load in results.context.get("load_avg", [])),
        "compiler": output_of(compiler, "--version").splitlines()[0],
        "flags": "-std=c++17 " + " ".join(flag for flag in flags if flag),
        "C library": output_of("getconf", "GNU_LIBC_VERSION"),
    }


def disassembly(program):
    lines = output_of("objdump", "-d", "--no-show-raw-insn", "--disassemble=suppressedMessage", program).splitlines()
    start = next((i for i, line in enumerate(lines) if line.endswith("<suppressedMessage>:")), len(lines))
    code = [line for line in lines[start + 1 :] if line.startswith(" ")]
    return "\n".join(code)


def report(results, facts, assembly):
    parts = ["# The benchmark's report\n"]
    parts += [markdown(["", ""], [[name, value] for name, value in facts.items()])]
    parts += ["Medians of interleaved repetitions. The first table shows times as multiples of the time of *maps*, the "]
    parts += ["floor: it does only the locking, the copying and the map operations that the store's declared data "]
    parts += ["members require. If the store has an aim, its ratio is the median of interleaved pairs of short runs.\n"]
    parts += [markdown(["workload", ""], [[f"({name})", text] for name, text in WORKLOADS.items()])]
    parts += ["## Ratios\n", markdown(*ratio_table(results))]
    parts += [f"{line}.\n" for line in cautions(results)]
    parts += ["![the store by its floor](ratios.svg)\n", "![how cost grows](growth.svg)\n"]
    parts += ["## What each can do\n", markdown(*ability_table(results))]
    parts += [f"## Nanoseconds\n\nFor one call; for {' and '.join(f'({w})' for w in PER_TAG)} all calls of one tag in a "]
    parts += ["frame; for the erases the whole call.\n", markdown(*time_table(results))]
    times = [[which, *(f"{results.hand_off(which, q)[0]:.0f}" for q in (0.5, 0.99))] for which in (STORE, "bare")]
    parts += ["## (g) Hand-offs, nanoseconds\n", markdown(["", "median", "99th percentile"], times)]
    holds = [[way, f"{ns:.1f}"] for way, ns in results.holds.items()]
    parts += ["## Holding the store for a call, nanoseconds\n", markdown(["", "median"], holds)]
    parts += ["## A suppressed message\n", f"```\n{assembly}\n```\n"]
    return "\n".join(parts)


def main():
    folder, build, check = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3:] == ["check"]
    results = Results(folder)
    facts = machine(results, build)
    assembly = disassembly(build / "bench" / "paramset_bench")
    plots.draw(results, folder)
    (folder / "report.md").write_text(report(results, facts, assembly))

    for name, value in facts.items():
        print(f"{name}: {value}")
    print("\ntimes as multiples of the time of 'maps', the floor\n")
    print_aligned(*ratio_table(results))
    for line in cautions(results):
        print(line)
    print("\nholding the store, ns:", ", ".join(f"{way} {ns:.1f}" for way, ns in results.holds.items()))
    print(f"\na suppressed message:\n{assembly}")
    for name in results.errors:
        print(f"wrong answer: {name}", file=sys.stderr)
    missed = missed_aims(results)
    print(f"\n{len(missed)} aims are not met" + "".join(f"\n  {text}" for text in missed))
    return 1 if results.errors or (check and missed) else 0


if __name__ == "__main__":
    sys.exit(main())
