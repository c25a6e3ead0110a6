"""The secure connection monitor: which changes of the agent's status raise which event."""

import pytest

from support.monitors import (
    STATUS_FILE, arrived, reload, start_monitors, wait_until_nothing_is_left, write_status)
from support.polling import wait_until


def start(sandbox, **settings):
    return start_monitors(sandbox, "agentConnMon", **settings)


def told(status):
    return f'AgentConnMon::ReadAgentStatus:  "{status}"'


def wait_until_checked(service):
    """Waits until a check has ended that began after this call: each tells its status first."""
    before = len(service.error_lines)
    wait_until(lambda: len(service.error_lines) >= before + 3, lambda: service.error_lines)


def events_of(sandbox, collector, *statuses, **settings):
    """All that is raised while the agent's status takes these values in turn, from the start on.
    Those that are None take the file away."""
    service = None
    for status in statuses:
        if status is None:
            sandbox.path(STATUS_FILE).unlink()
        else:
            write_status(sandbox, "agent", "1", status)
        service = service or start(sandbox, **settings)
        wait_until_checked(service)
    return arrived(sandbox, collector)


def events_of_file(sandbox, collector, content):
    """All that is raised of a file with these contents at the start."""
    sandbox.path(STATUS_FILE).write_bytes(content)
    wait_until_checked(start(sandbox))
    return arrived(sandbox, collector)


# Changes

def test_connection_is_reported_once_and_without_values(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "  CONNECTED\t ", "CONNECTED") == [b"net02 "]


def test_connecting_raises_nothing_and_counts_as_a_change(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "CONNECTED", "CONNECTING...", "CONNECTED") == [
        b"net02 ", b"net02 "]


def test_connecting_at_the_start_raises_nothing(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "CONNECTING...") == []


def test_any_other_status_is_reported_as_a_failure(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "CONNECTED", "DISCONNECTED") == [
        b"net02 ", b"net03 DISCONNECTED"]


def test_certificate_warning_is_reported_as_a_connection_with_its_text(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "CERTIFICATE WARNING", "CONNECTED") == [
        b"net02 CERTIFICATE WARNING", b"net02 "]


@pytest.mark.parametrize("status", [
    "Connected", "CONNECTING", "CONNECTED.", "CONNECTING....", "Certificate Warning",
    "CERTIFICATE  WARNING", "\"CONNECTED\"", "Größe [ID] %s", "CONNECTED CONNECTED"])
def test_other_spellings_are_failures(sandbox, udp_collector, status):
    assert events_of(sandbox, udp_collector, status) == [f"net03 {status}".encode()]


def test_failure_that_turns_into_another_is_reported(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "LOST", "FAILED", "FAILED", "LOST") == [
        b"net03 LOST", b"net03 FAILED", b"net03 LOST"]


def test_long_status_is_cut_to_127_bytes(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "S" * 500) == [b"net03 " + b"S" * 127]


def test_each_status_is_told_with_every_check(sandbox):
    write_status(sandbox, "agent", "1", " CONNECTED ")
    service = start(sandbox)
    wait_until_checked(service)
    before = len(service.error_lines)
    write_status(sandbox, "agent", "1", 'NOT "YET"')
    after = len(service.error_lines)
    wait_until_checked(service)
    assert set(service.error_lines[:before]) == {told("CONNECTED")}
    assert set(service.error_lines[after + 1:]) == {told('NOT \\"YET\\"')}


# What is allowed

def test_connection_that_is_disallowed_raises_nothing_and_is_remembered(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "LOST", "CONNECTED", "CERTIFICATE WARNING", "LOST",
                     allowed=["net03", "end"]) == [b"net03 LOST", b"net03 LOST"]


def test_failure_that_is_disallowed_raises_nothing_and_is_remembered(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "CONNECTED", "LOST", "CONNECTED",
                     allowed=["net02", "end"]) == [b"net02 ", b"net02 "]


