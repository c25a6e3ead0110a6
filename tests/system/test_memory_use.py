"""What stays resident of a service that has nothing to do."""

import os

import pytest

from support.polling import wait_until
from support.sandbox import TCP

HEAP_ROOM = 64 << 20  # bytes; what glibc reserves for each heap but the first, and aligns it to

pytestmark = pytest.mark.skipif(bool(os.environ.get("OV_SANITIZER")),
                                reason="a sanitizer has an allocator of its own")


def further_heaps(process):
    """The mappings that begin such a heap: what is not used of its room follows at once."""
    ranges = [[int(end, 16) for end in mapping.addr.split("-")]
              for mapping in process.facts.memory_maps(grouped=False)]
    return [start for (start, end), (next_start, next_end) in zip(ranges, ranges[1:])
            if start % HEAP_ROOM == 0 and next_start == end and next_end == start + HEAP_ROOM]


def test_threads_share_one_heap_and_names_need_no_tables(sandbox, udp_collector):
    service = sandbox.start_forwarding_service()
    sandbox.raise_event("")
    udp_collector.wait_for(1)
    assert further_heaps(service) == []
    [tables] = [mapping for mapping in service.facts.memory_maps() if "libicudata" in mapping.path]
    assert tables.rss < 100 << 10


def test_memory_of_a_batch_is_given_back(sandbox, tcp_collector):
    """Over TCP, which loses nothing of so much at once."""
    service = sandbox.start_forwarding_service(**TCP, formatString="[VAL]")
    sandbox.raise_event("")
    tcp_collector.wait_for(1)
    before = service.facts.memory_full_info().uss
    sandbox.hold_events()
    service.wait_for_line("> Client address is unknown")
    sandbox.send_batch(service, *["v" * 127] * 900)  # of some 500 kB
    tcp_collector.wait_for(901)
    wait_until(lambda: service.facts.memory_full_info().uss - before < 150 << 10,
               lambda: f"{service.facts.memory_full_info().uss} bytes, before {before}")
