"""The passes of the service over its queue: when events leave it, together with which others."""

import concurrent.futures
import itertools
import re
import time

import pytest

from support.collectors import TcpCollector
from support.polling import assert_stays, assert_within, wait_until
from support.records import make_record

ROW = "perf01,CPU,CPU usage is high,warn"
UDP = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": "[ID] [VAL]"}
TCP = {**UDP, "protocol": "syslog-tcp"}
UNKNOWN = "> Client address is unknown"
REFUSED = "connect: Connection refused"
CYCLE = "Starting event server..."


def event(values):
    return make_record("perf01", values, 100)


def start(sandbox, settings, held=False, **kwargs):
    """A service with these settings; one that is `held` finds no address."""
    if held:
        sandbox.hold_events()
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**settings)
    return sandbox.start_listening_service(**kwargs)


def test_events_of_one_pause_are_printed_together_in_order(sandbox, udp_collector):
    service = start(sandbox, UDP, held=True)
    sandbox.send_batch(service, event("1"), event("2"), event("3"))
    udp_collector.wait_for(3)
    assert [line for line in service.lines if line != UNKNOWN][-10:] == [
        "> Received event", "Event [perf01] (1) at 100",
        "> Received event", "Event [perf01] (2) at 100",
        "> Received event", "Event [perf01] (3) at 100",
        "> Process events", ">>> perf01 1", ">>> perf01 2", ">>> perf01 3"]


def test_events_of_one_pause_are_sent_in_order(sandbox, udp_collector):
    service = start(sandbox, UDP, held=True)
    sandbox.send_batch(service, event("1"), event("2"), event("3"))
    assert udp_collector.wait_for(3) == [b"perf01 1", b"perf01 2", b"perf01 3"]


def test_event_leaves_within_about_four_seconds(sandbox, udp_collector):
    start(sandbox, UDP)
    numbers = itertools.count(1)

    def deliver_event():
        number = next(numbers)
        sandbox.send_bytes(event(str(number)))
        udp_collector.wait_for(number)
    assert_within(1 + 3 + 1, deliver_event)


@pytest.mark.slow
def test_passes_over_an_empty_queue_print_and_send_nothing(sandbox, udp_collector):
    service = start(sandbox, UDP)
    sandbox.send_bytes(event("1"))
    udp_collector.wait_for(1)
    before = service.stdout
    assert_stays(lambda: service.stdout == before, lambda: service.stdout, seconds=7)
    assert (service.stderr, udp_collector.messages) == ("", [b"perf01 1"])


def test_missing_address_is_reported_about_every_three_seconds(sandbox):
    began = time.monotonic()
    service = start(sandbox, UDP, held=True)
    service.wait_for_line(UNKNOWN)
    told = time.monotonic()
    service.wait_for_line(UNKNOWN, count=3)
    ended = time.monotonic()
    assert ended - began >= 2 * 3 and ended - told < 10


def test_missing_address_holds_events_back(sandbox, udp_collector):
    service = start(sandbox, UDP, held=True)
    sandbox.send_bytes(event("1"))
    service.wait_for_line("Event [perf01] (1) at 100")
    passes = service.lines.count(UNKNOWN)
    service.wait_for_line(UNKNOWN, count=passes + 2)
    assert "> Process events" not in service.lines
    assert udp_collector.messages == []


def test_events_held_back_leave_in_order_as_one_batch(sandbox, tcp_collector):
    service = start(sandbox, TCP, held=True)
    sandbox.send_bytes(event("1"))
    service.wait_for_line("Event [perf01] (1) at 100")
    service.wait_for_line(UNKNOWN, count=2)
    sandbox.send_batch(service, event("2"), event("3"))
    tcp_collector.wait_for(3)
    assert tcp_collector.connections == [b"perf01 1\nperf01 2\nperf01 3\n"]
    assert service.lines[-4:] == ["> Process events", ">>> perf01 1", ">>> perf01 2",
                                  ">>> perf01 3"]


def test_long_queue_leaves_whole_and_in_the_order_of_receipt(sandbox, tcp_collector):
    service = start(sandbox, TCP, held=True)
    with concurrent.futures.ThreadPoolExecutor(20) as clients:
        list(clients.map(lambda number: sandbox.send_bytes(event(str(number))), range(1500)))
    wait_until(lambda: service.lines.count("> Received event") == 1500, lambda: service.lines[-1])
    sandbox.release_events()
    tcp_collector.wait_for(1500)
    received = re.findall(r"Event \[perf01\] \((\d+)\)", service.stdout)
    batch = "".join(f"perf01 {values}\n" for values in received).encode()
    assert tcp_collector.connections == [batch]


def test_address_that_goes_away_holds_later_events_back(sandbox, udp_collector):
    service = start(sandbox, UDP)
    sandbox.send_bytes(event("1"))
    udp_collector.wait_for(1)
    sandbox.hold_events()
    service.wait_for_line(UNKNOWN)
    sandbox.send_batch(service, event("2"), event("3"))
    assert udp_collector.wait_for(3) == [b"perf01 1", b"perf01 2", b"perf01 3"]


