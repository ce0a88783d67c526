"""What is measured: for each figure the runs of one round, and the tables and targets made of them."""

from dataclasses import dataclass

OURS = "Printf"
SPDLOG = "spdlog async"
SPDLOG_SYNC = "spdlog sync"
LOG4CPLUS = "log4cplus async"
BOOST = "Boost.Log async"
GLOG = "glog"
RAW = "bare write(2)"

PROGRAMS = {
    "Printf": ["velt_manager", "--road", "printf"],
    "Trace": ["velt_manager", "--road", "trace"],
    "an empty call": ["velt_manager", "--road", "nothing"],
    "AppTrace": ["velt_manager", "--road", "apptrace"],
    "velt/log.h": ["velt_manager", "--road", "log"],
    "channel": ["velt_channel"],
    SPDLOG: ["spdlog_logger", "--mode", "async"],
    SPDLOG_SYNC: ["spdlog_logger", "--mode", "sync"],
    LOG4CPLUS: ["log4cplus_logger"],
    BOOST: ["boost_logger"],
    GLOG: ["glog_logger"],
    RAW: ["raw_write"],
}
PEERS = [SPDLOG, SPDLOG_SYNC, LOG4CPLUS, BOOST, GLOG]

# A filtered call is measured in milliseconds, while a virtual processor stays at one of two speeds for longer. So many
# times more rounds even that out.
MORE_ROUNDS = {"c": 4}

TITLES = {
    "a": "Cost of a call to its caller, ns, in bursts of 20,000 records a producer, which fit the queue",
    "b": "Sustained thousand records/s until the last record is in the file",
    "c": "A filtered call, ns",
    "d": "CPU of an idle logger, 5 s",
    "e": "Peak memory with a full queue, MB",
    "f": "What rotation with compression costs callers that keep tracing, ns",
    "g": "Configuration look-ups, us",
    "h": "Compressing a finished file of 50 MB: CPU and archive",
    "i": "Tracing varied text without a pause while files rotate and are compressed",
}

SETTINGS = {
    "Printf, velt/log.h, Trace, AppTrace": "through the manager, 16 registered modules taken in turn, nEachFileMaxSize 50, "
    "nFiltLogBufSize 100; the queue admits 10,240,000 bytes of records, about 128,000",
    "channel": "a VeltDebugInfo of its own with a file limit of 2,000,000,000 bytes; text formatted by the host",
    SPDLOG: "one pool thread, queue 131,072, block on overflow, 16 loggers over one rotating_file_sink_mt of 1 GB, "
    "flush_on(trace); filtered calls through one of the loggers, so that there is one ring",
    SPDLOG_SYNC: "the same sink and loggers without the pool",
    LOG4CPLUS: "AsyncAppender, queue 131,072, over a RollingFileAppender of 1 GB with ImmediateFlush, 16 loggers",
    BOOST: "asynchronous_sink with bounded_fifo_queue<131072, block_on_overflow> over text_file_backend of 1 GB "
    "with auto_flush; 16 channel_logger for each thread",
    GLOG: "logbuflevel -1, max_log_size 1,000; it has no queue and no modules: the file name takes their place",
    "isal, zlib": "GZCompress, reading of the file included; zlib is -DVELT_GZIP=zlib. dpkg.log is this machine's, repeated; "
    "hex is 64 random digits a line",
    RAW: "one write(2) of a ready line for each record; with several producers under a mutex; in (i) with the lines "
    "that the library writes, into one file",
}


@dataclass
class Job:
    """One process of a round."""

    subject: str
    setting: str
    command: list
    timeout: int = 180


def program(subject, action, **options):
    name, *fixed = PROGRAMS[subject]
    command = [name, action, *fixed]
    for key, value in options.items():
        command += ["--" + key.replace("_", "-"), str(value)]
    return command


def caller_jobs(quick):
    for producers in (1, 2, 4):
        for subject in [OURS, "velt/log.h", "Trace", "AppTrace", *PEERS]:
            bursts = 1 if quick else (3 if producers == 4 else 5)  # with the first one, below one file's limit
            command = program(subject, "caller", producers=producers, bursts=bursts)
            yield Job(subject, str(producers), command)


# The slow ones get half the records, so that the whole run stays well below 15 minutes; their rate is the same.
SLOW = [LOG4CPLUS, BOOST, GLOG]


