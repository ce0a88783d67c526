#!/usr/bin/env python3
"""Draws what load_run sampled: memory, threads and descriptors over time, as one SVG.

    plot.py CSV SVG
"""

import csv
import sys
from html import escape
from pathlib import Path

WIDTH = 960
LEFT = 70
RIGHT = 20
PANEL = 130  # height of a plot
GAP = 56
TOP = 70
INK = "#24292f"
FAINT = "#57606a"
GRID = "#e3e6ea"
LINE = "#0b6e99"
WARM_UP = "#f3f6f8"


def read(path):
    with open(path, newline="") as file:
        rows = [{name: float(value) for name, value in row.items()} for row in csv.DictReader(file)]
    if len(rows) < 2:
        sys.exit(f"{path}: fewer than two samples")
    return rows


def ceiling(value):
    """The least of 1, 2, 5, 10, 20, ... that is not below `value`: the top of an axis that begins at 0."""
    step = 1
    while True:
        for factor in (1, 2, 5):
            if factor * step >= value:
                return factor * step
        step *= 10


def text(x, y, words, anchor="start", size=12, weight="normal", colour=INK):
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" font-size="{size}" font-weight="{weight}" '
            f'fill="{colour}">{escape(words)}</text>')


def line(x1, y1, x2, y2, colour=GRID):
    return f'<line x1="{x1:.0f}" y1="{y1:.0f}" x2="{x2:.0f}" y2="{y2:.0f}" stroke="{colour}"/>'


def panel(top, title, times, values):
    """One series over time. Its axis begins at 0, so that flat looks flat."""
    width = WIDTH - LEFT - RIGHT
    bottom = top + PANEL
    end = times[-1]
    highest = ceiling(max(values) * 1.1)

    def across(seconds):
        return LEFT + width * seconds / end

    def up(value):
        return bottom - PANEL * value / highest

    warm = times[max(1, len(times) // 5) - 1]
    parts = [f'<rect x="{LEFT}" y="{top}" width="{across(warm) - LEFT:.0f}" height="{PANEL}" fill="{WARM_UP}"/>',
             text(LEFT, top - 10, title, size=13, weight="bold"),
             text(WIDTH - RIGHT, top - 10, f"{min(values):g} to {max(values):g}", "end", colour=FAINT)]
    for quarter in range(5):
        value = highest * quarter / 4
        parts += [line(LEFT, up(value), WIDTH - RIGHT, up(value)),
                  text(LEFT - 8, up(value) + 4, f"{value:g}", "end", 11, colour=FAINT)]
    step = ceiling(end / 8)
    for i in range(int(end / step) + 1):
        parts.append(text(across(i * step), bottom + 16, f"{i * step:g} s", "middle", 11, colour=FAINT))
    points = " ".join(f"{across(t):.1f},{up(v):.1f}" for t, v in zip(times, values))
    parts.append(f'<polyline points="{points}" fill="none" stroke="{LINE}" stroke-width="1.5"/>')
    return parts


def draw(rows):
    times = [row["seconds"] for row in rows]
    height = TOP + 3 * (PANEL + GAP)
    last = rows[-1]
    parts = [text(20, 26, "A host under load", size=15, weight="bold"),
             text(20, 44, f"{last['records'] / 1e6:.1f} million records, {last['rotations']:.0f} rotations, "
                  f"{times[-1]:.0f} s; one sample a second; the first fifth is shaded: what comes later is held "
                  "against it", colour=FAINT)]
    series = [("Resident memory, MB", [round(row["rss_kb"] / 1024, 1) for row in rows]),
              ("Threads", [row["threads"] for row in rows]),
              ("Open descriptors", [row["descriptors"] for row in rows])]
    for i, (title, values) in enumerate(series):
        parts += panel(TOP + 10 + i * (PANEL + GAP), title, times, values)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" '
            f'height="{height}" font-family="sans-serif">\n<rect width="{WIDTH}" height="{height}" fill="#ffffff"/>\n'
            + "\n".join(parts) + "\n</svg>\n")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    Path(sys.argv[2]).write_text(draw(read(sys.argv[1])))


if __name__ == "__main__":
    main()
