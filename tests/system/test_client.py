"""The client of -e: what it prints, what it sends and how it fails."""

import struct
import time

import pytest

from support.polling import wait_until
from support.sandbox import RECORD_SIZE, SERVICE_SOCKET

REFUSED, NO_SPACE, NO_DESCRIPTORS, NO_ACCESS = 111, 28, 24, 13


def accept_record(server):
    """All that the next client sends, and no byte more."""
    connection, _ = server.accept()
    with connection, connection.makefile("rb") as stream:
        return stream.read()


def record_of(id_, values, moment):
    return struct.pack("<8s128sq", id_, values, moment)


def printed_time(client):
    return int(client.lines[0].rsplit(" ", 1)[1])


def send_to(sandbox, *arguments, **kwargs):
    """A client that has ended, and what it sent."""
    with sandbox.bind_service_socket() as server:
        server.listen()
        client = sandbox.start_client(*arguments, **kwargs)
        record = accept_record(server)
    client.wait()
    return client, record


@pytest.mark.parametrize("id_, values, sent_id, sent_values", [
    ("sys05", "a,b", "sys05", "a,b"),
    ("network", "a", "network", "a"),
    ("network8", "a", "network", "a"),
    ("network" * 30, "a", "network", "a"),
    ("perf01", "v" * 127, "perf01", "v" * 127),
    ("perf01", "v" * 127 + "w", "perf01", "v" * 127),
    ("perf01", "v" * 5000, "perf01", "v" * 127),
    ("perf01", "80 %s, ümlaut", "perf01", "80 %s, ümlaut"),
    ("perf01", "a\nb", "perf01", "a\nb"),
], ids=["plain", "7-character-id", "8-character-id", "long-id", "127-character-values",
        "128-character-values", "long-values", "any-text", "line-feed"])
def test_client_prints_and_sends_one_record_cut_to_its_fields(sandbox, id_, values, sent_id,
                                                              sent_values):
    client, record = send_to(sandbox, id_, values)
    moment = struct.unpack_from("<q", record, 136)[0]
    assert client.stdout == f"Event [{sent_id}] ({sent_values}) at {moment}\n"
    assert record == record_of(sent_id.encode(), sent_values.encode(), moment)
    assert (client.stderr, client.status) == ("", 0)


def test_values_cut_inside_a_character_are_sent_and_printed_byte_for_byte(sandbox):
    client, record = send_to(sandbox, "perf01", "v" * 126 + "ü")
    assert record[8:136] == b"v" * 126 + b"\xc3\0"
    assert client.stdout_bytes.startswith(b"Event [perf01] (" + b"v" * 126 + b"\xc3) at ")


def test_event_without_values_is_sent_with_empty_ones_and_printed_with_empty_brackets(sandbox):
    client, record = send_to(sandbox, "sys05")
    moment = printed_time(client)
    assert record == record_of(b"sys05", b"", moment)
    assert client.stdout == f"Event [sys05] () at {moment}\n"


def test_time_is_that_of_the_start_even_when_the_service_comes_later(sandbox):
    earliest = int(time.time())
    client = sandbox.start_client("perf01", "95")
    wait_until(lambda: client.lines, "the printed line")
    latest = int(time.time())
    wait_until(lambda: time.time() >= latest + 2, "another second of the clock")
    with sandbox.bind_service_socket() as server:
        server.listen()
        record = accept_record(server)
    assert struct.unpack_from("<q", record, 136)[0] == printed_time(client)
    # The client's clock may be a tick behind this one.
    assert earliest - 1 <= printed_time(client) <= latest


def test_service_prints_the_line_that_the_client_printed(sandbox):
    service = sandbox.start_listening_service()
    client = sandbox.send("perf01", "95,80")
    service.wait_for_line(client.lines[0])
    assert service.lines[service.lines.index(client.lines[0]) - 1] == "> Received event"


