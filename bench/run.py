#!/usr/bin/env python3
"""Runs the figures: round by round, one process after the other, and prints the tables."""

import argparse
import csv
import datetime
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import environment
import figures
import report

ROOT = Path(__file__).resolve().parent.parent
PROGRAMS = ROOT / "build" / "bench" / "bench"
FIELDS = ["figure", "run", "round", "subject", "setting", "metric", "value"]


class Run:
    def __init__(self, arguments):
        self.arguments = arguments
        self.started = datetime.datetime.now().strftime("%Y-%m-%d %H:%M")
        self.scratch_root = os.environ.get("VELT_BENCH_DIR") or os.environ.get("TMPDIR") or "/tmp"
        self.rows = []
        self.failures = []

    def start(self, job):
        scratch = tempfile.mkdtemp(prefix="velt_bench_", dir=self.scratch_root)
        os.mkdir(os.path.join(scratch, "log"))
        program, action, *options = job.command
        command = [str(self.arguments.programs / program), action, "--dir", scratch, *options]
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        return process, scratch

    def finish(self, figure, number, job, process, scratch):
        try:
            output, errors = process.communicate(timeout=job.timeout)
            if process.returncode != 0:
                raise RuntimeError(errors.strip() or f"ended with {process.returncode}")
            # A logger's own output on standard output comes before the result.
            for metric, value in json.loads(output.splitlines()[-1]).items():
                row = (figure, self.started, number, job.subject, job.setting, metric, value)
                self.rows.append(dict(zip(FIELDS, row)))
        except (subprocess.TimeoutExpired, RuntimeError, ValueError, IndexError) as problem:
            process.kill()
            process.communicate()
            failure = f"figure {figure}, round {number}, {job.subject} {job.setting}: {problem}"
            print(f"FAILED: {failure}", flush=True)
            self.failures.append(failure)
        finally:
            shutil.rmtree(scratch, ignore_errors=True)

    def measure(self, figure):
        started = time.monotonic()
        rounds = self.arguments.rounds * figures.MORE_ROUNDS.get(figure, 1)
        load = (figure, self.started, 1, "machine", "", "load", os.getloadavg()[0])
        self.rows.append(dict(zip(FIELDS, load)))
        print(f"== figure {figure}: {figures.TITLES[figure]}", end="", flush=True)
        for number in range(1, rounds + 1):
            jobs = figures.jobs_of(figure, self.arguments.quick, number, self.arguments.records)
            # No logger always follows the same one.
            jobs = jobs[(number - 1) % len(jobs):] + jobs[:(number - 1) % len(jobs)]
            if figure == "d":  # idle processes do not disturb each other
                running = [(job, *self.start(job)) for job in jobs]
                for job, process, scratch in running:
                    self.finish(figure, number, job, process, scratch)
            else:
                for job in jobs:
                    self.finish(figure, number, job, *self.start(job))
            print(f" {number}", end="", flush=True)
        print(f" ({time.monotonic() - started:.0f} s)", flush=True)

    def save(self, measured):
        """Rows of figures that were not measured now stay as they were."""
        path = self.arguments.results / "results.csv"
        kept = []
        if path.exists():
            with path.open(newline="") as file:
                kept = [row for row in csv.DictReader(file) if row["figure"] not in measured]
        rows = sorted(kept + self.rows, key=lambda row: row["figure"])
        with path.open("w", newline="") as file:
            writer = csv.DictWriter(file, FIELDS)
            writer.writeheader()
            writer.writerows(rows)


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench.sh")
    parser.add_argument("figures", nargs="*", metavar="figure", help="a to i; all by default")
    parser.add_argument("--rounds", type=int, help="5 by default")
    parser.add_argument("--quick", action="store_true", help="one round of small counts")
    parser.add_argument("--records", type=int, default=2_000_000, help="of each run of figure b")
    parser.add_argument("--programs", type=Path, default=PROGRAMS, help="where they were built")
    parser.add_argument("--results", type=Path, default=ROOT / "build" / "bench-results")
    arguments = parser.parse_args()
    arguments.figures = sorted(set(arguments.figures or figures.TITLES))
    unknown = [name for name in arguments.figures if name not in figures.TITLES]
    if unknown:
        parser.error("no figure " + ", ".join(unknown))
    if arguments.rounds is None:
        arguments.rounds = 1 if arguments.quick else 5
    if arguments.rounds < 1:
        parser.error("at least one round")
    return arguments


def main():
    arguments = parse_arguments()
    arguments.results.mkdir(parents=True, exist_ok=True)
    if arguments.quick and arguments.results == ROOT / "build" / "bench-results":
        arguments.results = arguments.results / "quick"  # figures of small counts do not replace real ones
        arguments.results.mkdir(exist_ok=True)
    load = os.getloadavg()[0]
    if load > 0.5:
        print(f"The machine is busy (load {load:.1f}): the figures will be noisy.", flush=True)
    run = Run(arguments)
    environment.save(arguments.results, run.scratch_root)
    for figure in arguments.figures:
        run.measure(figure)
    run.save(arguments.figures)
    report.write_all(arguments.results)
    print(report.as_text(arguments.results, arguments.figures))
    print(f"Written: {arguments.results}/results.csv, tables.txt, tables.md, plot.svg")
    if run.failures:
        print(f"\n{len(run.failures)} FAILED:", *run.failures, sep="\n")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