def test_connection_is_reported_once_it_is_allowed(sandbox, udp_collector):
    write_status(sandbox, "agent", "1", "CONNECTED")
    service = start(sandbox, allowed=["net03", "end"])
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == []
    reload(sandbox, service, 2, "agentConnMon", allowed=["net02", "end"])
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == [b"net02 "]


def test_status_is_reported_again_after_a_reload(sandbox, udp_collector):
    write_status(sandbox, "agent", "1", "LOST")
    service = start(sandbox)
    wait_until_checked(service)
    reload(sandbox, service, 2, "agentConnMon")
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == [b"net03 LOST", b"net03 LOST"]


# The file

def test_missing_file_at_the_start_raises_nothing(sandbox, udp_collector):
    service = start(sandbox)
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == []
    assert set(service.error_lines) == {told("")}


def test_file_that_appears_is_reported(sandbox, udp_collector):
    service = start(sandbox)
    wait_until_checked(service)
    write_status(sandbox, "agent", "1", "CONNECTED")
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == [b"net02 "]


def test_file_that_disappears_is_reported_as_a_failure_without_values(sandbox, udp_collector):
    assert events_of(sandbox, udp_collector, "CONNECTED", None, "CONNECTED") == [
        b"net02 ", b"net03 ", b"net02 "]


def test_file_that_shrinks_to_two_lines_is_reported_as_a_failure_without_values(
        sandbox, udp_collector):
    write_status(sandbox, "agent", "1", "CONNECTED")
    service = start(sandbox)
    wait_until_checked(service)
    write_status(sandbox, "agent", "1")
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == [b"net02 ", b"net03 "]


@pytest.mark.parametrize("content", [
    b"", b"\n", b"CONNECTED\n", b"agent\nCONNECTED\n", b"CONNECTED\nLOST", b"agent\n1\n",
    b"agent\n1\n\n", b"agent\n1\n \t\n", b"LOST\nLOST\n\nLOST\nLOST\n"])
def test_file_without_a_word_on_its_third_line_raises_nothing(sandbox, udp_collector, content):
    assert events_of_file(sandbox, udp_collector, content) == []


@pytest.mark.parametrize("content", [
    b"agent\n1\nCONNECTED", b"agent\r\n1\r\nCONNECTED\r\n", b"\n\nCONNECTED\n",
    b"LOST\nLOST\nCONNECTED\nLOST\nLOST\n", b"agent\n1\n\xc2\xa0CONNECTED\xe2\x80\x83\n"])
def test_only_the_third_line_counts_and_without_white_space(sandbox, udp_collector, content):
    assert events_of_file(sandbox, udp_collector, content) == [b"net02 "]


@pytest.mark.parametrize("make", [
    "mkdir {}", "mkfifo {}", "ln -s /nowhere {}", "ln -s {0} {0}", "ln -s /dev/zero {}"])
def test_what_is_no_file_reads_as_empty(sandbox, udp_collector, make):
    sandbox.sh(make.format(STATUS_FILE))
    service = start(sandbox)
    wait_until_checked(service)
    sandbox.sh(f"rm -r {STATUS_FILE}")
    write_status(sandbox, "agent", "1", "CONNECTED")
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == [b"net02 "]
    assert service.error_lines[0] == told("")


def test_file_behind_a_link_is_read(sandbox, udp_collector):
    sandbox.sh(f"printf 'agent\\n1\\nCONNECTED\\n' >/tmp/status; ln -s /tmp/status {STATUS_FILE}")
    wait_until_checked(start(sandbox))
    assert arrived(sandbox, udp_collector) == [b"net02 "]


def test_no_descriptor_of_the_file_stays_open(sandbox, udp_collector):
    write_status(sandbox, "agent", "1", "CONNECTED")
    service = start(sandbox)
    for _ in range(5):
        wait_until_checked(service)
    wait_until_nothing_is_left(service)
