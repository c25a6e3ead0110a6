"""What the settings file says and how it shows: printed at each start of a cycle, and at the
collector. Which values are valid is a matter of the unit tests."""

import random

import pytest

from support.collectors import TcpCollector, UdpCollector
from support.polling import wait_until
from support.sandbox import CYCLE, ROW, SETTINGS as SETTINGS_PATH, TCP, UDP

ROWS = [ROW, "sys05,USB,added,emerg"]
LISTENING = "Server is listening on /tmp/ov-events"
NOISE = random.Random(4711).randbytes(65536)  # the same in each run


def test_without_a_file_no_event_is_allowed(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    service = sandbox.start_listening_service(env=sandbox.short_pauses())
    sandbox.raise_event("early")
    service.wait_for_line("Event [perf01] (early) at 100")
    sandbox.write_settings(**UDP)
    service.wait_for_cycle(2)
    sandbox.raise_event("late")
    assert udp_collector.wait_for(1) == [b"perf01 late"]


def test_template_facility_protocol_and_port_have_defaults(sandbox):
    collector = UdpCollector(sandbox, port=514)
    sandbox.write_definitions(ROW)
    sandbox.write_settings(allowed="perf01", host="127.0.0.1")
    sandbox.start_listening_service(env={"TZ": "UTC"})
    sandbox.raise_event("95")
    assert collector.wait_for(1) == [
        b"<28> Jan 01 00:01:40 tc-0042(127.0.0.1): perf01 CPU usage is high - 95 (warn)"]


def test_every_entry_is_printed_as_the_ini_reader_gives_it(sandbox):
    sandbox.write_settings_bytes(
        b"  port =  0x10  \n; a comment\nnot an entry\n[General]\nunknown=some text\n"
        b'formatString="<[PRI]>, %s"\n[net]\nport=5514\n')
    service = sandbox.start_listening_service()
    wait_until(lambda: "Invalid IP address" in service.stdout, "the end of the settings")
    assert sorted(service.lines[service.lines.index(LISTENING) + 1:-1]) == [
        "formatString: <[PRI]>, %s", "net/port: 5514", "port: 0x10", "unknown: some text"]
    assert service.stderr == ""


@pytest.mark.parametrize("allowed, arrived", [
    ("perf01  sys05", [b"perf01 a", b"sys05 b", b"sys05 end"]), ('"perf01,sys05 sec03"', [])])
def test_allowed_events_are_those_between_blanks(sandbox, udp_collector, allowed, arrived):
    service = sandbox.start_forwarding_service(*ROWS, allowed=allowed)
    for event, values in ("perf01", "a"), ("sys05", "b"), ("sys05", "end"):
        sandbox.raise_event(values, event)
    service.wait_for_line("Event [sys05] (end) at 100")
    service.wait_until_idle()
    assert udp_collector.wait_for(len(arrived)) == arrived


def test_removed_keys_keep_their_last_values(sandbox, tcp_collector):
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses(), **TCP, facility=16)
    sandbox.write_settings(cycle=2)
    service.wait_for_cycle(2)
    sandbox.raise_event("a")
    assert tcp_collector.wait_for(1) == [b"perf01 a"]


def test_changed_values_hold_from_the_next_cycle_on(sandbox, udp_collector):
    second = TcpCollector(sandbox, address="127.0.0.2", port=5515)
    service = sandbox.start_forwarding_service(*ROWS, env=sandbox.short_pauses())
    sandbox.raise_event("a")
    assert udp_collector.wait_for(1) == [b"perf01 a"]
    sandbox.reload(service, 2, host="127.0.0.2", port=5515, facility=1, allowed="sys05", **TCP,
                   formatString="new [PRI] [ID]")
    sandbox.raise_event("b")
    sandbox.raise_event("c", "sys05")
    assert second.wait_for(1) == [b"new 8 sys05"]


@pytest.mark.parametrize("content", [NOISE, b"", None], ids=["noise", "empty", "directory"])
def test_settings_that_are_none_keep_the_values_before_them(sandbox, udp_collector, content):
    sandbox.has_invariant = content != NOISE  # which prints what looks like anything
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses())
    if content is None:
        sandbox.sh(f"rm {SETTINGS_PATH}; mkdir {SETTINGS_PATH}; "
                   f"touch -d '+5 seconds' {SETTINGS_PATH}")
    else:
        sandbox.write_settings_bytes(content)
    service.wait_for_line(CYCLE, count=2)
    sandbox.raise_event("a")
    assert udp_collector.wait_for(1) == [b"perf01 a"]