def sustained_jobs(quick, number, records):
    for producers in (1, 4):
        for subject in ["channel", *PEERS, RAW]:
            count = records // 2 if subject in SLOW else records
            count = count // 20 if quick else count
            yield Job(subject, str(producers), program(subject, "sustained", producers=producers, records=count))
    if number > 1:
        return
    # Once: one file in 1.2 s.
    lines_in_file = 50 * 1_048_576 // 128
    count = lines_in_file * 5 // 4 if quick else 2_000_000
    command = ["velt_rotation", "run", "--producers", "1", "--records", str(count)]
    yield Job("manager, paced", "rotating", [*command, "--rate", str(lines_in_file * 10 // 12), "--file-mb", "50"])


def filtered_jobs(quick):
    batches = 300 if quick else 3_000
    for subject, ring in ((OURS, 100), ("Trace", 100), (OURS, 0), ("Trace", 0), ("an empty call", 0), (SPDLOG, 100)):
        yield Job(subject, f"ring {ring}", program(subject, "filtered", ring=ring, batches=batches))


def idle_jobs(quick):
    for subject in [OURS, *PEERS]:
        yield Job(subject, "", program(subject, "idle", seconds=1 if quick else 5))


def memory_jobs(_quick):
    for subject in (OURS, SPDLOG, LOG4CPLUS, BOOST):
        yield Job(subject, "", program(subject, "full-queue"))


def rotation_jobs(quick):
    # Four files of 5 MB, or one and a bit of 50 MB, each slower than one file a second.
    for rate, file_mb, records in ((25_000, 5, 180_000), (50_000, 50, 520_000)):
        if quick and file_mb == 50:
            continue
        command = ["velt_rotation", "run", "--producers", "2", "--records", str(records // (3 if quick else 1))]
        command += ["--rate", str(rate), "--file-mb", str(file_mb), "--text", "varied"]
        yield Job("Trace", f"{rate:,}/s, {file_mb} MB", command)


def config_jobs(quick):
    for lines, repeats in ((1_000, 200), (100_000, 9)):
        count = max(3, repeats // 10) if quick else repeats
        command = ["velt_config", "run", "--lines", str(lines), "--repeats", str(count)]
        yield Job("configuration", f"{lines:,} lines", command)


COMPRESSORS = {"isal": "velt_compression", "zlib": "velt_compression_zlib"}
TEXTS = {"varied": "varied trace lines", "dpkg": "dpkg.log", "hex": "random hex"}
LEVELS = [f"level_{level}_{room}" for level, rooms in
          ((1, ("small", "medium", "medium_64k", "large", "extra_large")), (2, ("small", "medium", "extra_large")),
           (3, ("small", "medium", "extra_large"))) for room in rooms]


def compression_jobs(quick):
    megabytes = ["--mb", "5" if quick else "50"]
    for text in TEXTS:
        for subject, name in COMPRESSORS.items():
            yield Job(subject, text, [name, "run", "--text", text, *megabytes])
        yield Job("levels", text, ["velt_compression", "levels", "--text", text, *megabytes])


FILE_SIZES = ("5 MB", "50 MB")
ARCHIVE_COUNTS = (200, 5_000)


def unpaced_jobs(quick):
    for producers in (1, 4):
        common = ["--producers", str(producers), "--records", "500000" if quick else "2000000"]
        yield Job(RAW, str(producers), ["velt_sustained", "bare", *common])
        for size in FILE_SIZES:
            yield Job(OURS, f"{producers}, {size}", ["velt_sustained", "run", *common, "--file-mb", size.split()[0]])
    for archives in ARCHIVE_COUNTS:
        yield Job("rotation", f"{archives:,} archives", ["velt_sustained", "scan", "--archives", str(archives)])


def jobs_of(figure, quick, number, records):
    """The runs of round `number`, the first being 1."""
    makers = {
        "a": caller_jobs,
        "b": lambda q: sustained_jobs(q, number, records),
        "c": filtered_jobs,
        "d": idle_jobs,
        "e": memory_jobs,
        "f": rotation_jobs,
        "g": config_jobs,
        "h": compression_jobs,
        "i": unpaced_jobs,
    }
    return list(makers[figure](quick))


@dataclass
class Target:
    """A ratio of two medians, or one median, and what it must not exceed or fall below."""

    figure: str
    text: str
    above: tuple  # subject, setting, metric
    below: tuple  # the same, or None for a figure without one
    limit: float
    better: float = None
    at_least: bool = False


def _caller(metric, name, peer, producers, limit, better=None):
    text = f"{name}, {producers} producer{'s' if producers > 1 else ''}, against {peer}"
    setting = str(producers)
    return Target("a", text, (OURS, setting, metric), (peer, setting, metric), limit, better)


def _sustained(peer, producers, limit):
    text = f"sustained, {producers} producer{'s' if producers > 1 else ''}, against {peer}"
    metric = "krecords_per_s"
    return Target("b", text, ("channel", str(producers), metric), (peer, str(producers), metric), limit,
                  at_least=True)


TARGETS = [
    _caller("p50", "p50", SPDLOG, 1, 1.0, 0.65),
    _caller("p50", "p50", SPDLOG, 4, 0.9, 0.65),
    _caller("p99", "p99", SPDLOG, 1, 0.5),
    _caller("p99", "p99", SPDLOG, 4, 0.9),
    _caller("p999", "p99.9", SPDLOG, 4, 0.5),
    _caller("p50", "p50", LOG4CPLUS, 1, 0.45, 0.35),
    _caller("p50", "p50", LOG4CPLUS, 4, 0.45, 0.35),
    _caller("p50", "p50", BOOST, 1, 0.13, 0.1),
    _caller("p50", "p50", BOOST, 4, 0.13, 0.1),
    _caller("p50", "p50", GLOG, 1, 0.045, 0.035),
    _caller("p50", "p50", GLOG, 4, 0.045, 0.035),
    _sustained(SPDLOG, 1, 1.6),
    _sustained(SPDLOG_SYNC, 1, 1.2),
    _sustained(SPDLOG, 4, 3.8),
    _sustained(SPDLOG_SYNC, 4, 1.4),
    _sustained(RAW, 1, 0.78),
    Target("b", "one file of 50 MB in 1.2 s, records lost", ("manager, paced", "rotating", "lost"), None, 0),
    Target("c", "filtered Printf, ring 100, against spdlog's backtrace", (OURS, "ring 100", "p50"),
           (SPDLOG, "ring 100", "p50"), 0.8),
    Target("c", "filtered Trace, ring 0, against our Printf, ring 100", ("Trace", "ring 0", "p50"),
           (OURS, "ring 100", "p50"), 0.15),
    Target("c", "filtered Trace, ring 0, against our Trace, ring 100", ("Trace", "ring 0", "p50"),
           ("Trace", "ring 100", "p50"), 0.15),
    Target("d", "idle, ms of CPU in 5 s", (OURS, "", "cpu_ms"), None, 0.1),
    Target("e", "peak memory, full queue, against spdlog async", (OURS, "", "peak_mb"), (SPDLOG, "", "peak_mb"), 1.6),
    *[
        target
        for setting in ("25,000/s, 5 MB", "50,000/s, 50 MB")
        for target in (
            Target("f", f"p99.9 during rotation, {setting}, ns", ("Trace", setting, "rotating_p999"), None, 20_000),
            Target("f", f"refused during rotation, {setting}", ("Trace", setting, "refused"), None, 0),
        )
    ],
    *[
        target
        for text, name in TEXTS.items()
        for target in (
            Target("h", f"{name}: CPU, ISA-L against zlib", ("isal", text, "cpu_ms"), ("zlib", text, "cpu_ms"), 1 / 6),
            Target("h", f"{name}: archive, ISA-L against zlib", ("isal", text, "archive_bytes"),
                   ("zlib", text, "archive_bytes"), 1.12),
        )
    ],
    *[
        target
        for producers in ("1", "4")
        for size in FILE_SIZES
        for target in (
            Target("i", f"rotating without a pause, {producers} producer{'s' if producers == '4' else ''}, {size}, against "
                   "bare write(2)", (OURS, f"{producers}, {size}", "krecords_per_s"), (RAW, producers, "krecords_per_s"),
                   0.7, at_least=True),
            *[Target("i", f"{metric} meanwhile, {producers} producer{'s' if producers == '4' else ''}, {size}",
                     (OURS, f"{producers}, {size}", metric), None, 0) for metric in ("refused", "lost")],
        )
    ],
]
