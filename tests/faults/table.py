#!/usr/bin/env python3
"""Puts what the last campaign came to into docs/reliability.md, between its two marks."""

import csv
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
CAMPAIGN = ROOT / "build" / "campaign"
DOCUMENT = ROOT / "docs" / "reliability.md"
BEGIN = "<!-- figures of the last campaign -->"
END = "<!-- end of the figures -->"


def words(case):
    """AFileThatIsGone as "a file that is gone"."""
    parts = re.findall(r"[A-Z]?[a-z']+|\d+|[A-Z](?![a-z])", case)
    return " ".join(part.lower() for part in parts)


def figures_of_scenarios():
    figures = {}
    with (CAMPAIGN / "figures.csv").open() as file:
        next(file)
        for line in file:
            build, scenario, text = line.rstrip("\n").split(",", 2)
            figures.setdefault((build, scenario), []).append(text)
    return figures


def readable(texts):
    def pair(text):
        name, value = text.split("=", 1)
        return f"{name.replace('_', ' ')} {int(value):,}" if re.fullmatch(r"-?\d+", value) else f"{name} {value}"

    return "; ".join(", ".join(map(pair, text.split())) for text in texts)


def rows():
    results = {}
    with (CAMPAIGN / "results").open() as file:
        for result, build, program, scenario in (line.split() for line in file):
            results.setdefault((program, scenario), {})[build] = result
    figures = figures_of_scenarios()
    last = None
    for (program, scenario), builds in sorted(results.items()):
        if program != last:
            yield f"| **{program.removesuffix('_test').replace('_', ' ')}** | | |"
            last = program
        names = scenario.split("/")
        case = next(name.split(".")[1] for name in names if "." in name)
        parameter = names[-1] if "." not in names[-1] else ""
        shown = words(case) + (f" ({parameter})" if parameter else "")
        outcome = ", ".join(f"{build} {builds[build]}" for build in sorted(builds, reverse=True))
        build = "release" if builds.get("release") == "passed" else "asan"
        yield f"| {shown} | {outcome} | {readable(figures.get((build, scenario), []))} |"


def main():
    text = DOCUMENT.read_text()
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        sys.exit(f"{DOCUMENT}: the marks of the figures are missing")
    table = "\n".join(["| scenario | result | figures |", "|---|---|---|", *rows()])
    head, rest = text.split(BEGIN)
    DOCUMENT.write_text(f"{head}{BEGIN}\n\n{table}\n\n{END}{rest.split(END)[1]}")


if __name__ == "__main__":
    main()
