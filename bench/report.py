#!/usr/bin/env python3
"""Makes tables, the list of targets and the plot from the measured figures."""

import csv
import statistics
import sys
from pathlib import Path

import environment
import plot
from figures import (ARCHIVE_COUNTS, BOOST, COMPRESSORS, FILE_SIZES, LEVELS, LOG4CPLUS, OURS, PEERS, RAW, SETTINGS,
                     SPDLOG, TARGETS, TEXTS, TITLES)

RESULTS = Path(__file__).resolve().parent.parent / "build" / "bench-results"


class Figures:
    """Medians over the rounds."""

    def __init__(self, directory):
        values = {}
        self.runs = {}
        with (directory / "results.csv").open(newline="") as file:
            for row in csv.DictReader(file):
                key = (row["figure"], row["subject"], row["setting"], row["metric"])
                values.setdefault(key, []).append(float(row["value"]))
                started, rounds = self.runs.get(row["figure"], (row["run"], 0))
                self.runs[row["figure"]] = (started, max(rounds, int(row["round"])))
        self.medians = {key: statistics.median(rounds) for key, rounds in values.items()}

    def get(self, figure, subject, setting, metric):
        return self.medians.get((figure, subject, setting, metric))

    def worst(self, figure, metric):
        return max((value for key, value in self.medians.items() if key[0] == figure and key[3] == metric),
                   default=None)


def number(value):
    """Three digits that count."""
    if value is None:
        return "-"
    if value == int(value) and abs(value) < 1e15:
        return f"{int(value):,}"
    if abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


def ratio(ours, other):
    if ours is None or not other:
        return "-"
    return f"{ours / other:.3f}" if ours / other < 0.1 else f"{ours / other:.2f}"


def producers_text(count):
    return "1 producer" if count == "1" else f"{count} producers"


def caller_tables(f):
    metrics = ["p50", "p99", "p999", "mean", "first_p50", "first_p99"]
    head = ["", "p50", "p99", "p99.9", "mean", "first burst: p50", "p99", "Printf/it: p50", "p99", "p99.9"]
    for producers in ("1", "2", "4"):
        rows = []
        for subject in [OURS, "Trace", "AppTrace", *PEERS]:
            own = [f.get("a", subject, producers, metric) for metric in metrics]
            ours = [f.get("a", OURS, producers, metric) for metric in metrics]
            ratios = [ratio(o, v) if subject in PEERS else "" for o, v in zip(ours[:3], own)]
            rows.append([subject, *map(number, own), *ratios])
        yield f"{producers_text(producers)}, after a first burst of 30,000", head, rows
    yield "The clock", ["", "ns"], [["a measured call of nothing", number(f.worst("a", "clock_ns"))],
                                    ["step, to within 1", number(f.worst("a", "clock_step_ns"))]]


def sustained_tables(f):
    for producers in ("1", "4"):
        ours = f.get("b", "channel", producers, "krecords_per_s")
        rows = []
        for subject in ["channel", *PEERS, RAW]:
            rate = f.get("b", subject, producers, "krecords_per_s")
            rows.append([subject, number(rate), number(f.get("b", subject, producers, "cpu_ns_per_record")),
                         ratio(ours, rate) if subject != "channel" else "",
                         number(f.get("b", subject, producers, "records"))])
        yield (producers_text(producers), ["", "thousand/s", "CPU ns a record", "channel/it", "records"], rows)
    metrics = ["krecords_per_s", "p50", "p99", "p999", "archives", "compression", "refused", "lost"]
    rows = [["manager", *[number(f.get("b", "manager, paced", "rotating", metric)) for metric in metrics]]]
    yield ("Once, through the manager, one file of 50 MB in 1.2 s rotated and compressed on the way, 1 producer",
           ["", "thousand/s", "p50 ns", "p99", "p99.9", "archives", "compressed by", "refused", "lost"], rows)


def filtered_tables(f):
    rows = []
    for subject, setting in ((OURS, "ring 100"), ("Trace", "ring 100"), (OURS, "ring 0"), ("Trace", "ring 0"),
                             (SPDLOG, "ring 100")):
        own = f.get("c", subject, setting, "p50")
        rows.append(["spdlog, backtrace 100" if subject == SPDLOG else f"{subject}, {setting}", number(own),
                     number(f.get("c", subject, setting, "mean")),
                     ratio(own, f.get("c", SPDLOG, "ring 100", "p50")),
                     ratio(own, f.get("c", OURS, "ring 100", "p50"))])
    yield ("Median and mean of batches of 100 calls; Trace is handed a ready text, the others format",
           ["", "p50", "mean", "it/spdlog", "it/Printf, ring 100"], rows)


