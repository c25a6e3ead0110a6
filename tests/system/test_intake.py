"""What the service takes in from a connection."""

import contextlib
import random
import struct
import time

import pytest

from support.polling import wait_until
from support.process import POLL
from support.sandbox import RECORD_SIZE

ROWS = ["perf01,CPU,CPU usage is high,warn", "sys05,USB,USB device added,info"]
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": "[ID] [VAL]"}
RECEIVED = "> Received event"
TIMED_OUT = "read: Connection timed out\n"


def record(id_, values=b"", moment=0):
    return struct.pack("<8s128sq", id_, values, moment)


def text(content, start):
    """From a byte of a record to its next NUL, or to the record's end."""
    return content[start:].split(b"\0")[0]


def described(sent):
    """What the service prints about bytes that hold no defined event: it reads on where a text
    has no end, and takes what was not sent for zeros."""
    content = sent.ljust(RECORD_SIZE, b"\0")
    moment = struct.unpack_from("<Q", content, 136)[0]
    return (b"> Received event\nEvent [%s] (%s) at %d\nEvent %s is not defined\n"
            % (text(content, 0), text(content, 8), moment, text(content, 0)))


def start_service(sandbox, **kwargs):
    sandbox.write_definitions(*ROWS)
    sandbox.write_settings(**SETTINGS)
    return sandbox.start_listening_service(**kwargs)


def start_bare_service(sandbox, **kwargs):
    """A service without definitions and settings, and what it has printed."""
    service = sandbox.start_listening_service(**kwargs)
    wait_until(lambda: "Invalid IP address" in service.stdout, "the whole start")
    return service, service.stdout_bytes


def assert_taken_as_they_are(sandbox, messages):
    """Sends each message on a connection of its own."""
    service, start = start_bare_service(sandbox, env=sandbox.eager())
    for message in messages:
        sandbox.send_bytes(message)
    expected = start + b"".join(described(message) for message in messages)
    wait_until(lambda: len(service.stdout_bytes) >= len(expected), lambda: service.stdout_bytes)
    assert service.stdout_bytes == expected
    assert (service.stderr, service.is_running()) == ("", True)


# A record and its event

def test_allowed_event_is_printed_and_forwarded(sandbox, udp_collector):
    service = start_service(sandbox)
    sandbox.send_bytes(record(b"perf01", b"95,80", 1700000000))
    assert udp_collector.wait_for(1) == [b"perf01 95,80"]
    assert service.lines[-4:] == [RECEIVED, "Event [perf01] (95,80) at 1700000000",
                                  "> Process events", ">>> perf01 95,80"]
    assert service.stderr == ""


def test_undefined_event_is_printed_and_reported(sandbox):
    service, start = start_bare_service(sandbox)
    sandbox.send_bytes(record(b"perf09", b"95", 1700000000))
    expected = start + b"""> Received event
Event [perf09] (95) at 1700000000
Event perf09 is not defined
"""
    wait_until(lambda: service.stdout_bytes == expected, lambda: service.stdout)
    assert service.stderr == ""


def test_event_that_is_not_allowed_is_printed_and_dropped_without_a_word(sandbox, udp_collector):
    service = start_service(sandbox)
    sandbox.send_bytes(record(b"sys05", b"a", 1))
    sandbox.send_bytes(record(b"perf01", b"b", 2))
    assert udp_collector.wait_for(1) == [b"perf01 b"]
    assert service.lines[-6:] == [RECEIVED, "Event [sys05] (a) at 1",
                                  RECEIVED, "Event [perf01] (b) at 2",
                                  "> Process events", ">>> perf01 b"]
    assert service.stderr == ""


@pytest.mark.parametrize("moment, printed", [
    (0, "0"), (-1, "18446744073709551615"), (2**63 - 1, "9223372036854775807"),
    (-2**63, "9223372036854775808")])
def test_time_is_printed_as_an_unsigned_number(sandbox, moment, printed):
    service = sandbox.start_listening_service()
    sandbox.send_bytes(record(b"perf01", b"", moment))
    service.wait_for_line(f"Event [perf01] () at {printed}")


def test_identifier_is_matched_with_its_case(sandbox):
    service = start_service(sandbox)
    sandbox.send_bytes(record(b"PERF01"))
    service.wait_for_line("Event PERF01 is not defined")


def test_bytes_behind_the_end_of_a_text_are_not_read(sandbox, udp_collector):
    start_service(sandbox)
    sandbox.send_bytes(record(b"perf01\0x", b"95\0" + b"x" * 125))
    assert udp_collector.wait_for(1) == [b"perf01 95"]


# One read for each connection

