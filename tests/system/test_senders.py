"""How lines travel to the collector, and what becomes of them when it or the network fails."""

import os
import socket

import pytest

from support.collectors import TcpCollector, UdpCollector, bind_udp, listen, reset
from support.polling import wait_until
from support.process import SENDTO
from support.records import make_record
from support.sandbox import Sandbox

ROW = "perf01,CPU,CPU usage is high,warn"
UDP = {"allowed": "perf01 big", "host": "127.0.0.1", "port": 5514, "formatString": "[VAL]"}
TCP = {**UDP, "protocol": "syslog-tcp"}
BIG = 8 << 20  # bytes; more than the kernel holds between a sender and a slow reader
INVALID = "Invalid IP address or hostname: "
NOT_SENT = "Error sending message"
NO_SOCKET = "Error creating socket"
CYCLE = "Starting event server..."
COLLECTORS = {"syslog-udp": UdpCollector, "syslog-tcp": TcpCollector}
both_protocols = pytest.mark.parametrize("protocol", COLLECTORS)


def event(values):
    return make_record("perf01", values, 100)


def start(sandbox, settings, held=False, **faults):
    """A service with these settings; one that is `held` finds no address."""
    if held:
        sandbox.hold_events()
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**settings)
    return sandbox.start_listening_service(env=sandbox.faulty(**faults))


def start_with_big_event(sandbox, env=None, **settings):
    """A held service whose event "big" has a description of that many bytes."""
    sandbox.write_definitions(ROW, f"big,BIG,{'x' * BIG},info")
    sandbox.hold_events()
    sandbox.write_settings(**{**TCP, "formatString": "[DESC]|[VAL]", **settings})
    return sandbox.start_listening_service(env=env)


def lines_after_processing(service):
    """What the latest pass with events printed."""
    lines = service.lines
    return lines[len(lines) - lines[::-1].index("> Process events"):]


def read_all(connection):
    with connection, connection.makefile("rb") as stream:
        return stream.read()


def test_udp_line_keeps_white_space_at_its_ends(sandbox, udp_collector):
    start(sandbox, {**UDP, "formatString": r'"  \t[VAL]\n  "'})
    sandbox.send_bytes(event("x"))
    assert udp_collector.wait_for(1) == [b"  \tx\n  "]


def test_tcp_line_loses_white_space_at_its_ends(sandbox, tcp_collector):
    service = start(sandbox, {**TCP, "formatString": r'"  \t[VAL]\r\n  "'}, held=True)
    sandbox.send_batch(service, event("x"), event(" in side "))
    tcp_collector.wait_for(2)
    assert tcp_collector.connections == [b"x\nin side\n"]


@both_protocols
def test_collector_may_be_a_name(sandbox, protocol):
    collector = COLLECTORS[protocol](sandbox, address="127.0.0.2")
    sandbox.set_host_names("127.0.0.2 collector.example.com")
    service = start(sandbox, {**UDP, "protocol": protocol, "host": "collector.example.com"})
    sandbox.send_bytes(event("1"))
    assert collector.wait_for(1) == [b"1"]
    assert INVALID not in service.stdout


@both_protocols
def test_name_with_an_ipv6_address_only_is_no_collector(sandbox, protocol):
    sandbox.set_host_names("2001:db8::1 six.example.com")
    service = start(sandbox, {**UDP, "protocol": protocol, "host": "six.example.com"})
    sandbox.send_bytes(event("1"))
    service.wait_for_line(NOT_SENT)
    assert [line for line in service.lines if line.startswith(INVALID)] == [
        f"{INVALID}Name or service not known"]


@both_protocols
def test_port_is_cut_to_sixteen_bits(sandbox, protocol):
    collector = COLLECTORS[protocol](sandbox)
    start(sandbox, {**UDP, "protocol": protocol, "port": 65536 + 5514})
    sandbox.send_bytes(event("1"))
    assert collector.wait_for(1) == [b"1"]


