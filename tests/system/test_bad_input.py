"""Files that are missing, broken, huge or not what they should be: the service goes on."""

import random

import pytest

from support.collectors import UdpCollector
from support.polling import wait_until
from support.records import make_record
from support.sandbox import DEFINITIONS, SETTINGS as SETTINGS_FILE

ROW = "perf01,CPU,CPU usage is high,warn"
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514,
            "formatString": "<[PRI]> [ID] [DESC] ([SEV])"}
LINE = b"<28> perf01 CPU usage is high (warn)"
CYCLE = "Starting event server..."
MEGABYTE = 1 << 20
NOISE = random.Random(4711).randbytes(65536)  # the same in each run
INTEGERS = {"facility": 16, "port": 5514, "usbDevMon": 0, "vmwSigninMon": 0, "agentConnMon": 0,
            "perfMon": 0, "cpuThreshold": 70, "memThreshold": 70, "diskThreshold": 70}
KEPT_LINE = b"<132> perf01 CPU usage is high (warn)"  # with the facility of these
EVENT = make_record("perf01", "", 100)
NOT_DEFINED = ["> Received event", "Event [perf01] () at 100", "Event perf01 is not defined"]


def start(sandbox, definitions=None):
    """A service with good settings and, unless there are to be none, these definitions."""
    if definitions is not None:
        sandbox.write_definitions(definitions)
    sandbox.write_settings(**SETTINGS)
    return sandbox.start_listening_service()


def not_defined(sandbox, service):
    """What the service prints about an event that it finds undefined, and all its errors."""
    sandbox.send_bytes(EVENT)
    service.wait_for_line("Event perf01 is not defined")
    return service.lines[-3:], service.stderr


def test_without_definitions_no_event_is_defined(sandbox):
    service = start(sandbox)
    assert not_defined(sandbox, service) == (NOT_DEFINED, "")
    assert service.lines[1:3] == ["loading Event definitions...", CYCLE]


def test_empty_definitions_define_no_event(sandbox):
    service = start(sandbox, b"")
    assert not_defined(sandbox, service) == (NOT_DEFINED, "")
    assert service.lines[1:3] == ["loading Event definitions...", f"loading {DEFINITIONS}"]


def test_definitions_that_cannot_be_read_are_reported(sandbox):
    sandbox.sh(f"mkdir {DEFINITIONS}")
    service = start(sandbox)
    assert not_defined(sandbox, service) == (NOT_DEFINED, f"Unable to open file: {DEFINITIONS}\n")


def test_good_row_among_binary_noise_is_a_definition(sandbox, udp_collector):
    service = start(sandbox, NOISE + b"\n" + ROW.encode() + b"\n" + NOISE)
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]
    assert 'Invalid line format: "' in service.stderr


def test_noise_alone_defines_no_event(sandbox):
    service = start(sandbox, NOISE)
    assert not_defined(sandbox, service)[0] == NOT_DEFINED


def test_row_with_nul_bytes_keeps_them_out_of_its_neighbours(sandbox, udp_collector):
    start(sandbox, b"\0,\0,\0,\0\n" + ROW.encode() + b"\n\0\0\0\n")
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]


def test_definitions_with_dos_line_ends_are_read(sandbox, udp_collector):
    service = start(sandbox, b"# comment\r\n" + ROW.encode() + b"\r\n")
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]
    assert service.stderr == ""


def test_definitions_without_a_last_line_end_are_read(sandbox, udp_collector):
    start(sandbox, ROW.encode())
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]


def test_byte_order_mark_is_no_part_of_the_first_row(sandbox, udp_collector):
    service = start(sandbox, b"\xef\xbb\xbf" + ROW.encode() + b"\n")
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]
    assert service.stderr == ""


def test_last_of_a_hundred_thousand_rows_is_a_definition(sandbox, udp_collector):
    rows = b"".join(b"e%06d,E,Event %d,info\n" % (number, number) for number in range(100_000))
    service = start(sandbox, rows + ROW.encode() + b"\n")
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]
    assert service.stderr == ""


def test_description_of_a_megabyte_arrives_whole_over_tcp(sandbox, tcp_collector):
    sandbox.write_definitions(f"perf01,CPU,{'x' * MEGABYTE},warn")
    sandbox.write_settings(**SETTINGS, protocol="syslog-tcp")
    sandbox.start_listening_service()
    sandbox.send_bytes(EVENT)
    tcp_collector.wait_for(1)
    assert tcp_collector.connections == [b"<28> perf01 " + b"x" * MEGABYTE + b" (warn)\n"]


def test_row_of_a_megabyte_without_columns_is_reported_whole(sandbox, udp_collector):
    service = start(sandbox, b"y" * MEGABYTE + b"\n" + ROW.encode() + b"\n")
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]
    assert service.stderr == f'Invalid line format: "{"y" * MEGABYTE}"\n'