def test_only_the_first_of_two_records_on_a_connection_is_taken(sandbox, udp_collector):
    service = start_service(sandbox)
    sandbox.send_bytes(record(b"perf01", b"first") + record(b"perf01", b"second"))
    sandbox.send_bytes(record(b"perf01", b"next client"))
    assert udp_collector.wait_for(2) == [b"perf01 first", b"perf01 next client"]
    assert service.lines.count(RECEIVED) == 2


def test_record_that_comes_in_two_pieces_is_taken_as_its_first(sandbox, udp_collector):
    service = start_service(sandbox)
    with sandbox.connect() as connection:
        connection.sendall(record(b"perf01", b"95,80")[:10])
        service.wait_for_line("Event [perf01] (95) at 0")
        with pytest.raises(OSError):  # the service has hung up
            wait_until(lambda: connection.sendall(b"x" * 134), "a failed write")
    assert udp_collector.wait_for(1) == [b"perf01 95"]
    assert service.lines.count(RECEIVED) == 1


def test_records_of_every_length_are_taken_as_they_are(sandbox):
    whole = record(b"abcdefg", b"v" * 127, 2**63 - 1)
    assert_taken_as_they_are(sandbox, [whole[:size] for size in range(1, RECORD_SIZE + 1)])


def test_records_of_every_length_without_any_nul_are_taken_as_they_are(sandbox):
    whole = bytes(33 + index % 90 for index in range(RECORD_SIZE))
    assert_taken_as_they_are(sandbox, [whole[:size] for size in range(1, RECORD_SIZE + 1)])


def test_two_thousand_records_of_random_bytes_are_taken_as_they_are(sandbox):
    generator = random.Random(144)
    assert_taken_as_they_are(sandbox, [generator.randbytes(RECORD_SIZE) for _ in range(2000)])


def test_identifier_that_fills_its_field_is_not_the_event_of_its_first_characters(sandbox):
    service = start_service(sandbox)
    sandbox.send_bytes(b"perf01xx95".ljust(RECORD_SIZE, b"\0"))
    service.wait_for_line("Event perf01xx95 is not defined")
    assert service.lines[-2] == "Event [perf01xx95] (95) at 0"


# Clients that send nothing

def test_client_that_closes_without_writing_gives_one_line_and_nothing_else(sandbox):
    service, start = start_bare_service(sandbox)
    sandbox.connect().close()
    wait_until(lambda: service.error_lines, "a line on standard error")
    client = sandbox.send("perf01", "95")
    service.wait_for_line("Event perf01 is not defined")
    assert service.stdout == start.decode() + f"{RECEIVED}\n{client.stdout}" \
        "Event perf01 is not defined\n"
    assert [line.split(": ")[0] for line in service.error_lines] == ["read"]


def test_client_that_closes_later_without_writing_does_not_hold_the_service(sandbox):
    service = sandbox.start_listening_service()
    with sandbox.connect():
        service.wait_for_call(POLL)  # for what this client writes
        assert service.stderr == ""
    wait_until(lambda: service.error_lines, "a line on standard error")
    assert service.stderr.startswith("read: ") and service.stderr.count("\n") == 1
    assert service.stderr != TIMED_OUT


def test_silent_client_is_given_up_after_five_seconds(sandbox):
    service = sandbox.start_listening_service()
    started = time.monotonic()
    with sandbox.connect():
        wait_until(lambda: service.error_lines, "a line on standard error")
        assert 4.9 < time.monotonic() - started < 15
    assert service.stderr == TIMED_OUT


def test_next_client_is_served_while_a_silent_one_stays_connected(sandbox, udp_collector):
    service = start_service(sandbox)
    with sandbox.connect():
        sandbox.send("perf01", "next")
        assert udp_collector.wait_for(1) == [b"perf01 next"]
    assert service.stderr == TIMED_OUT


def test_client_that_writes_within_the_time_limit_is_heard(sandbox, udp_collector):
    service = start_service(sandbox)
    with sandbox.connect() as connection:
        service.wait_for_call(POLL)  # for what this client writes
        connection.sendall(record(b"perf01", b"late"))
    assert udp_collector.wait_for(1) == [b"perf01 late"]
    assert service.stderr == ""


@pytest.mark.parametrize("number, message", [(104, "Connection reset by peer"),
                                             (5, "Input/output error")])
def test_failed_read_is_reported_and_queues_nothing(sandbox, number, message):
    service, start = start_bare_service(sandbox, env=sandbox.faulty(FAULTS=f"read:1:{number}"))
    with sandbox.connect() as connection, contextlib.suppress(BrokenPipeError):  # it has hung up
        connection.sendall(record(b"perf01"))
    service.wait_for_error_line(f"read: {message}")
    sandbox.send_bytes(record(b"perf02"))
    service.wait_for_line("Event perf02 is not defined")
    assert service.stdout_bytes == start + described(record(b"perf02"))
    assert service.stderr == f"read: {message}\n"
