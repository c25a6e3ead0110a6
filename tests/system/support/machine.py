"""Readings of the machine that are independent of the example scripts, and what makes it busy."""

import os
import pathlib

DISK_KINDS = ("ext4", "xfs", "btrfs", "vfat", "overlay")
COMMA_LOCALE = """
comment_char %
escape_char /
LC_NUMERIC
decimal_point ","
thousands_sep "."
grouping 3;3
END LC_NUMERIC
"""


def processor_time():
    """Busy and all of the processors' time since the start, in ticks."""
    first = pathlib.Path("/proc/stat").read_text().split("\n")[0]
    ticks = [int(field) for field in first.split()[1:9]]
    return sum(ticks) - ticks[3] - ticks[4], sum(ticks)


def memory_use():
    rows = dict(row.split(":") for row in pathlib.Path("/proc/meminfo").read_text().splitlines())
    total, available = (int(rows[key].split()[0]) for key in ("MemTotal", "MemAvailable"))
    return 100 * (total - available) / total


def use_of(sandbox, path):
    """The use of a file system in percent, with all decimals."""
    counts = os.statvfs(sandbox.path(path))
    used = counts.f_blocks - counts.f_bfree
    return 100 * used / (used + counts.f_bavail)


def use_of_fullest(sandbox):
    """The use of the fullest file system that holds files on a disk and can be written to."""
    seen = {}  # of mounts on one another the last is the one that is seen
    for mount in sandbox.path("/proc/1/mounts").read_text().splitlines():
        _, path, kind, options, *_ = mount.split(" ")
        seen[path] = kind in DISK_KINDS and "rw" in options.split(",")
    return max((use_of(sandbox, path) for path in seen if seen[path]), default=0.0)


def processes(sandbox):
    return {entry.name for entry in sandbox.path("/proc").iterdir() if entry.name.isdigit()}


def load(sandbox, count):
    """Keeps processors busy until the sandbox ends."""
    for _ in range(count):
        sandbox.start("sh", "-c", "echo busy; while :; do :; done").wait_for_line("busy")


def add_comma_locale(sandbox):
    """The environment of a program whose numbers have a decimal comma."""
    sandbox.path("/tmp/comma.src").write_text(COMMA_LOCALE)
    sandbox.run("localedef", "-c", "--no-archive", "-i", "/tmp/comma.src", "-f", "ANSI_X3.4-1968",
                "/tmp/comma")  # warns of all the categories that it lacks
    return {"LOCPATH": "/tmp", "LC_ALL": "comma"}