@both_protocols
def test_service_without_a_collector_loses_each_line_and_lives(sandbox, protocol):
    sandbox.set_host_names()
    service = start(sandbox, {**UDP, "protocol": protocol, "host": ""}, held=True)
    service.wait_for_line(f"{INVALID}Name or service not known")
    sandbox.send_batch(service, event("1"), event("2"))
    service.wait_for_line(NOT_SENT, count=2)
    assert lines_after_processing(service) == [">>> 1", ">>> 2", NOT_SENT, NOT_SENT]
    assert (service.is_running(), service.stderr) == (True, "")


@both_protocols
def test_collector_named_after_the_start_gets_later_lines(sandbox, protocol):
    collector = COLLECTORS[protocol](sandbox)
    service = start(sandbox, {**UDP, "protocol": protocol, "host": ""})
    sandbox.send_bytes(event("1"))
    service.wait_for_line(NOT_SENT)
    sandbox.write_settings(**{**UDP, "protocol": protocol})
    service.wait_for_line(CYCLE, count=2)
    sandbox.send_bytes(event("2"))
    assert collector.wait_for(1) == [b"2"]


@both_protocols
def test_unknown_name_at_a_reload_leaves_the_old_collector(sandbox, protocol):
    collector = COLLECTORS[protocol](sandbox)
    sandbox.set_host_names()
    service = start(sandbox, {**UDP, "protocol": protocol})
    sandbox.send_bytes(event("1"))
    collector.wait_for(1)
    sandbox.write_settings(**{**UDP, "protocol": protocol, "host": "gone.example", "port": 5515})
    service.wait_for_line(f"{INVALID}Name or service not known")
    sandbox.send_bytes(event("2"))
    assert collector.wait_for(2) == [b"1", b"2"]


@pytest.mark.parametrize("protocol", ["tcp", "SYSLOG-TCP", "syslog-tcp2", ""])
def test_any_other_protocol_means_udp(sandbox, udp_collector, protocol):
    start(sandbox, {**UDP, "protocol": protocol})
    sandbox.send_bytes(event("1"))
    assert udp_collector.wait_for(1) == [b"1"]


def test_protocol_may_change_at_a_reload(sandbox, udp_collector, tcp_collector):
    service = start(sandbox, UDP)
    sandbox.send_bytes(event("1"))
    udp_collector.wait_for(1)
    sandbox.write_settings(**TCP)
    service.wait_for_line(CYCLE, count=2)
    sandbox.send_bytes(event("2"))
    assert tcp_collector.wait_for(1) == [b"2"]
    assert udp_collector.messages == [b"1"]


def test_udp_lines_to_an_absent_collector_are_lost_without_a_word(sandbox):
    service = start(sandbox, UDP)
    for values in "12":  # the refusal of the first is known when the second is sent
        sandbox.send_bytes(event(values))
        service.wait_for_line(f">>> {values}")
    service.wait_until_idle()
    collector = UdpCollector(sandbox)
    sandbox.send_bytes(event("3"))
    assert collector.wait_for(1) == [b"3"]
    assert (NOT_SENT in service.lines, service.stderr) == (False, "")


def test_datagram_that_cannot_be_sent_is_lost_and_the_next_is_tried(sandbox, udp_collector):
    service = start(sandbox, UDP, held=True, FAULTS="sendto:2:101")
    sandbox.send_batch(service, event("1"), event("2"), event("3"))
    assert udp_collector.wait_for(2) == [b"1", b"3"]
    assert lines_after_processing(service) == [">>> 1", ">>> 2", ">>> 3", NOT_SENT]
    assert service.stderr == ""


def test_tcp_line_that_cannot_be_sent_is_lost_and_the_next_is_tried(sandbox, tcp_collector):
    service = start(sandbox, TCP, held=True, FAULTS="send:2:104")
    sandbox.send_batch(service, event("1"), event("2"), event("3"))
    tcp_collector.wait_for(2)
    assert tcp_collector.connections == [b"1\n3\n"]
    assert lines_after_processing(service) == [">>> 1", ">>> 2", ">>> 3", NOT_SENT]
    assert service.stderr == ""