def idle_tables(f):
    rows = [[subject, number(f.get("d", subject, "", "cpu_ms")), number(f.get("d", subject, "", "switches")),
             ratio(f.get("d", OURS, "", "cpu_ms"), f.get("d", subject, "", "cpu_ms")) if subject != OURS else ""]
            for subject in [OURS, *PEERS]]
    yield "One voluntary switch is the measuring thread's own", ["", "ms of CPU", "switches", "Printf/it"], rows


def memory_tables(f):
    ours = f.get("e", OURS, "", "peak_mb")
    rows = []
    for subject in (OURS, SPDLOG, LOG4CPLUS, BOOST):
        metrics = ("peak_mb", "before_mb", "after_mb", "queued")
        cells = [number(f.get("e", subject, "", metric)) for metric in metrics]
        rows.append([subject, *cells, ratio(ours, f.get("e", subject, "", "peak_mb")) if subject != OURS else ""])
    yield ("The output is stalled, by a pipe in place of the file or a value that waits to be printed; then it goes on",
           ["", "peak", "before", "resident after", "records", "Printf/it"], rows)


def rotation_tables(f):
    metrics = ["p50", "p99", "p999", "rotating_p50", "rotating_p99", "rotating_p999", "rotating_calls", "rotating_ms",
               "archives", "compression", "refused", "lost"]
    head = ["", "p50", "p99", "p99.9", "rotating: p50", "p99", "p99.9", "calls", "ms", "rotations", "compressed by",
            "refused", "lost"]
    rows = [[setting, *[number(f.get("f", "Trace", setting, metric)) for metric in metrics]]
            for setting in ("25,000/s, 5 MB", "50,000/s, 50 MB")]
    yield ("Trace through the manager, 2 producers, varied text; of all calls, and of those while a file is compressed",
           head, rows)


def config_tables(f):
    rows = []
    for setting in ("1,000 lines", "100,000 lines"):
        plain = f.get("g", "configuration", setting, "getline_us")
        every = f.get("g", "configuration", setting, "all_items_us")
        last = f.get("g", "configuration", setting, "last_item_us")
        rows.append([setting, number(every), number(last), number(plain), ratio(every, plain), ratio(last, plain)])
    yield ("", ["", "VeltAllCfgItem", "VeltGetCfgInt, last item", "std::getline loop", "all/loop", "last/loop"], rows)


def compression_tables(f):
    rows = []
    for text, name in TEXTS.items():
        isal, zlib = ([f.get("h", subject, text, metric) for metric in ("cpu_ms", "archive_bytes")]
                      for subject in COMPRESSORS)
        rows.append([name, number(zlib[0]), number(isal[0]), ratio(isal[0], zlib[0]), number(zlib[1]), number(isal[1]),
                     ratio(isal[1], zlib[1])])
    yield ("", ["", "zlib, ms", "ISA-L, ms", "ISA-L/zlib", "zlib, bytes", "ISA-L, bytes", "ISA-L/zlib"], rows)
    rows = []
    for level in LEVELS:
        row = [level.replace("_", " ")]
        for text in TEXTS:
            milliseconds = f.get("h", "levels", text, level + "_cpu_ms")
            size = f.get("h", "levels", text, level + "_bytes")
            row += [ratio(milliseconds, f.get("h", "zlib", text, "cpu_ms")),
                    ratio(size, f.get("h", "zlib", text, "archive_bytes"))]
        rows.append(row)
    yield ("Each level of ISA-L and room for its blocks, in memory, against zlib above: CPU and archive (64k: written in "
           "pieces of 64 KB instead of 8)",
           ["", *[f"{name}: {what}" for name in TEXTS.values() for what in ("CPU", "archive")]], rows)


def unpaced_tables(f):
    metrics = ["p50", "p99", "p999", "waits", "longest_ms", "archives", "refused", "lost"]
    rows = []
    for producers in ("1", "4"):
        bare_rate = f.get("i", RAW, producers, "krecords_per_s")
        bare_cpu = f.get("i", RAW, producers, "writer_cpu_ns")
        rows.append([f"{RAW}, {producers_text(producers)}", number(bare_rate), "", number(bare_cpu), ""])
        rows[-1] += [""] * len(metrics)
        for size in FILE_SIZES:
            get = [f.get("i", OURS, f"{producers}, {size}", metric)
                   for metric in ["krecords_per_s", "writer_cpu_ns", *metrics]]
            rows.append([f"{OURS}, {producers_text(producers)}, {size}", number(get[0]), ratio(get[0], bare_rate),
                         number(get[1]), ratio(bare_cpu, get[1]), *map(number, get[2:])])
    yield ("Through the manager; writing CPU is the output thread's for a record, compression included, or the bare "
           "writers'; waits are calls of a millisecond and more; refused and lost by GetCounts, every record read back",
           ["", "thousand/s", "it/bare", "writing CPU ns", "bare/it", "p50 ns", "p99", "p99.9", "waits", "longest ms",
            "archives", "refused", "lost"], rows)
    rows = [[setting, *[number(f.get("i", "rotation", setting, f"scan_{metric}")) for metric in ("p50", "max")]]
            for setting in (f"{archives:,} archives" for archives in ARCHIVE_COUNTS)]
    yield ("What a rotation takes beside compressing and opening: two listings of the directory, and one archive "
           "deleted; CPU ns", ["", "p50", "longest"], rows)