def test_events_left_at_a_reload_leave_with_the_new_settings(sandbox, udp_collector):
    new_collector = TcpCollector(sandbox, port=5515)
    service = start(sandbox, UDP, held=True)
    sandbox.send_bytes(event("1"))
    sandbox.send_bytes(event("2"))
    service.wait_for_line("Event [perf01] (2) at 100")
    sandbox.write_settings(**{**TCP, "port": 5515, "formatString": "new [PRI] [VAL]"}, facility=1)
    service.wait_for_line(CYCLE, count=2)
    sandbox.release_events()
    new_collector.wait_for(2)
    assert new_collector.connections == [b"new 12 1\nnew 12 2\n"]
    assert udp_collector.messages == []


def test_event_not_allowed_any_more_is_still_sent_once_queued(sandbox, udp_collector):
    service = start(sandbox, UDP, held=True)
    sandbox.send_bytes(event("1"))
    service.wait_for_line("Event [perf01] (1) at 100")
    sandbox.write_settings(**{**UDP, "allowed": "sys05"})
    service.wait_for_line(CYCLE, count=2)
    sandbox.release_events()
    assert udp_collector.wait_for(1) == [b"perf01 1"]


def test_reload_waits_for_the_end_of_the_pause(sandbox):
    began = time.monotonic()
    service = start(sandbox, UDP, env=sandbox.faulty(DELAYS="sleep:1:5000"))
    sandbox.write_settings(**UDP, cycle=2)
    service.wait_for_line(CYCLE, count=2)
    assert time.monotonic() - began >= 5 + 3


def test_each_batch_has_a_tcp_connection_that_ends_with_it(sandbox, tcp_collector):
    service = start(sandbox, TCP, held=True)
    sandbox.send_batch(service, event("1"), event("2"), event("3"))
    tcp_collector.wait_for(3)
    sandbox.send_bytes(event("4"))
    tcp_collector.wait_for(4)
    assert tcp_collector.connections == [b"perf01 1\nperf01 2\nperf01 3\n", b"perf01 4\n"]


def test_no_tcp_connection_is_made_without_events(sandbox, tcp_collector):
    service = start(sandbox, TCP)
    sandbox.send_bytes(event("1"))
    tcp_collector.wait_for(1)
    wait_until(lambda: service.sockets == 1, lambda: f"{service.sockets} sockets")
    assert_stays(lambda: len(tcp_collector.connections) == 1, lambda: tcp_collector.connections,
                 seconds=4)


@pytest.mark.slow
def test_refused_tcp_connection_is_tried_again_after_ten_seconds(sandbox):
    service = start(sandbox, TCP)
    raised = time.monotonic()
    sandbox.send_bytes(event("1"))
    service.wait_for_error_line(REFUSED)
    refused = time.monotonic()
    service.wait_for_error_line(REFUSED, count=2)
    ended = time.monotonic()
    assert ended - raised >= 10 and ended - refused < 15
    assert service.stderr == f"{REFUSED}\n{REFUSED}\n"


@pytest.mark.slow
def test_batch_of_a_refused_connection_arrives_whole_later(sandbox):
    service = start(sandbox, TCP, held=True)
    sandbox.send_batch(service, event("1"), event("2"))
    service.wait_for_error_line(REFUSED)
    collector = TcpCollector(sandbox)
    collector.wait_for(2)
    assert collector.connections == [b"perf01 1\nperf01 2\n"]
    assert (service.stdout.count(">>> "), service.stderr) == (2, f"{REFUSED}\n")


@pytest.mark.slow
def test_events_raised_while_a_connection_is_refused_form_the_next_batch(sandbox):
    service = start(sandbox, TCP)
    sandbox.send_bytes(event("1"))
    service.wait_for_error_line(REFUSED)
    sandbox.send_bytes(event("2"))
    sandbox.send_bytes(event("3"))
    service.wait_for_line("Event [perf01] (3) at 100")
    collector = TcpCollector(sandbox)
    collector.wait_for(3)
    assert collector.connections == [b"perf01 1\n", b"perf01 2\nperf01 3\n"]


@pytest.mark.slow
def test_reload_waits_while_a_connection_is_refused(sandbox):
    service = start(sandbox, TCP)
    sandbox.send_bytes(event("1"))
    service.wait_for_error_line(REFUSED)
    sandbox.write_settings(**{**TCP, "formatString": "new [VAL]"})
    service.wait_for_error_line(REFUSED, count=2)
    assert service.lines.count(CYCLE) == 1
    collector = TcpCollector(sandbox)
    assert collector.wait_for(1) == [b"perf01 1"]
    service.wait_for_line(CYCLE, count=2)


@pytest.mark.slow
def test_each_refused_connection_leaves_one_descriptor_open(sandbox):
    service = start(sandbox, TCP)
    sandbox.send_bytes(event("1"))
    service.wait_for_error_line(REFUSED)
    wait_until(lambda: service.sockets == 2, lambda: f"{service.sockets} sockets")
    service.wait_for_error_line(REFUSED, count=2)
    wait_until(lambda: service.sockets == 3, lambda: f"{service.sockets} sockets")
    collector = TcpCollector(sandbox)
    collector.wait_for(1)
    wait_until(lambda: service.sockets == 3, lambda: f"{service.sockets} sockets")