def test_udp_sender_without_a_socket_says_so_and_loses_its_lines(sandbox, udp_collector):
    service = start(sandbox, UDP, FAULTS="socket:2:24")  # the first is that for clients
    sandbox.send_bytes(event("1"))
    service.wait_for_line(NOT_SENT)
    assert service.lines.count(NO_SOCKET) == 1
    sandbox.write_settings(**{**UDP, "facility": 1})
    service.wait_for_line(CYCLE, count=2)
    sandbox.send_bytes(event("2"))
    assert udp_collector.wait_for(1) == [b"2"]


@pytest.mark.slow
def test_tcp_sender_without_a_socket_says_so_and_tries_again(sandbox, tcp_collector):
    service = start(sandbox, TCP, FAULTS="socket:2:24")  # the first is that for clients
    sandbox.send_bytes(event("1"))
    tcp_collector.wait_for(1)
    assert tcp_collector.connections == [b"1\n"]
    assert lines_after_processing(service) == [">>> 1", NO_SOCKET]
    assert service.stderr == ""


@pytest.mark.slow
def test_failed_connection_is_reported_on_standard_error(sandbox, tcp_collector):
    service = start(sandbox, TCP, FAULTS="connect:1:110")
    sandbox.send_bytes(event("1"))
    tcp_collector.wait_for(1)
    assert lines_after_processing(service) == [">>> 1"]
    assert service.stderr == "connect: Connection timed out\n"


def test_reset_in_mid_batch_loses_the_lines_that_are_left(sandbox):
    listener = listen(sandbox, receive_buffer=4096)
    service = start_with_big_event(sandbox)
    sandbox.send_batch(service, make_record("big", "1"), make_record("big", "2"),
                       make_record("big", "3"))
    connection, _ = listener.accept()
    connection.recv(1)
    reset(connection)  # while the first line is on its way
    service.wait_for_line(NOT_SENT, count=2)
    sandbox.send_bytes(event("4"))
    assert read_all(listener.accept()[0]) == b"CPU usage is high|4\n"
    assert (service.lines.count(NOT_SENT), service.stderr) == (2, "")


@pytest.fixture
def overlapping_passes():
    """A sandbox without the check of conservation, which does not know such passes."""
    box = Sandbox()
    yield box
    box.end()
    box.expect_no_sanitizer_report()


def test_batch_beside_another_after_a_failed_accept_loses_its_rest(overlapping_passes):
    sandbox = overlapping_passes
    listener = listen(sandbox, receive_buffer=4096)
    service = start_with_big_event(sandbox, sandbox.hasty(FAULTS="accept4>send:1:24"))
    sandbox.send_batch(service, make_record("big", "1"), make_record("big", "2"))
    first, _ = listener.accept()
    service.wait_for_cycle(2)
    sandbox.send_bytes(event("3"))
    assert read_all(listener.accept()[0]) == b"CPU usage is high|3\n"
    assert service.lines.count(NOT_SENT) == 0
    line = b"x" * BIG + b"|1\n"
    assert first.recv(len(line), socket.MSG_WAITALL) == line
    service.wait_for_line(NOT_SENT)
    # One of each serves nothing.
    wait_until(lambda: (len(service.descriptors), service.threads) == (2, 3),
               lambda: f"{service.descriptors}, {service.threads} threads")


@pytest.mark.parametrize("faults, cycle", [("pthread_join:1:3", 1), ("accept4>send:1:24", 2)],
                         ids=["failed-join", "failed-accept"])
def test_end_of_a_cycle_beside_the_batch_of_a_thread_it_does_not_join_loses_its_rest(
        sandbox, faults, cycle):
    listener = listen(sandbox, receive_buffer=4096)
    service = start_with_big_event(sandbox, sandbox.hasty(FAULTS=faults))
    sandbox.send_batch(service, make_record("big", "1"), make_record("big", "2"))
    connection, _ = listener.accept()
    service.wait_for_cycle(cycle)
    wait_until(lambda: SENDTO in [call for call, _ in service.waiting_in], "a line on its way")
    sandbox.write_settings(**{**TCP, "formatString": "[VAL]"})
    service.wait_for_cycle(cycle + 1)
    assert read_all(connection) == b"x" * BIG + b"|1\n"
    service.wait_for_line(NOT_SENT)
    service.wait_until_idle()
    sandbox.send_bytes(event("3"))
    assert read_all(listener.accept()[0]) == b"3\n"
    assert service.lines.count(NOT_SENT) == 1


