"""The report's plots, drawn by gnuplot."""

import subprocess
from pathlib import Path

from aims import AIMED_BYTES, MOST_TO_FLOOR, floor_aim
from results import FLOOR, STORE

TAGS = (1, 32, 128, 1024)
SHOWN_TAGS = 128


def draw(results, folder):
    script = "\n".join([_ratios(results, folder), _growth(results, folder)])
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def _block(name, lines):
    return f"${name} << EOD\n" + "\n".join(lines) + "\nEOD\n"


def _curve(pairs):
    return [f"{x} {y}" for x, y in pairs if y]


def _panel(title, xlabel, options, curves):
    """One graph; curves are (name, title, points). A curve needs two points."""
    curves = [curve for curve in curves if len(curve[2]) > 1]
    if not curves:
        return ""
    data = "".join(_block(name, points) for name, _, points in curves)
    lines = ", ".join(f'${name} using 1:2 with linespoints title "{text}"' for name, text, _ in curves)
    return f'{data}\nset title "{title}"\nset xlabel "{xlabel}"\n{options}\nplot {lines}\n'


def _ratios(results, folder):
    bars = []
    for workload in MOST_TO_FLOOR:
        row = (workload, SHOWN_TAGS, AIMED_BYTES, 1)
        ratio = results.ratio(row, STORE)
        if ratio:
            bars.append(f'"({workload})" {ratio} {floor_aim(row)}')
    return f"""
set terminal svg size 800,320 background "white" noenhanced
set output "{Path(folder, 'ratios.svg')}"
{_block('bars', bars)}
set title "The store by its floor, {SHOWN_TAGS} tags of {AIMED_BYTES} bytes"
set style fill solid 0.5
set boxwidth 0.5
set yrange [0:*]
set grid ytics
set ylabel "multiple of maps"
plot $bars using 2:xtic(1) with boxes title "store", $bars using 0:3 with points pointtype 7 title "aim"
unset output
"""


def _growth(results, folder):
    ns = results.ns

    def at(workload, name, tags=SHOWN_TAGS, size=AIMED_BYTES, threads=1):
        return ns.get((workload, name, tags, size, threads))

    def curve(key, title, values):
        return key, title, _curve(values)

    names = [name for name in results.contenders if name not in ("SQLite", "LMDB", "tf2")]
    tags = [curve(f"t{i}", name, [(n, at("a", name, n)) for n in TAGS]) for i, name in enumerate(names)]
    calls = [curve(f"w{w}", f"({w})", [(n, at(w, STORE, n)) for n in TAGS]) for w in "abcd"]
    lives = (16, 200, 300)
    frames = [curve(f"f{i}", name, [(n, at(f"h-1of{n}", name)) for n in lives]) for i, name in enumerate((STORE, FLOOR))]
    counts = (1, 2, 4)
    threads = [
        curve(f"k{i}{j}", f"{name}, {kind}", [(n, at(f"k-{kind}", name, threads=n)) for n in counts])
        for i, name in enumerate((STORE, FLOOR))
        for j, kind in enumerate(("one", "several"))
    ]
    sizes = [curve(f"s{w}", f"({w})", [(n, at(w, STORE, size=n)) for n in (16, 1024)]) for w in "abcde"]
    log = "set logscale x 2\nset yrange [0:*]\nset ylabel 'ns'\nset key top left"
    linear = "unset logscale x\nset yrange [0:*]\nset ylabel 'ns'\nset key bottom right"
    return f"""
set terminal svg size 1000,1000 background "white" noenhanced
set output "{Path(folder, 'growth.svg')}"
set multiplot layout 3,2
{_panel("(a) a get by the number of tags", "tags", log, tags)}
{_panel("the store's calls by the number of tags", "tags", log, calls)}
{_panel(f"erase of one frame of {SHOWN_TAGS} tags", "live frames", linear, frames)}
{_panel("(k) a call, by threads", "threads", linear, threads)}
{_panel("the store's calls by the size of a value", "bytes", linear, sizes)}
unset multiplot
unset output
"""
