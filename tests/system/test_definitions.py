"""Which events the service knows, by its definitions file. What a row may look like is a matter of
the unit tests."""

import random

import pytest

from support.polling import wait_until
from support.sandbox import DEFINITIONS, FALLBACK_DEFINITIONS, ROW

USB_ROW = "sys05,USB,USB device added,info"
NOISE = random.Random(4711).randbytes(65536)  # the same in each run
MEGABYTE = 1 << 20


def loading_lines(service):
    return [line for line in service.lines if line.startswith("loading ")]


def defined_events(sandbox, service, *events):
    """Those of the events that the service does not report as undefined."""
    for event in (*events, "last"):
        sandbox.raise_event("", event)
    service.wait_for_line("Event last is not defined")
    return [event for event in events if f"Event {event} is not defined" not in service.lines]


@pytest.mark.parametrize("rows, defined, path", [
    ([ROW], ["perf01"], DEFINITIONS), ([], [], DEFINITIONS),
    (None, ["sys05"], FALLBACK_DEFINITIONS)], ids=["system", "empty-system", "fallback-only"])
def test_fallback_is_read_only_without_a_system_file(sandbox, rows, defined, path):
    sandbox.write_definitions(USB_ROW, path=FALLBACK_DEFINITIONS)
    if rows is not None:
        sandbox.write_definitions(*rows)
    service = sandbox.start_listening_service()
    assert loading_lines(service) == ["loading Event definitions...", f"loading {path}"]
    assert defined_events(sandbox, service, "perf01", "sys05") == defined
    assert service.stderr == ""


def test_no_file_gives_no_message_and_no_definitions(sandbox):
    service = sandbox.start_listening_service()
    assert defined_events(sandbox, service, "perf01", "sys05") == []
    assert loading_lines(service) == ["loading Event definitions..."]
    assert service.stderr == ""


@pytest.mark.parametrize("path", [DEFINITIONS, FALLBACK_DEFINITIONS], ids=["system", "fallback"])
def test_file_that_cannot_be_opened_gives_a_warning_that_names_the_system_file(sandbox, path):
    sandbox.write_definitions(USB_ROW, path=FALLBACK_DEFINITIONS)
    sandbox.sh(f"rm -f {path}; mkdir {path}")
    service = sandbox.start_listening_service()
    assert defined_events(sandbox, service, "sys05") == []
    assert loading_lines(service)[1:] == [f"loading {path}"]
    assert service.stderr == f"Unable to open file: {DEFINITIONS}\n"


def test_changed_definitions_take_effect_at_the_next_start_only(sandbox):
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses())
    sandbox.write_definitions(USB_ROW)
    sandbox.reload(service, 2)
    assert defined_events(sandbox, service, "perf01", "sys05") == ["perf01"]
    service.kill()
    sandbox.sh("rm /tmp/ov-events")
    service = sandbox.start_listening_service()
    assert defined_events(sandbox, service, "perf01", "sys05") == ["sys05"]


@pytest.mark.parametrize("row, line, warning", [
    ("perf01, CPU, Größe 超, warn", "4|Größe 超|warn", ""),
    ("perf01,CPU,Lost, reconnecting,err", "-1|Lost|reconnecting",
     "Unknown syslog level: reconnecting\n"),
    ("perf01,A,first,err\n # note\nperf01,B,# 2nd,nötig", "-1|# 2nd|nötig",
     'Invalid line format: " # note"\nUnknown syslog level: nötig\n')],
    ids=["blanks", "comma-in-description", "last-row-wins"])
def test_row_gives_priority_description_and_severity(sandbox, udp_collector, row, line, warning):
    service = sandbox.start_forwarding_service(
        row, facility=0, formatString="[PRI]|[DESC]|[SEV]", env={"LC_ALL": "C"})
    sandbox.raise_event("")
    assert udp_collector.wait_for(1) == [line.encode()]
    assert service.stderr == warning


@pytest.mark.parametrize("variable, value", [
    ("QT_LOGGING_RULES", "*=false"), ("QT_FATAL_WARNINGS", "1"), ("QT_MESSAGE_PATTERN", "x")])
def test_warnings_do_not_follow_the_environment(sandbox, variable, value):
    sandbox.write_definitions('a "quoted\\ line')
    service = sandbox.start_listening_service(env={variable: value})
    assert service.stderr == 'Invalid line format: "a \\"quoted\\\\ line"\n'


@pytest.mark.parametrize("content", [
    NOISE + b"\n" + ROW.encode() + b"\n" + NOISE, b"\0,\0,\0,\0\n" + ROW.encode() + b"\n\0\0\0\n",
    b"y" * MEGABYTE + b"\n" + ROW.encode() + b"\n",
    b"".join(b"e%06d,E,Event,info\n" % number for number in range(100_000)) + ROW.encode()],
    ids=["noise", "nul", "long-line", "many-rows"])
def test_good_row_is_found_in_a_file_of_any_kind(sandbox, udp_collector, content):
    service = sandbox.start_forwarding_service(content, formatString="[DESC]")
    sandbox.raise_event("")
    assert udp_collector.wait_for(1) == [b"CPU usage is high"]
    assert service.is_running()


def test_megabytes_arrive_whole_over_tcp(sandbox, tcp_collector):
    sandbox.start_forwarding_service(f"perf01,CPU,{'x' * MEGABYTE},warn", protocol="syslog-tcp",
                                     formatString="[DESC]" * 3)
    sandbox.raise_event("")
    wait_until(lambda: tcp_collector.connections, "the line")
    assert tcp_collector.connections == [b"x" * 3 * MEGABYTE + b"\n"]