@pytest.mark.slow
@pytest.mark.skipif(os.environ.get("OV_SANITIZER") == "address",
                    reason="a check of this build needs descriptors of its own")
def test_collector_that_refuses_uses_up_the_descriptors_and_ends_the_service(sandbox):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**TCP)
    service = sandbox.start_service(prelude="ulimit -n 32", env=sandbox.hasty())
    sandbox.send_bytes(event("1"))
    assert service.wait() == 1
    assert {"connect: Connection refused", "accept: Too many open files",
            "socket: Too many open files"} <= set(service.error_lines)


def test_collector_that_closes_in_mid_batch_does_not_end_the_service(sandbox):
    listener = listen(sandbox, receive_buffer=4096)
    service = start_with_big_event(sandbox)
    sandbox.send_batch(service, make_record("big", "1"), make_record("big", "2"))
    connection, _ = listener.accept()
    connection.close()
    sandbox.send_bytes(event("3"))
    assert read_all(listener.accept()[0]) == b"CPU usage is high|3\n"
    assert service.is_running()


def test_slow_collector_gets_every_byte_of_a_big_batch(sandbox):
    listener = listen(sandbox, receive_buffer=4096)
    service = start_with_big_event(sandbox)
    sandbox.send_batch(service, make_record("big", "1"), make_record("big", "2"))
    connection, _ = listener.accept()
    sandbox.send_bytes(event("3"))  # taken in while the batch waits for its reader
    service.wait_for_line("Event [perf01] (3) at 100")
    received = read_all(connection)
    assert received == b"".join(b"x" * BIG + values + b"\n" for values in (b"|1", b"|2"))
    assert read_all(listener.accept()[0]) == b"CPU usage is high|3\n"


@pytest.mark.slow
def test_collector_that_went_away_gets_the_batch_when_it_is_back(sandbox):
    listener = listen(sandbox)
    service = start(sandbox, TCP)
    sandbox.send_bytes(event("1"))
    assert read_all(listener.accept()[0]) == b"1\n"
    listener.close()
    sandbox.send_bytes(event("2"))
    service.wait_for_error_line("connect: Connection refused")
    assert read_all(listen(sandbox).accept()[0]) == b"2\n"


def test_udp_collector_that_went_away_gets_later_lines_when_it_is_back(sandbox):
    collector = bind_udp(sandbox)
    service = start(sandbox, UDP)
    sandbox.send_bytes(event("1"))
    assert collector.recv(100) == b"1"
    collector.close()
    sandbox.send_bytes(event("2"))
    service.wait_for_line(">>> 2")
    service.wait_until_idle()
    collector = bind_udp(sandbox)
    sandbox.send_bytes(event("3"))
    assert collector.recv(100) == b"3"


def test_lines_over_tcp_are_framed_by_line_feeds_only(sandbox, tcp_collector):
    start(sandbox, {**TCP, "formatString": r"a\nb [VAL]"})
    sandbox.send_bytes(event("1"))
    tcp_collector.wait_for(2)
    assert tcp_collector.connections == [b"a\nb 1\n"]


def test_udp_line_of_the_greatest_length_arrives(sandbox, udp_collector):
    start(sandbox, {**UDP, "formatString": "x" * 65506 + "[VAL]"})
    sandbox.send_bytes(event("1"))
    assert udp_collector.wait_for(1) == [b"x" * 65506 + b"1"]


def test_udp_line_beyond_the_greatest_length_is_lost_and_the_next_is_sent(sandbox, udp_collector):
    service = start(sandbox, {**UDP, "formatString": "x" * 65506 + "[VAL]"}, held=True)
    sandbox.send_batch(service, event("12"), event("3"))
    assert udp_collector.wait_for(1) == [b"x" * 65506 + b"3"]
    assert service.lines[-1] == NOT_SENT
