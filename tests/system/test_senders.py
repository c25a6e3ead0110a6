"""How lines travel to the collector, and what becomes of them when it or the network fails."""

import threading

import pytest

from support.collectors import TcpCollector, UdpCollector, listen, read_all, reset
from support.polling import wait_until
from support.process import SENDTO
from support.sandbox import ROW, TCP

INVALID = "Invalid IP address or hostname: Name or service not known"
NOT_SENT = "Error sending message"
BIG = "x" * 100_000  # bytes; more than the kernel holds between a sender and a slow reader
BIG_LINE = BIG.encode() + b" 1\n"
SMALL_BUFFERS = "echo 4096 4096 8192 >/proc/sys/net/ipv4/tcp_wmem; ip link set lo mtu 1500"
COLLECTORS = {"syslog-udp": UdpCollector, "syslog-tcp": TcpCollector}
both_protocols = pytest.mark.parametrize("protocol", COLLECTORS)


def start_with_big_lines(sandbox, **kwargs):
    """A held service that cannot send a whole line before the collector reads."""
    sandbox.sh(SMALL_BUFFERS)
    return sandbox.start_forwarding_service(
        f"perf01,BIG,{BIG},info", ROW.replace("perf01", "sys05"), held=True,
        formatString="[DESC] [VAL]", allowed="perf01 sys05", **TCP, **kwargs)


def sending_lines(service):
    """What the latest pass with events printed."""
    return service.stdout.split("> Process events\n")[-1].splitlines()


def test_udp_line_keeps_white_space_at_its_ends(sandbox, udp_collector):
    sandbox.start_forwarding_service(formatString=r'"  \t[VAL]\n  "')
    sandbox.raise_event("x")
    assert udp_collector.wait_for(1) == [b"  \tx\n  "]


def test_tcp_line_loses_white_space_at_its_ends_and_is_ended_by_a_line_feed(
        sandbox, tcp_collector):
    service = sandbox.start_forwarding_service(
        **TCP, formatString=r'"  \t[VAL]\r\n  "', held=True)
    sandbox.send_batch(service, "x", " in side ", "a\nb", "")
    tcp_collector.wait_for(4)
    assert tcp_collector.connections == [b"x\nin side\na\nb\n\n"]


@both_protocols
def test_collector_may_be_a_name_and_its_port_is_cut_to_sixteen_bits(sandbox, protocol):
    collector = COLLECTORS[protocol](sandbox, address="127.0.0.2")
    sandbox.set_host_names("127.0.0.2 köln.example.com")
    service = sandbox.start_forwarding_service(
        protocol=protocol, host=r"k\xf6ln.example.com", port=65536 + 5514)
    sandbox.raise_event("1")
    assert collector.wait_for(1) == [b"perf01 1"]
    assert INVALID not in service.lines


@both_protocols
def test_service_without_a_collector_loses_each_line_until_one_is_named(sandbox, protocol):
    collector = COLLECTORS[protocol](sandbox)
    sandbox.expected_losses = [b"perf01 1", b"perf01 2"]
    sandbox.set_host_names("2001:db8::1 six.example.com")  # a name without an IPv4 address
    service = sandbox.start_forwarding_service(
        protocol=protocol, host="six.example.com", held=True, env=sandbox.short_pauses())
    service.wait_for_line(INVALID)
    sandbox.send_batch(service, "1", "2")
    service.wait_for_line(NOT_SENT, count=2)
    assert sending_lines(service) == [">>> perf01 1", ">>> perf01 2", NOT_SENT, NOT_SENT]
    assert service.stderr == ""
    sandbox.reload(service, 2, host="127.0.0.1")
    sandbox.raise_event("3")
    assert collector.wait_for(1) == [b"perf01 3"]


@both_protocols
def test_unknown_name_at_a_reload_leaves_the_old_collector(sandbox, protocol):
    collector = COLLECTORS[protocol](sandbox)
    sandbox.set_host_names()
    service = sandbox.start_forwarding_service(protocol=protocol, env=sandbox.short_pauses())
    sandbox.reload(service, 2, host="gone.example", port=5515)
    service.wait_for_line(INVALID)
    sandbox.raise_event("1")
    assert collector.wait_for(1) == [b"perf01 1"]


def test_protocol_may_change_at_each_reload_and_an_unknown_one_is_udp(
        sandbox, udp_collector, tcp_collector):
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses(), **TCP)
    sandbox.raise_event("1")
    assert tcp_collector.wait_for(1) == [b"perf01 1"]
    sandbox.reload(service, 2, protocol="tcp")
    sandbox.raise_event("2")
    assert udp_collector.wait_for(1) == [b"perf01 2"]