def test_without_settings_no_event_is_allowed(sandbox, udp_collector):
    sandbox.set_host_names()
    sandbox.write_definitions(ROW)
    service = sandbox.start_listening_service()
    sandbox.send_bytes(make_record("perf01", "dropped", 100))
    service.wait_for_line("Event [perf01] (dropped) at 100")
    assert service.lines[3:] == [
        CYCLE, "listening...", "Server is listening on /tmp/ov-events",
        "Invalid IP address or hostname: Name or service not known",
        "> Received event", "Event [perf01] (dropped) at 100"]
    sandbox.write_settings(**{**SETTINGS, "formatString": "[VAL]"})
    service.wait_for_line(CYCLE, count=2)
    sandbox.send_bytes(make_record("perf01", "sent", 100))
    assert udp_collector.wait_for(1) == [b"sent"]


def test_settings_that_appear_later_are_taken_up(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    service = sandbox.start_listening_service()
    sandbox.write_settings(**SETTINGS)
    service.wait_for_line(CYCLE, count=2)
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]


@pytest.mark.parametrize("content", [NOISE, b"", b"\0" * 4096, b"[", b"=\n=\n==", b"\xff\xfe[a]"],
                         ids=["noise", "empty", "nul", "bracket", "signs", "utf16"])
def test_settings_that_are_none_can_be_replaced_by_good_ones(sandbox, udp_collector, content):
    sandbox.write_definitions(ROW)
    sandbox.write_settings_bytes(content)
    service = sandbox.start_listening_service()
    wait_until(lambda: b"Invalid IP address" in service.stdout_bytes, "the end of the settings")
    sandbox.write_settings(**SETTINGS)
    service.wait_for_line("port: 5514")
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]


def test_noise_in_place_of_good_settings_keeps_their_values(sandbox, udp_collector):
    service = start(sandbox, ROW.encode())
    service.wait_for_line("port: 5514")
    sandbox.write_settings_bytes(NOISE)
    service.wait_for_line(CYCLE, count=2)
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]


def test_settings_that_cannot_be_read_change_nothing(sandbox, udp_collector):
    service = start(sandbox, ROW.encode())
    sandbox.sh(f"rm {SETTINGS_FILE}; mkdir {SETTINGS_FILE}; touch -d '+5 seconds' {SETTINGS_FILE}")
    service.wait_for_line(CYCLE, count=2)
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]


def test_setting_of_a_megabyte_does_not_disturb_the_others(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(unknown="z" * MEGABYTE, **SETTINGS)
    service = sandbox.start_listening_service()
    sandbox.send_bytes(EVENT)
    assert udp_collector.wait_for(1) == [LINE]
    assert f"unknown: {'z' * MEGABYTE}" in service.lines


def test_template_of_two_hundred_thousand_tokens_is_filled(sandbox, tcp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**SETTINGS, "formatString": "[VAL]" * 200_000},
                           protocol="syslog-tcp")
    sandbox.start_listening_service()
    sandbox.send_bytes(make_record("perf01", "0123456789"))
    tcp_collector.wait_for(1)
    assert tcp_collector.connections == [b"0123456789" * 200_000 + b"\n"]


def deliver_after_change(sandbox, collector, key, value):
    """What arrives, and what is complained of, once a service that has read good integers has
    read this one."""
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**SETTINGS, **INTEGERS})
    service = sandbox.start_listening_service()
    service.wait_for_line(f"{key}: {INTEGERS[key]}")
    sandbox.write_settings(**{**SETTINGS, **INTEGERS, key: value})
    service.wait_for_line(f"{key}: {value}")
    sandbox.send_bytes(EVENT)
    return collector.wait_for(1), service.stderr


@pytest.mark.parametrize("key", INTEGERS)
def test_text_for_an_integer_keeps_the_value_before_it(sandbox, udp_collector, key):
    assert deliver_after_change(sandbox, udp_collector, key, "true") == ([KEPT_LINE], "")


@pytest.mark.parametrize("value", ["0x11", "8o", "1.0", "1 2", "", "4294967296"])
def test_number_that_is_no_integer_keeps_the_value_before_it(sandbox, udp_collector, value):
    assert deliver_after_change(sandbox, udp_collector, "facility", value) == ([KEPT_LINE], "")


def test_port_that_is_no_number_at_the_start_is_the_syslog_port(sandbox):
    collector = UdpCollector(sandbox, port=514)
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**SETTINGS, "port": "0x10"})
    sandbox.start_listening_service()
    sandbox.send_bytes(EVENT)
    assert collector.wait_for(1) == [LINE]
