#!/usr/bin/env python3
"""Puts the figures of the last campaign into docs/reliability.md, between its two marks."""

import csv
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
FIGURES = ROOT / "build" / "campaign" / "figures.csv"
DOCUMENT = ROOT / "docs" / "reliability.md"
BEGIN = "<!-- figures of the last campaign -->"
END = "<!-- end of the figures -->"


def sentence(name):
    """AFileThatIsGone/1 as "a file that is gone (1)"."""
    suite, _, case = name.partition(".")
    case, _, parameter = case.partition("/")
    words = re.findall(r"[A-Z]?[a-z']+|\d+|[A-Z](?![a-z])", case)
    text = " ".join(word.lower() if not word.isupper() or len(word) == 1 else word for word in words)
    parameter = parameter or (suite.split("/")[1] if "/" in suite and not suite.startswith("Threads") else "")
    return text + (f" ({parameter})" if parameter else "")


def rows(path):
    with path.open(newline="") as file:
        reader = csv.reader(file)
        next(reader)
        for build, name, figures in sorted(reader, key=lambda row: (row[1], row[0] != "release")):
            pairs = (pair.split("=", 1) for pair in figures.split())
            shown = ", ".join(f"{key.replace('_', ' ')} {int(value):,}" if re.fullmatch(r"-?\d+", value) else
                              f"{key.replace('_', ' ')} {value}" for key, value in pairs)
            yield f"| {sentence(name)} | {build} | {shown} |"


def main():
    text = DOCUMENT.read_text()
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        sys.exit(f"{DOCUMENT}: the marks of the figures are missing")
    table = "\n".join(["| scenario | build | figures |", "|---|---|---|", *rows(FIGURES)])
    head, rest = text.split(BEGIN)
    DOCUMENT.write_text(f"{head}{BEGIN}\n\n{table}\n\n{END}{rest.split(END)[1]}")


if __name__ == "__main__":
    main()
