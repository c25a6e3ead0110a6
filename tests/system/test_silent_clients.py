"""Clients that connect and stay silent, and clients that come while a cycle ends: nobody is held
up, and no event is lost."""

import threading
import time

import pytest

from support.collectors import TcpCollector
from support.monitors import NAMES, begin_service, starting, stopping
from support.polling import assert_within, wait_until
from support.records import make_record
from support.sandbox import CYCLE, ROW, TCP

LIMIT = 64  # silent clients that are set aside
REFUSED = "connect: Connection refused"
# Each client ends within 2 seconds.
SEND_ALL = """seq "$1" | xargs -P 4 -I{} timeout 2 "$0" -e perf01 {} >/dev/null"""


def write(connection, values):
    with connection:
        connection.sendall(make_record("perf01", values))


def lines_of(prefix, count):
    return sorted(f"perf01 {prefix}{number}".encode() for number in range(count))


def test_silent_clients_and_others_are_all_taken_in_through_reloads(sandbox, udp_collector):
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses())
    silent = [sandbox.connect() for _ in range(60)]
    for cycle in 2, 3, 4:
        for number in range(100):
            if number % 3 == cycle - 2:
                sandbox.raise_event(f"a{number}")
        sandbox.reload(service, cycle)
    assert sorted(udp_collector.wait_for(100)) == lines_of("a", 100)
    for number, connection in enumerate(silent):
        write(connection, f"b{number}")
    assert sorted(udp_collector.wait_for(160)[100:]) == lines_of("b", 60)
    assert service.stderr == ""
    wait_until(lambda: service.sockets == 2, lambda: service.descriptors)


def test_flood_of_silent_clients_ends_those_that_are_silent_for_longest(sandbox, udp_collector):
    service = sandbox.start_forwarding_service()
    silent = []
    for total in range(100, 2001, 100):
        silent += [sandbox.connect() for _ in range(100)]
        wait_until(lambda: (len(service.error_lines), service.sockets) == (
            total - LIMIT, 2 + LIMIT), lambda: f"{service.sockets} sockets of {total}")
        for connection in silent[:-LIMIT]:
            assert connection.recv(1) == b""  # the service has ended it
            connection.close()
        del silent[:-LIMIT]
    for number, connection in enumerate(silent):
        write(connection, str(number))
    assert sorted(udp_collector.wait_for(LIMIT)) == lines_of("", LIMIT)
    assert {line.split(": ")[0] for line in service.error_lines} == {"read"}
    assert len(service.error_lines) == 2000 - LIMIT
    wait_until(lambda: service.sockets == 2, lambda: service.descriptors)


@pytest.mark.slow
def test_record_that_comes_after_20_seconds_is_taken(sandbox, udp_collector):
    service = sandbox.start_forwarding_service()
    connection = sandbox.connect()
    began = time.monotonic()
    wait_until(lambda: time.monotonic() - began > 20, "20 seconds", deadline=30)
    write(connection, "late")
    assert udp_collector.wait_for(1) == [b"perf01 late"]
    assert service.stderr == ""


def test_silent_client_of_one_cycle_is_read_with_the_settings_of_the_next(sandbox, udp_collector):
    service = sandbox.start_forwarding_service(allowed="")
    connection = sandbox.connect()
    wait_until(lambda: service.sockets == 3, "a client that is set aside")
    sandbox.reload(service, 2, allowed="perf01", formatString="new [VAL]")
    write(connection, "95")
    assert udp_collector.wait_for(1) == [b"new 95"]


def test_reload_takes_its_usual_time_beside_silent_clients(sandbox):
    service = sandbox.start_forwarding_service()
    silent = [sandbox.connect() for _ in range(60)]
    cycles = iter(range(2, 10))
    assert_within(1 + 3 + 1, lambda: sandbox.reload(service, next(cycles)))
    for connection in silent:
        connection.close()


def test_client_is_read_at_once_when_it_writes(sandbox):
    service = sandbox.start_forwarding_service()
    events = iter(range(1, 10))

    def be_late():
        with sandbox.connect() as connection:
            wait_until(lambda: service.sockets == 3, "a client that is set aside")
            connection.sendall(make_record("perf01"))
            service.wait_for_line("> Received event", next(events))
    assert_within(0.5, be_late)


def start_ending_cycle(sandbox):
    """A service whose first cycle cannot end, as its collector refuses a batch."""
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses(), usbDevMon=1, **TCP)
    sandbox.raise_event("held")
    service.wait_for_error_line(REFUSED)
    sandbox.write_settings(**{**sandbox.settings, "formatString": "new [VAL]"})
    wait_until(lambda: service.threads == 4, "a thread that waits for the others")
    return service


def test_clients_are_taken_in_at_once_while_a_cycle_waits_for_its_collector(sandbox):
    service = start_ending_cycle(sandbox)
    clients = sandbox.run("sh", "-c", SEND_ALL, sandbox.executable, "200")
    assert (clients.status, clients.stderr) == (0, "")
    assert stopping("usbDevMon") not in service.lines
    collector = TcpCollector(sandbox)
    lines = collector.wait_for(201)
    assert collector.connections[0] == b"perf01 held\n"
    assert set(lines[1:]) == {b"new %d" % number for number in range(1, 201)}
    service.wait_for_line(CYCLE, 2)


def test_silent_client_that_comes_while_a_cycle_ends_is_read_in_that_time(sandbox):
    service = start_ending_cycle(sandbox)
    connection = sandbox.connect()
    wait_until(lambda: sum("socket" in target for target in service.descriptors.values()) > 2,
               "a client that is set aside")
    write(connection, "late")
    service.wait_for_line("> Received event", 2)
    assert service.lines.count(CYCLE) == 1
    assert TcpCollector(sandbox).wait_for(2) == [b"perf01 held", b"new late"]


def test_cycle_ends_in_the_usual_order_while_clients_come_in(sandbox):
    service = begin_service(sandbox, *NAMES, allowed=["end"], rows=[ROW])
    service.wait_for_cycle(1)
    go_on = threading.Event()

    def raise_events():
        while not go_on.wait(0.005):
            sandbox.raise_event("x")
    sender = threading.Thread(target=raise_events)
    sender.start()
    service.wait_for_line("> Received event", 10)
    sandbox.write_settings(**{**sandbox.settings, "facility": 4})
    service.wait_for_line("facility: 4")
    service.wait_for_line(starting("perfMon"), 2)
    go_on.set()
    sender.join()
    progress = [line for line in service.lines if line.startswith(("Start", "Stop", "listen"))]
    cycle = [CYCLE, "listening...", *map(starting, NAMES)]
    assert progress == ["Starting service...", *cycle, *map(stopping, NAMES), *cycle]
