"""The passes of the service over its queue: when events leave it, together with which others."""

import concurrent.futures
import re
import time

import pytest

from support.collectors import TcpCollector
from support.polling import assert_stays, wait_until
from support.sandbox import TCP

UNKNOWN = "> Client address is unknown"
REFUSED = "connect: Connection refused"


def start_refused(sandbox):
    """A service whose collector has refused the batch of event "1"."""
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses(), **TCP)
    sandbox.raise_event("1")
    service.wait_for_error_line(REFUSED)
    return service


def test_events_of_one_pause_are_printed_and_sent_together_in_order(sandbox, udp_collector):
    service = sandbox.start_forwarding_service(held=True)
    sandbox.send_batch(service, "1", "2", "3")
    assert udp_collector.wait_for(3) == [b"perf01 1", b"perf01 2", b"perf01 3"]
    assert [line for line in service.lines if line != UNKNOWN][-4:] == [
        "> Process events", ">>> perf01 1", ">>> perf01 2", ">>> perf01 3"]


def test_first_pass_comes_before_the_first_pause(sandbox):
    service = sandbox.start_forwarding_service(held=True, env=sandbox.faulty(
        DELAYS="sleep:1+:60000"))
    service.wait_for_line(UNKNOWN)


def test_passes_over_an_empty_queue_print_and_send_nothing(sandbox, udp_collector):
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses())
    sandbox.raise_event("1")
    udp_collector.wait_for(1)
    before = service.stdout
    assert_stays(lambda: service.stdout == before, lambda: service.stdout, seconds=1)
    assert (service.stderr, udp_collector.messages) == ("", [b"perf01 1"])


def test_missing_address_is_reported_about_every_three_seconds(sandbox):
    began = time.monotonic()
    service = sandbox.start_forwarding_service(held=True)
    service.wait_for_line(UNKNOWN)
    told = time.monotonic()
    service.wait_for_line(UNKNOWN, count=3)
    ended = time.monotonic()
    assert ended - began >= 2 * 3 and ended - told < 10


def test_events_held_back_leave_in_order_as_one_batch(sandbox, tcp_collector):
    service = sandbox.start_forwarding_service(held=True, env=sandbox.short_pauses(), **TCP)
    sandbox.raise_event("1")
    service.wait_for_line("Event [perf01] (1) at 100")
    service.wait_for_line(UNKNOWN, count=service.lines.count(UNKNOWN) + 2)
    assert "> Process events" not in service.lines
    sandbox.send_batch(service, "2", "3")
    tcp_collector.wait_for(3)
    assert tcp_collector.connections == [b"perf01 1\nperf01 2\nperf01 3\n"]


def test_long_queue_leaves_whole_and_in_the_order_of_receipt(sandbox, tcp_collector):
    service = sandbox.start_forwarding_service(held=True, **TCP)
    with concurrent.futures.ThreadPoolExecutor(20) as clients:
        list(clients.map(lambda number: sandbox.raise_event(str(number)), range(1500)))
    wait_until(lambda: service.lines.count("> Received event") == 1500, lambda: service.lines[-1])
    sandbox.release_events()
    tcp_collector.wait_for(1500)
    received = re.findall(r"Event \[perf01\] \((\d+)\)", service.stdout)
    assert tcp_collector.connections == [
        "".join(f"perf01 {values}\n" for values in received).encode()]


def test_events_left_at_a_reload_leave_with_the_new_settings(sandbox, udp_collector):
    new_collector = TcpCollector(sandbox, port=5515)
    service = sandbox.start_forwarding_service(held=True, env=sandbox.short_pauses())
    sandbox.raise_event("1")
    sandbox.raise_event("2")
    service.wait_for_line("Event [perf01] (2) at 100")
    sandbox.reload(service, 2, **TCP, port=5515, formatString="new [PRI] [VAL]", facility=1,
                   allowed="sys05")
    sandbox.release_events()
    new_collector.wait_for(2)
    assert new_collector.connections == [b"new 12 1\nnew 12 2\n"]
    assert udp_collector.messages == []


def test_each_batch_has_a_tcp_connection_that_ends_with_it(sandbox, tcp_collector):
    service = sandbox.start_forwarding_service(held=True, env=sandbox.short_pauses(), **TCP)
    sandbox.send_batch(service, "1", "2", "3")
    tcp_collector.wait_for(3)
    sandbox.raise_event("4")
    tcp_collector.wait_for(4)
    wait_until(lambda: service.sockets == 1, lambda: service.descriptors)
    service.wait_for_pauses(1)  # some passes without events
    assert tcp_collector.connections == [b"perf01 1\nperf01 2\nperf01 3\n", b"perf01 4\n"]


@pytest.mark.slow
def test_refused_tcp_connection_is_tried_again_every_ten_seconds(sandbox):
    service = sandbox.start_forwarding_service(**TCP)
    raised = time.monotonic()
    sandbox.raise_event("1")
    service.wait_for_error_line(REFUSED)
    refused = time.monotonic()
    service.wait_for_error_line(REFUSED, count=2)
    ended = time.monotonic()
    assert ended - raised >= 10 and ended - refused < 15
    assert service.stderr == f"{REFUSED}\n{REFUSED}\n"


def test_batch_of_a_refused_connection_arrives_whole_before_the_events_after_it(sandbox):
    service = start_refused(sandbox)
    sandbox.raise_event("2")
    sandbox.raise_event("3")
    service.wait_for_line("Event [perf01] (3) at 100")
    collector = TcpCollector(sandbox)
    collector.wait_for(3)
    assert collector.connections == [b"perf01 1\n", b"perf01 2\nperf01 3\n"]
    assert service.lines.count("> Process events") == 2


def test_each_refused_connection_leaves_one_descriptor_open(sandbox):
    service = start_refused(sandbox)
    service.wait_for_error_line(REFUSED, count=5)
    collector = TcpCollector(sandbox)
    collector.wait_for(1)
    wait_until(lambda: service.sockets == 1 + service.error_lines.count(REFUSED),
               lambda: service.descriptors)


def test_collector_that_refuses_uses_up_the_descriptors_and_ends_the_service(sandbox):
    sandbox.start_forwarding_service(**TCP).kill()
    sandbox.sh("rm /tmp/ov-events")
    service = sandbox.start_service(prelude="ulimit -n 32", env=sandbox.short_pauses())
    sandbox.raise_event("1")
    assert service.wait() == 1
    assert {REFUSED, "accept: Too many open files",
            "socket: Too many open files"} <= set(service.error_lines)
