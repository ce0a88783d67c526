"""The plot: what a call costs its caller, and the sustained rate, as one SVG."""

import math
from html import escape

from figures import BOOST, GLOG, LOG4CPLUS, OURS, RAW, SPDLOG, SPDLOG_SYNC

WIDTH = 960
LABELS = 150  # room for the names
PANEL = 290  # width of an axis
ROW = 24
OURS_COLOUR = "#0b6e99"
PEER_COLOUR = "#8a8f98"
INK = "#24292f"
GRID = "#e3e6ea"

LEFT = LABELS
RIGHT = LABELS + PANEL + LABELS + 40
CALLER_LOGGERS = [OURS, SPDLOG, SPDLOG_SYNC, LOG4CPLUS, BOOST, GLOG]
RATE_LOGGERS = ["channel", SPDLOG, SPDLOG_SYNC, LOG4CPLUS, BOOST, GLOG, RAW]


class Canvas:
    def __init__(self):
        self.parts = []

    def text(self, x, y, text, anchor="start", size=12, weight="normal", colour=INK):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" '
                          f'font-weight="{weight}" fill="{colour}">{escape(text)}</text>')

    def line(self, x1, y1, x2, y2, colour=GRID, width=1.0):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" '
                          f'stroke-width="{width}"/>')

    def dot(self, x, y, colour, kind):
        if kind == "p50":
            self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="5" fill="{colour}"/>')
        elif kind == "p99":
            self.parts.append(f'<rect x="{x - 4:.1f}" y="{y - 4:.1f}" width="8" height="8" fill="{colour}"/>')
        else:
            self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4" fill="#ffffff" stroke="{colour}" '
                              'stroke-width="2"/>')

    def bar(self, x, y, width, colour):
        self.parts.append(f'<rect x="{x:.1f}" y="{y - 8:.1f}" width="{width:.1f}" height="16" fill="{colour}"/>')

    def finish(self, height):
        return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" '
                f'height="{height}" font-family="sans-serif">\n<rect width="{WIDTH}" height="{height}" '
                'fill="#ffffff"/>\n' + "\n".join(self.parts) + "\n</svg>\n")


def colour_of(logger):
    return OURS_COLOUR if logger in (OURS, "channel") else PEER_COLOUR


def nanoseconds(value):
    if value >= 1e6:
        return f"{value / 1e6:g} ms"
    return f"{value / 1e3:g} us" if value >= 1e3 else f"{value:g} ns"


def draw_caller(canvas, figures, producers, top):
    low, high = 1.0, 7.0  # powers of ten: 10 ns to 10 ms

    def at(value):
        return LEFT + PANEL * (min(max(math.log10(max(value, 1)), low), high) - low) / (high - low)

    bottom = top + ROW * len(CALLER_LOGGERS)
    canvas.text(LEFT, top - 12, f"{producers} producer{'s' if producers != '1' else ''}", weight="bold")
    for power in range(int(low), int(high) + 1):
        canvas.line(at(10**power), top, at(10**power), bottom)
        canvas.text(at(10**power), bottom + 16, nanoseconds(10**power), "middle", 10)
    for i, logger in enumerate(CALLER_LOGGERS):
        y = top + ROW * (i + 0.5)
        colour = colour_of(logger)
        canvas.text(LEFT - 10, y + 4, "ours, Printf" if logger == OURS else logger, "end",
                    weight="bold" if logger == OURS else "normal")
        values = {name: figures.get("a", logger, producers, metric)
                  for name, metric in (("p50", "p50"), ("p99", "p99"), ("p99.9", "p999"))}
        if None in values.values():
            continue
        canvas.line(at(values["p50"]), y, at(values["p99.9"]), y, colour, 2)
        for name, value in values.items():
            canvas.dot(at(value), y, colour, name)
    return bottom + 60


def draw_rate(canvas, figures, producers, top):
    rates = {logger: figures.get("b", logger, producers, "krecords_per_s") for logger in RATE_LOGGERS}
    highest = max((rate for rate in rates.values() if rate), default=1)
    step = 10 ** math.floor(math.log10(highest))
    step = step if highest / step >= 3 else step / 2
    # Room for the number behind the longest bar.
    scale = PANEL / (highest * 1.15)
    bottom = top + ROW * len(RATE_LOGGERS)
    canvas.text(RIGHT, top - 12, f"{producers} producer{'s' if producers != '1' else ''}", weight="bold")
    for i in range(int(highest * 1.15 / step) + 1):
        x = RIGHT + step * i * scale
        canvas.line(x, top, x, bottom)
        canvas.text(x, bottom + 16, f"{step * i:g}", "middle", 10)
    for i, logger in enumerate(RATE_LOGGERS):
        y = top + ROW * (i + 0.5)
        canvas.text(RIGHT - 10, y + 4, "ours, channel" if logger == "channel" else logger, "end",
                    weight="bold" if logger == "channel" else "normal")
        if rates[logger]:
            canvas.bar(RIGHT, y, rates[logger] * scale, colour_of(logger))
            canvas.text(RIGHT + rates[logger] * scale + 5, y + 4, f"{rates[logger]:,.0f}", size=10)
    return bottom + 60


def draw(figures):
    canvas = Canvas()
    canvas.text(20, 28, "Cost of a call to its caller", size=15, weight="bold")
    x = 20
    for kind in ("p50", "p99", "p99.9"):
        canvas.dot(x + 5, 44, PEER_COLOUR, kind)
        canvas.text(x + 14, 48, kind, size=11)
        x += 60
    canvas.text(x, 48, "log scale", size=11)
    canvas.text(RIGHT - LABELS, 28, "Sustained, thousand records/s", size=15, weight="bold")
    canvas.text(RIGHT - LABELS, 48, "until the last record is in the file; each record handed to the kernel", size=11)
    left = right = 90
    for producers in ("1", "2", "4"):
        left = draw_caller(canvas, figures, producers, left)
    for producers in ("1", "4"):
        right = draw_rate(canvas, figures, producers, right)
    return canvas.finish(max(left, right))