TABLES = {"a": caller_tables, "b": sustained_tables, "c": filtered_tables, "d": idle_tables, "e": memory_tables,
          "f": rotation_tables, "g": config_tables, "h": compression_tables,
          "i": unpaced_tables}


def targets(f, wanted):
    for target in TARGETS:
        if target.figure not in wanted:
            continue
        reached = f.get(target.figure, *target.above)
        if reached is not None and target.below is not None:
            base = f.get(target.figure, *target.below)
            reached = reached / base if base else None
        sign = ">=" if target.at_least else "<="
        limit = f"{sign} {target.limit:,g}" + (f" (better {sign} {target.better:g})" if target.better else "")
        if reached is None:
            verdict = "not measured"
        elif target.at_least:
            verdict = "met" if reached >= target.limit else "short"
        else:
            verdict = "met" if reached <= target.limit else "short"
        if verdict == "met" and target.better and reached <= target.better:
            verdict = "met, better"
        shown = "-" if reached is None else f"{reached:,.0f}" if reached >= 100 else f"{reached:.3f}"
        yield [target.text, shown, limit, verdict]


TARGET_HEAD = ["", "reached", "target", ""]


def aligned(head, rows):
    widths = [max(len(row[i]) for row in [head, *rows]) for i in range(len(head))]
    for row in [head, *rows]:
        cells = [row[0].ljust(widths[0]), *[cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]]
        yield "  " + "  ".join(cells).rstrip()


def piped(head, rows):
    yield "| " + " | ".join(head) + " |"
    yield "|" + "---|" + "---:|" * (len(head) - 1)
    for row in rows:
        yield "| " + " | ".join(row) + " |"


def heading(f, figure):
    started, rounds = f.runs[figure]
    load = f.get(figure, "machine", "", "load")
    return (f"({figure}) {TITLES[figure]}; median of {rounds} round{'s' if rounds > 1 else ''}, {started}"
            + ("" if load is None else f", load {load:.1f} at its start"))


def as_text(directory, wanted=None):
    f = Figures(directory)
    wanted = [figure for figure in (wanted or TITLES) if figure in f.runs]
    lines = []
    for figure in wanted:
        lines += ["", heading(f, figure)]
        for caption, head, rows in TABLES[figure](f):
            lines += [""] + ([caption] if caption else []) + list(aligned(head, rows))
    reached = list(targets(f, wanted))
    lines += ["", "Targets", ""] + list(aligned(TARGET_HEAD, reached))
    return "\n".join(lines) + "\n"


def as_markdown(directory):
    f = Figures(directory)
    lines = ["| machine | |", "|---|---|"]
    lines += [f"| {name} | {text} |" for name, text in environment.load(directory)]
    lines += ["", "| settings | |", "|---|---|"]
    lines += [f"| {name} | {text} |" for name, text in SETTINGS.items()]
    for figure in (figure for figure in TITLES if figure in f.runs):
        lines += ["", f"## {heading(f, figure)}", "", f"`scripts/bench.sh {figure}`"]
        for caption, head, rows in TABLES[figure](f):
            lines += [""] + ([caption + ":", ""] if caption else []) + list(piped(head, rows))
    return "\n".join(lines) + "\n"


def write_all(directory):
    (directory / "tables.txt").write_text(as_text(directory))
    (directory / "tables.md").write_text(as_markdown(directory))
    (directory / "plot.svg").write_text(plot.draw(Figures(directory)))


def main():
    form = sys.argv[1] if len(sys.argv) > 1 else "tables"
    directory = Path(sys.argv[2]) if len(sys.argv) > 2 else RESULTS
    if not (directory / "results.csv").exists():
        print(f"nothing measured yet: {directory}/results.csv is missing", file=sys.stderr)
        return 1
    print(as_markdown(directory) if form == "markdown" else as_text(directory), end="")
    return 0


if __name__ == "__main__":
    sys.exit(main())