def test_udp_lines_to_an_absent_collector_are_lost_without_a_word(sandbox):
    sandbox.expected_losses = [b"perf01 1", b"perf01 2"]
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses())
    for values in "12":  # the refusal of the first is known when the second is sent
        sandbox.raise_event(values)
        service.wait_for_line(f">>> perf01 {values}")
    service.wait_until_idle()
    collector = UdpCollector(sandbox)
    sandbox.raise_event("3")
    assert collector.wait_for(1) == [b"perf01 3"]
    assert (NOT_SENT in service.lines, service.stderr) == (False, "")


@pytest.mark.parametrize("protocol, call", [("syslog-udp", "sendto"), ("syslog-tcp", "send")])
def test_line_that_cannot_be_sent_is_lost_and_the_next_is_tried(sandbox, protocol, call):
    collector = COLLECTORS[protocol](sandbox)
    sandbox.expected_losses = [b"perf01 2"]
    service = sandbox.start_forwarding_service(
        protocol=protocol, held=True, env=sandbox.faulty(FAULTS=f"{call}:2:101"))
    sandbox.send_batch(service, "1", "2", "3")
    collector.wait_for(2)
    service.wait_until_idle()
    assert sending_lines(service) == [
        ">>> perf01 1", ">>> perf01 2", ">>> perf01 3", NOT_SENT]
    assert service.stderr == ""


def test_udp_line_beyond_the_greatest_length_is_lost_and_the_next_is_sent(sandbox, udp_collector):
    template = "x" * 65506
    sandbox.expected_losses = [f"{template}12".encode()]
    service = sandbox.start_forwarding_service(formatString=template + "[VAL]", held=True)
    sandbox.send_batch(service, "12", "3")
    assert udp_collector.wait_for(1) == [template.encode() + b"3"]
    assert service.lines[-1] == NOT_SENT


def cut_with_reset(connection):
    connection.recv(1)
    reset(connection)
    return b""


def cut_unread(connection):
    connection.close()
    return b""


@pytest.mark.parametrize("cut", [cut_with_reset, cut_unread])
def test_collector_that_goes_away_in_mid_batch_loses_its_rest_and_gets_the_next(sandbox, cut):
    collector = TcpCollector(sandbox, serve=[cut], receive_buffer=4096)
    sandbox.expected_losses = [f"{BIG} {number}".encode() for number in (1, 2, 3)]
    service = start_with_big_lines(sandbox)
    sandbox.send_batch(service, "1", "2", "3")
    service.wait_for_line(NOT_SENT, 2)
    sandbox.raise_event("4", "sys05")
    assert collector.wait_for(1) == [b"CPU usage is high 4"]
    assert service.stderr == ""


def test_slow_collector_holds_up_no_client_and_gets_every_byte(sandbox):
    may_read = threading.Event()
    collector = TcpCollector(sandbox, receive_buffer=4096, serve=[
        lambda connection: may_read.wait() and read_all(connection)])
    service = start_with_big_lines(sandbox)
    sandbox.send_batch(service, "1", "2")
    wait_until(lambda: SENDTO in [call for call, _ in service.waiting_in], "a line on its way")
    sandbox.raise_event("3", "sys05")
    service.wait_for_line("Event [sys05] (3) at 100")
    may_read.set()
    collector.wait_for(3)
    assert collector.connections == [
        BIG_LINE + BIG_LINE.replace(b"1", b"2"), b"CPU usage is high 3\n"]


@pytest.mark.parametrize("faults, cycle", [("pthread_join:1:3", 1), ("accept4>send:1:24", 2)],
                         ids=["failed-join", "failed-accept"])
def test_batch_of_a_thread_that_is_not_joined_arrives_whole_beside_the_next_cycle(
        sandbox, faults, cycle):
    sandbox.has_invariant = False  # two threads send beside each other
    listener = listen(sandbox, receive_buffer=4096)
    service = start_with_big_lines(sandbox, env=sandbox.short_pauses(FAULTS=faults))
    sandbox.send_batch(service, "1", "1")
    connection, _ = listener.accept()
    wait_until(lambda: SENDTO in [call for call, _ in service.waiting_in], "a line on its way")
    service.wait_for_cycle(cycle)
    sandbox.reload(service, cycle + 1, formatString="[VAL]")
    sandbox.raise_event("2")
    service.wait_for_line(">>> 2")
    assert read_all(connection) == BIG_LINE * 2
    assert read_all(listener.accept()[0]) == b"2\n"
    assert service.lines.count(NOT_SENT) == 0
