#!/usr/bin/env python3
"""A terminal's screen, as text with colour sequences on standard input, as an SVG on standard output."""

import re
import sys
from html import escape

CELL_WIDTH = 7.8
CELL_HEIGHT = 17
FONT_SIZE = 13
MARGIN = 10
INK = "#d0d0d0"
PAPER = "#1c1c1c"
SIXTEEN = ["#1c1c1c", "#d75f5f", "#5faf5f", "#d7af5f", "#5f87d7", "#af5faf", "#5fafaf", "#d0d0d0",
           "#808080", "#ff8787", "#87d787", "#ffd787", "#87afff", "#d787d7", "#87d7d7", "#ffffff"]

SEQUENCE = re.compile(r"\x1b\[([0-9;:]*)m|\x1b[()][A-Z0-9]|\x1b\][^\x07\x1b]*(?:\x07|\x1b\\)|[\x0e\x0f]")


def colour(number):
    """One of the 256 colours of a terminal."""
    if number < 16:
        return SIXTEEN[number]
    if number >= 232:
        return "#" + f"{8 + 10 * (number - 232):02x}" * 3
    steps = [0, 95, 135, 175, 215, 255]
    number -= 16
    return "#" + "".join(f"{steps[part]:02x}" for part in (number // 36, number // 6 % 6, number % 6))


class Style:
    """What the sequences so far ask for."""

    def __init__(self):
        self.reset()

    def reset(self):
        self.ink = self.paper = None
        self.bold = self.underline = self.reverse = False

    def key(self):
        ink, paper = self.ink or INK, self.paper or PAPER
        if self.reverse:
            ink, paper = paper, ink
        return ink, paper, self.bold, self.underline

    def apply(self, numbers):
        rest = iter(numbers)
        for number in rest:
            if number == 0:
                self.reset()
            elif number == 1:
                self.bold = True
            elif number == 22:
                self.bold = False
            elif number in (4, 24):
                self.underline = number == 4
            elif number in (7, 27):
                self.reverse = number == 7
            elif 30 <= number <= 37:
                self.ink = colour(number - 30)
            elif 90 <= number <= 97:
                self.ink = colour(number - 82)
            elif 40 <= number <= 47:
                self.paper = colour(number - 40)
            elif 100 <= number <= 107:
                self.paper = colour(number - 92)
            elif number == 39:
                self.ink = None
            elif number == 49:
                self.paper = None
            elif number in (38, 48):
                self.extended(number, rest)

    def extended(self, which, rest):
        kind = next(rest, None)
        if kind == 5:
            value = colour(next(rest, 0))
        elif kind == 2:
            value = "#" + "".join(f"{next(rest, 0):02x}" for _ in range(3))
        else:
            return
        if which == 38:
            self.ink = value
        else:
            self.paper = value


def runs(line, style):
    """The pieces of one line: column, text, look. The style goes on into the next line."""
    column = 0
    position = 0
    found = []
    for match in list(SEQUENCE.finditer(line)) + [None]:
        text = line[position:match.start() if match else len(line)]
        if text:
            found.append((column, text, style.key()))
            column += len(text)
        if match:
            position = match.end()
            if match.group(1) is not None:
                style.apply([int(part or 0) for part in re.split("[;:]", match.group(1))])
    return found, column


def main():
    lines = sys.stdin.read().rstrip("\n").split("\n")
    style = Style()
    rows = [runs(line, style) for line in lines]
    columns = max(width for _, width in rows)
    width, height = columns * CELL_WIDTH + 2 * MARGIN, len(rows) * CELL_HEIGHT + 2 * MARGIN
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" '
           f'font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="{FONT_SIZE}">',
           f'<rect width="100%" height="100%" rx="6" fill="{PAPER}"/>']
    texts = []
    for row, (pieces, _) in enumerate(rows):
        top = MARGIN + row * CELL_HEIGHT
        for column, text, (ink, paper, bold, underline) in pieces:
            left = MARGIN + column * CELL_WIDTH
            if paper != PAPER:
                out.append(f'<rect x="{left:.1f}" y="{top}" width="{len(text) * CELL_WIDTH:.1f}" '
                           f'height="{CELL_HEIGHT}" fill="{paper}"/>')
            bare = text.rstrip()
            if not bare:
                continue
            left += (len(bare) - len(bare.lstrip())) * CELL_WIDTH
            bare = bare.lstrip()
            look = (' font-weight="bold"' if bold else "") + (' text-decoration="underline"' if underline else "")
            # The length holds the columns together whatever font there is.
            texts.append(f'<text x="{left:.1f}" y="{top + 13}" textLength="{len(bare) * CELL_WIDTH:.1f}" '
                         f'lengthAdjust="spacingAndGlyphs" xml:space="preserve" fill="{ink}"{look}>'
                         f'{escape(bare, quote=False)}</text>')
    print("\n".join(out + texts + ["</svg>"]))


if __name__ == "__main__":
    main()
