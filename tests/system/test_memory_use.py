"""What stays resident of a service that has nothing to do."""

import os
import pathlib
import re

import pytest

from support.polling import wait_until
from support.records import make_record

ROW = "perf01,CPU,CPU usage is high,warn"
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": "[VAL]"}
HEAP_ROOM = 64 * 1024 * 1024  # what glibc reserves for each heap but the first, and aligns it to

pytestmark = pytest.mark.skipif(bool(os.environ.get("OV_SANITIZER")),
                                reason="a sanitizer has an allocator of its own")


def start(sandbox, collector, protocol="syslog-udp", **kwargs):
    """A service that has sent a line."""
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS, protocol=protocol)
    service = sandbox.start_listening_service(**kwargs)
    sandbox.send_bytes(make_record("perf01"))
    collector.wait_for(1)
    return service


def private_kilobytes(process):
    rollup = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text()
    return int(re.search(r"^Private_Dirty: +(\d+) kB$", rollup, re.MULTILINE)[1])


def resident_kilobytes(process, library):
    mappings = pathlib.Path(f"/proc/{process.pid}/smaps").read_text()
    sizes = re.findall(rf"/{library}\.so.*\n(?:[A-Z].*\n)*?Rss: +(\d+) kB$", mappings, re.MULTILINE)
    assert sizes, mappings
    return sum(map(int, sizes))


def further_heaps(process):
    """The mappings that begin such a heap: what is not used of its room follows at once."""
    lines = pathlib.Path(f"/proc/{process.pid}/maps").read_text().splitlines()
    ranges = [[int(end, 16) for end in line.split()[0].split("-")] for line in lines]
    return [line for line, (start, end), (next_start, next_end)
            in zip(lines, ranges, ranges[1:])
            if start % HEAP_ROOM == 0 and next_start == end and next_end == start + HEAP_ROOM]


def test_threads_share_one_heap_and_names_need_no_tables(sandbox, udp_collector):
    service = start(sandbox, udp_collector)
    assert further_heaps(service) == []
    assert resident_kilobytes(service, "libicudata") < 100


def test_memory_of_a_batch_is_given_back(sandbox, tcp_collector):
    """Over TCP, which loses nothing of so much at once."""
    service = start(sandbox, tcp_collector, "syslog-tcp", env=sandbox.eager())
    before = private_kilobytes(service)
    sandbox.hold_events()
    service.wait_for_line("> Client address is unknown")
    sandbox.send_batch(service, *[make_record("perf01", "v" * 127)] * 900)  # of some 500 kB
    tcp_collector.wait_for(901)
    wait_until(lambda: private_kilobytes(service) - before < 150,
               lambda: f"{private_kilobytes(service)} kB, before {before}")
