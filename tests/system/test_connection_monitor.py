"""The secure connection monitor: which changes of the agent's status raise which event."""

import pytest

from support.monitors import (
    STATUS_FILE, arrived, reload, start_monitors, wait_until_checked, write_status)


def events_of(sandbox, collector, *statuses, **settings):
    """All that is raised while the agent's status takes these values in turn, from the start on. A
    list has the lines of the file; None takes the file away."""
    service = None
    for status in statuses:
        if status is None:
            sandbox.path(STATUS_FILE).unlink()
        else:
            write_status(sandbox, *(status if isinstance(status, list) else ("agent", "1", status)))
        service = service or start_monitors(sandbox, "agentConnMon", **settings)
        wait_until_checked(service)
    return arrived(sandbox, collector)


@pytest.mark.parametrize("statuses, events", [
    (["  CONNECTED\t ", "CONNECTED"], [b"net02 "]),
    (["CONNECTED", "CONNECTING...", "CONNECTED"], [b"net02 ", b"net02 "]),
    (["CONNECTED", "DISCONNECTED"], [b"net02 ", b"net03 DISCONNECTED"]),
    (["CERTIFICATE WARNING", "Connected"], [b"net02 CERTIFICATE WARNING", b"net03 Connected"]),
    (["CONNECTED", ["agent", "1"], None], [b"net02 ", b"net03 "]),
    ([["CONNECTED", "LOST", "", "LOST"]], []),
    ([["\0", "LOST", "CONNECTED"]], [b"net02 "])],
    ids=["connected", "connecting", "failure", "warning", "shrinks", "other-lines", "nul"])
def test_each_change_of_the_third_line_raises_its_event(
        sandbox, udp_collector, statuses, events):
    assert events_of(sandbox, udp_collector, *statuses) == events


@pytest.mark.parametrize("allowed, events", [
    ("net03", [b"net03 LOST", b"net03 LOST"]), ("net02", [b"net02 "])])
def test_disallowed_event_is_not_raised_and_its_status_is_remembered(
        sandbox, udp_collector, allowed, events):
    assert events_of(sandbox, udp_collector, "LOST", "CONNECTED", "LOST",
                     allowed=[allowed, "end"]) == events


def test_status_is_reported_again_after_a_reload(sandbox, udp_collector):
    write_status(sandbox, "agent", "1", "CONNECTED")
    service = start_monitors(sandbox, "agentConnMon", allowed=["net03", "end"])
    wait_until_checked(service)
    reload(sandbox, service, 2, "agentConnMon", allowed=["net02", "end"])
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == [b"net02 "]
    assert set(service.error_lines) == {'AgentConnMon::ReadAgentStatus:  "CONNECTED"'}


@pytest.mark.parametrize("make", [
    "true", "mkdir {}", "mkfifo {}", "ln -s {0} {0}", "ln -s /dev/zero {}"])
def test_what_is_no_file_reads_as_empty(sandbox, udp_collector, make):
    sandbox.sh(make.format(STATUS_FILE))
    service = start_monitors(sandbox, "agentConnMon")
    wait_until_checked(service)
    sandbox.sh(f"rm -rf {STATUS_FILE}")
    write_status(sandbox, "agent", "1", "CONNECTED")
    wait_until_checked(service)
    assert arrived(sandbox, udp_collector) == [b"net02 "]
    assert service.error_lines[0] == 'AgentConnMon::ReadAgentStatus:  ""'
