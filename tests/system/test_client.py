"""The client of -e: what it prints, what it sends and how it fails."""

import struct
import time

import pytest

from support.polling import wait_until

NO_ACCESS = 13


def accept_record(server):
    """All that the next client sends, and no byte more."""
    connection, _ = server.accept()
    with connection, connection.makefile("rb") as stream:
        return stream.read()


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


@pytest.mark.parametrize("arguments, identifier, values", [
    (["sys05"], b"sys05", b""),
    (["network8", "v" * 126 + "ü"], b"network", b"v" * 126 + b"\xc3")],
    ids=["no-values", "cut"])
def test_client_prints_and_sends_one_record_cut_to_its_fields(
        sandbox, arguments, identifier, values):
    client, record = send_to(sandbox, *arguments)
    moment = struct.unpack_from("<q", record, 136)[0]
    assert record == struct.pack("<8s128sq", identifier, values, moment)
    assert client.stdout_bytes == b"Event [%s] (%s) at %d\n" % (identifier, values, moment)
    assert (client.stderr, client.status) == ("", 0)


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


def test_client_tries_again_until_the_service_comes(sandbox):
    client = sandbox.start_client("perf01", "95")
    wait_until(lambda: client.lines, "the printed line")
    service = sandbox.start_listening_service()
    assert (client.wait(), client.stderr) == (0, "")
    service.wait_for_line(client.lines[0])


@pytest.mark.slow
@pytest.mark.parametrize("file_exists, error", [
    (False, "connect: No such file or directory\n"), (True, "connect: Connection refused\n")],
    ids=["missing", "refusing"])
def test_client_without_a_service_prints_its_record_and_gives_up_after_30_seconds(
        sandbox, file_exists, error):
    if file_exists:
        sandbox.bind_service_socket().close()
    started = time.monotonic()
    client = sandbox.start_client("perf01")
    wait_until(lambda: client.lines, "the printed line", 10)
    assert client.wait() == 1
    assert 29.9 <= time.monotonic() - started <= 55
    assert client.stdout == f"Event [perf01] () at {printed_time(client)}\n"
    assert client.stderr == error


@pytest.mark.parametrize("refusals, status, error", [
    (29, 0, ""), (30, 1, "connect: Permission denied\n")])
def test_client_makes_thirty_attempts(sandbox, refusals, status, error):
    faults = ",".join(f"connect:{call}:{NO_ACCESS}" for call in range(1, refusals + 1))
    sandbox.start_listening_service()
    client = sandbox.start_client("perf01", env=sandbox.faulty(FAULTS=f"{faults},sleep:1+:4"))
    assert (client.wait(), client.stderr) == (status, error)


def test_service_that_hangs_up_ends_the_client_with_status_1(sandbox):
    with sandbox.bind_service_socket() as server:
        server.listen()
        client = sandbox.start_client("perf01", env=sandbox.faulty(DELAYS="write:1:2000"))
        server.accept()[0].close()
        assert (client.wait(), client.stderr) == (1, "write: Broken pipe\n")
