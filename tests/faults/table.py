#!/usr/bin/env python3
"""Puts what the last campaign came to between the marks of two documents: the sums, and a line for each scenario."""

import re
import sys
from collections import Counter
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
CAMPAIGN = ROOT / "build" / "campaign"
SUMMARY = ROOT / "docs" / "reliability.md"
FIGURES = ROOT / "docs" / "figures" / "campaign.md"
BEGIN = "<!-- figures of the last campaign -->"
END = "<!-- end of the figures -->"
BUILDS = ("release", "asan")
RESULTS = ("passed", "skipped", "failed")
SUMMED = ("records_verified", "kills", "forks", "rotations", "faults", "failed_allocations", "lost")


def words(case):
    """AFileThatIsGone as "a file that is gone"."""
    parts = re.findall(r"[A-Z]?[a-z']+|\d+|[A-Z](?![a-z])", case)
    return " ".join(part.lower() for part in parts)


def pairs(text):
    return [pair.split("=", 1) for pair in text.split()]


def figures_of_scenarios():
    figures = {}
    with (CAMPAIGN / "figures.csv").open() as file:
        next(file)
        for line in file:
            build, program, scenario, text = line.rstrip("\n").split(",", 3)
            figures.setdefault((build, program, scenario), []).append(pairs(text))
    return figures


def results_of_scenarios():
    results = {}
    with (CAMPAIGN / "results").open() as file:
        for result, build, program, scenario in (line.split() for line in file):
            results.setdefault((program, scenario), {})[build] = result
    return results


def readable(lines):
    def shown(name, value):
        return f"{name.replace('_', ' ')} {int(value):,}" if re.fullmatch(r"-?\d+", value) else f"{name} {value}"

    return "; ".join(", ".join(shown(*pair) for pair in line) for line in lines if line)


def cell(release, asan):
    """The figures of the release build, and those of the asan build that differ."""
    if not asan:
        return readable(release)
    if not release:
        return f"asan: {readable(asan)}"
    same_form = len(release) == len(asan)
    differing = [
        [pair for pair in line if not same_form or pair not in release[number]] for number, line in enumerate(asan)
    ]
    return readable(release) + (f"; asan: {readable(differing)}" if any(differing) else "")


def totals(results, figures):
    """Two sentences: the scenarios by build and result, the sums of the figures in SUMMED."""
    counts = Counter(outcome for outcomes in results.values() for outcome in outcomes.items())
    builds = [build for build in BUILDS if any(counts[build, one] for one in RESULTS)]
    sums = Counter()
    for (build, _, _), lines in figures.items():
        for name, value in (pair for line in lines for pair in line if pair[0] in SUMMED):
            sums[build, name] += int(value)
    scenarios = "; ".join(
        f"{build} " + ", ".join(f"{counts[build, one]} {one}" for one in RESULTS if counts[build, one])
        for build in builds
    )
    shown = "; ".join(
        f"{name.replace('_', ' ')} " + " and ".join(f"{sums[build, name]:,}" for build in builds) for name in SUMMED
    )
    return f"Scenarios: {scenarios}. Sums in {' and '.join(builds)}: {shown}."


def rows(results, figures):
    last = None
    for (program, scenario), builds in sorted(results.items()):
        if program != last:
            yield f"| **{program.replace('_test', '').replace('_', ' ')}** | | |"
            last = program
        names = scenario.split("/")
        case = next(name.split(".")[1] for name in names if "." in name)
        parameter = names[-1] if "." not in names[-1] else ""
        shown = words(case) + (f" ({parameter})" if parameter else "")
        outcome = ", ".join(f"{build} {builds[build]}" for build in sorted(builds, reverse=True))
        both = cell(*(figures.get((build, program, scenario), []) for build in BUILDS))
        yield f"| {shown} | {outcome} | {both} |"


def replace(document, text):
    """Puts `text` between the marks of `document`."""
    old = document.read_text()
    if old.count(BEGIN) != 1 or old.count(END) != 1:
        sys.exit(f"{document}: the marks of the figures are missing")
    head, rest = old.split(BEGIN)
    document.write_text(f"{head}{BEGIN}\n\n{text}\n\n{END}{rest.split(END)[1]}")


def main():
    results, figures = results_of_scenarios(), figures_of_scenarios()
    replace(SUMMARY, totals(results, figures))
    replace(FIGURES, "\n".join(["| scenario | result | figures |", "|---|---|---|", *rows(results, figures)]))


if __name__ == "__main__":
    main()
