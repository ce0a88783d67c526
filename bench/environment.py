"""The machine and the versions that the figures were measured with."""

import json
import os
import platform
import subprocess

PACKAGES = ["g++", "libace-dev", "zlib1g-dev", "libisal-dev", "libspdlog-dev", "liblog4cplus-dev", "libboost-log-dev",
            "libgoogle-glog-dev"]


def _output(*command):
    try:
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def _processor():
    with open("/proc/cpuinfo") as file:
        for line in file:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def _memory():
    with open("/proc/meminfo") as file:
        return f"{int(file.readline().split()[1]) / 1_048_576:.0f} GB"


def describe(scratch):
    """Pairs of a name and its text."""
    system = platform.freedesktop_os_release().get("PRETTY_NAME", platform.system())
    versions = [f"{name} {_output('dpkg-query', '-W', '-f', '${Version}', name)}" for name in PACKAGES]
    return [
        ["processor", f"{_processor()}, {os.cpu_count()} cores, {_memory()}"],
        ["system", f"{system}, Linux {platform.release()}"],
        ["file system", _output("stat", "-f", "-c", "%T", scratch) + f" at {scratch}"],
        ["compiler", _output("c++", "--version").splitlines()[0] + ", CMAKE_BUILD_TYPE Release"],
        ["packages", ", ".join(versions)],
        ["clock", "clock_gettime(CLOCK_MONOTONIC); its cost is part of every single call and nothing is subtracted"],
    ]


def save(directory, scratch):
    (directory / "environment.json").write_text(json.dumps(describe(scratch), indent=1) + "\n")


def load(directory):
    path = directory / "environment.json"
    return json.loads(path.read_text()) if path.exists() else []