def test_line_is_visible_through_a_pipe_while_the_client_still_tries_to_connect(sandbox):
    client = sandbox.start_client("perf01", "95")
    wait_until(lambda: client.stdout.endswith("\n"), "the printed line", 10)
    assert client.is_running()
    assert (client.stdout.count("\n"), client.stderr) == (1, "")


def test_client_succeeds_when_the_service_comes_three_seconds_later(sandbox):
    started = time.monotonic()
    client = sandbox.start_client("perf01", "95")
    wait_until(lambda: time.monotonic() > started + 3, "three seconds")
    service = sandbox.start_listening_service()
    assert (client.wait(), client.stderr) == (0, "")
    service.wait_for_line(client.lines[0])


def test_client_tries_again_after_a_socket_file_that_refuses(sandbox):
    with sandbox.bind_service_socket() as server:
        client = sandbox.start_client("perf01", "95")
        wait_until(lambda: client.lines, "the printed line")
        server.listen()
        assert accept_record(server) == record_of(b"perf01", b"95", printed_time(client))
    assert client.wait() == 0


@pytest.mark.slow
@pytest.mark.parametrize("file_exists, error", [
    (False, "connect: No such file or directory\n"), (True, "connect: Connection refused\n")],
    ids=["missing", "refusing"])
def test_client_without_a_service_gives_up_after_30_seconds(sandbox, file_exists, error):
    if file_exists:
        sandbox.bind_service_socket().close()
    started = time.monotonic()
    client = sandbox.start_client("perf01")
    assert client.wait() == 1
    assert 28 <= time.monotonic() - started <= 55
    assert client.stdout == f"Event [perf01] () at {printed_time(client)}\n"
    assert client.stderr == error


@pytest.mark.slow
@pytest.mark.parametrize("failures, status, error", [
    (29, 0, ""), (30, 1, "connect: Permission denied\n")])
def test_client_makes_thirty_attempts_a_second_apart(sandbox, failures, status, error):
    faults = ",".join(f"connect:{call}:{NO_ACCESS}" for call in range(1, failures + 1))
    sandbox.start_listening_service()
    started = time.monotonic()
    client = sandbox.start_client("perf01", env=sandbox.faulty(FAULTS=faults))
    assert (client.wait(), client.stderr) == (status, error)
    assert failures - 1 <= time.monotonic() - started <= 55


def test_client_without_a_socket_ends_with_status_1(sandbox):
    client = sandbox.run(sandbox.executable, "-e", "perf01", "95",
                         env=sandbox.faulty(FAULTS=f"socket:1:{NO_DESCRIPTORS}"))
    assert client.stdout == f"Event [perf01] (95) at {printed_time(client)}\n"
    assert (client.stderr, client.status) == ("socket: Too many open files\n", 1)


def test_failed_write_ends_the_client_with_status_1(sandbox):
    client, record = send_to(sandbox, "perf01", "95",
                             env=sandbox.faulty(FAULTS=f"write:1:{NO_SPACE}"))
    assert client.stdout == f"Event [perf01] (95) at {printed_time(client)}\n"
    assert (client.stderr, client.status) == ("write: No space left on device\n", 1)
    assert record == b""


@pytest.mark.slow
def test_service_that_hangs_up_at_once_is_a_failed_write_and_not_a_signal(sandbox):
    with sandbox.bind_service_socket() as server:
        server.listen()
        client = sandbox.start_client("perf01", env=sandbox.faulty(DELAYS="write:1:10000"))
        server.accept()[0].close()
        client.wait()
    assert (client.stderr, client.status) == ("write: Broken pipe\n", 1)


def test_client_ends_without_waiting_for_an_answer(sandbox):
    with sandbox.bind_service_socket() as server:
        server.listen()
        client = sandbox.run(sandbox.executable, "-e", "perf01")
        assert (client.status, len(accept_record(server))) == (0, RECORD_SIZE)


def test_client_leaves_the_socket_file_in_place(sandbox):
    send_to(sandbox, "perf01")
    assert sandbox.path(SERVICE_SOCKET).is_socket()
