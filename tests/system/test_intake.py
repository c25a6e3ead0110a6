"""What the service takes in from a connection."""


import pytest

from support.polling import wait_until
from support.records import make_record
from support.sandbox import ROW

RECEIVED = "> Received event"


def start_bare_service(sandbox, **kwargs):
    """A service without definitions and settings, and what it has printed."""
    service = sandbox.start_listening_service(**kwargs)
    wait_until(lambda: "Invalid IP address" in service.stdout, "the whole start")
    return service, service.stdout


def test_allowed_event_is_printed_and_forwarded(sandbox, udp_collector):
    service = sandbox.start_forwarding_service()
    sandbox.raise_event("95,80")
    assert udp_collector.wait_for(1) == [b"perf01 95,80"]
    assert service.lines[-4:] == [RECEIVED, "Event [perf01] (95,80) at 100",
                                  "> Process events", ">>> perf01 95,80"]
    assert service.stderr == ""


def test_undefined_event_is_printed_and_reported(sandbox):
    service, start = start_bare_service(sandbox)
    sandbox.raise_event("95", "PERF01")
    expected = (f"{start}{RECEIVED}\nEvent [PERF01] (95) at 100\n"
                "Event PERF01 is not defined\n")
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert service.stderr == ""


def test_event_that_is_not_allowed_is_printed_and_dropped_without_a_word(sandbox, udp_collector):
    service = sandbox.start_forwarding_service(ROW, "sys05,USB,USB device added,info")
    sandbox.raise_event("a", "sys05")
    sandbox.raise_event("b")
    assert udp_collector.wait_for(1) == [b"perf01 b"]
    assert service.lines[-6:] == [RECEIVED, "Event [sys05] (a) at 100",
                                  RECEIVED, "Event [perf01] (b) at 100",
                                  "> Process events", ">>> perf01 b"]
    assert service.stderr == ""


def test_record_that_comes_in_two_pieces_is_taken_as_its_first(sandbox, udp_collector):
    service = sandbox.start_forwarding_service()
    with sandbox.connect() as connection:
        connection.sendall(make_record("perf01", "95,80")[:10])
        service.wait_for_line("Event [perf01] (95) at 0")
        with pytest.raises(OSError):  # the service has hung up
            wait_until(lambda: connection.sendall(b"x" * 134), "a failed write")
    assert udp_collector.wait_for(1) == [b"perf01 95"]
    assert service.lines.count(RECEIVED) == 1


def test_client_that_closes_without_writing_gives_one_line_and_nothing_else(sandbox):
    service, start = start_bare_service(sandbox)
    sandbox.connect().close()
    wait_until(lambda: service.error_lines, "a line on standard error")
    service.wait_for_pauses(1)
    assert service.stdout == start
    assert [line.split(": ")[0] for line in service.error_lines] == ["read"]
