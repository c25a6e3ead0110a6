"""The USB device monitor: the lines of its script that are there at its start, come and go."""

import pytest

from support.monitors import arrived, reload, start_monitors


def events_of(sandbox, collector, script, *outputs, **settings):
    """All that is raised while the script prints these outputs in turn, the first at the start."""
    script.answer(*outputs)
    start_monitors(sandbox, "usbDevMon", **settings)
    script.wait_for_runs(len(outputs) + 2)
    return arrived(sandbox, collector)


def test_devices_present_at_the_start_are_each_reported_once(sandbox, udp_collector, usb_script):
    events = events_of(sandbox, udp_collector, usb_script, "usb1\nusb2\n")
    assert sorted(events) == [b"sys05 usb1", b"sys05 usb2"]


def test_new_device_is_reported_before_the_one_that_went_away(
        sandbox, udp_collector, usb_script):
    events = events_of(sandbox, udp_collector, usb_script, "usb1\nusb2\n", "usb1\nusb3\n")
    assert sorted(events[:2]) == [b"sys05 usb1", b"sys05 usb2"]
    assert events[2:] == [b"sys06 usb3", b"sys07 usb2"]


def test_all_new_devices_are_reported_before_all_that_went_away(
        sandbox, udp_collector, usb_script):
    old, new = ([f"{name}{number}" for number in range(8)] for name in ("old", "new"))
    events = events_of(sandbox, udp_collector, usb_script, "\n".join(old), "\n".join(new))
    assert sorted(events[:8]) == [f"sys05 {device}".encode() for device in old]
    assert sorted(events[8:16]) == [f"sys06 {device}".encode() for device in new]
    assert sorted(events[16:]) == [f"sys07 {device}".encode() for device in old]


def test_device_that_comes_back_is_reported_again(sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "usb1\n", "", "usb1\n", "") == [
        b"sys05 usb1", b"sys07 usb1", b"sys06 usb1", b"sys07 usb1"]


@pytest.mark.parametrize("output", ["usb1\nusb1\n", "\n\nusb1\n\n", "usb1", "usb1\n\nusb1\n\n\n"])
def test_blank_and_repeated_lines_change_nothing(sandbox, udp_collector, usb_script, output):
    assert events_of(sandbox, udp_collector, usb_script, output, "usb1\n", output) == [
        b"sys05 usb1"]


@pytest.mark.parametrize("line", ["usb1\r", "usb1 ", " usb1", "USB1", "usb1\t"])
def test_line_that_differs_only_slightly_is_another_device(
        sandbox, udp_collector, usb_script, line):
    other = line.encode()
    assert events_of(sandbox, udp_collector, usb_script, "usb1\n", line + "\n", "usb1\n") == [
        b"sys05 usb1", b"sys06 " + other, b"sys07 usb1", b"sys06 usb1", b"sys07 " + other]


def test_line_of_blanks_is_a_device(sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, " \n") == [b"sys05  "]


def test_line_is_sent_as_it_is_printed(sandbox, udp_collector, usb_script):
    line = "Bus 001: ID 1d6b:0002, \"Ünïcode 😀\" [ID] %s=\\n"
    assert events_of(sandbox, udp_collector, usb_script, line) == [f"sys05 {line}".encode()]


def test_values_are_cut_to_127_bytes(sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "v" * 200 + "\n") == [
        b"sys05 " + b"v" * 127]


def test_lines_that_differ_behind_the_cut_are_two_devices(sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "v" * 127 + "1\n",
                     "v" * 127 + "2\n") == [
        event + b"v" * 127 for event in (b"sys05 ", b"sys06 ", b"sys07 ")]


def test_bytes_that_are_no_utf_8_are_replaced(sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, b"usb\xff1\n") == [
        "sys05 usb\ufffd1".encode()]


# What is allowed

def test_devices_at_the_start_are_not_reported_when_disallowed(
        sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "usb1\nusb2\n", "usb2\nusb3\n",
                     allowed=["sys06", "sys07", "end"]) == [b"sys06 usb3", b"sys07 usb1"]


def test_new_devices_are_not_reported_when_disallowed(sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "usb1\n", "usb1\nusb2\n", "usb2\n",
                     allowed=["sys05", "sys07", "end"]) == [b"sys05 usb1", b"sys07 usb1"]


def test_devices_that_went_away_are_not_reported_when_disallowed(
        sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "usb1\n", "usb2\n", "usb1\n",
                     allowed=["sys05", "sys06", "end"]) == [
        b"sys05 usb1", b"sys06 usb2", b"sys06 usb1"]


def test_device_that_appeared_while_disallowed_is_never_reported_as_new(
        sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n", "usb1\nusb2\n")
    service = start_monitors(sandbox, "usbDevMon", allowed=["sys05", "sys07", "end"])
    usb_script.wait_for_runs(4)
    reload(sandbox, service, 2, "usbDevMon", allowed=["sys06", "end"])
    usb_script.wait_for_more_runs(4)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1"]


def test_devices_are_watched_also_when_nothing_is_allowed(sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "usb1\n", "usb2\n",
                     allowed=["end"]) == []
    assert len(usb_script.runs) >= 4


# From the start on

def test_devices_present_are_reported_again_after_a_reload(sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n")
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(3)
    reload(sandbox, service, 2, "usbDevMon")
    usb_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1", b"sys05 usb1"]


def test_devices_present_are_reported_again_after_a_failed_accept(
        sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n")
    service = start_monitors(sandbox, "usbDevMon", env=sandbox.hasty(FAULTS="accept4:2:24"))
    service.wait_for_cycle(2)
    udp_collector.wait_for(2)  # which two threads may send
    usb_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1", b"sys05 usb1"]


def test_device_that_changed_between_two_cycles_is_reported_as_present_only(
        sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n")
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(3)
    reload(sandbox, service, 2, usbDevMon=0)
    usb_script.answer("usb2\n")
    reload(sandbox, service, 3, "usbDevMon")
    usb_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1", b"sys05 usb2"]


def test_silent_script_at_the_start_lets_every_device_be_new_later(
        sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "", "usb1\n") == [b"sys06 usb1"]


def test_missing_script_lets_every_device_go_away_and_come_back(
        sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n")
    start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(3)
    usb_script.path.unlink()
    udp_collector.wait_for(2)
    usb_script.answer("usb1\n")
    usb_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1", b"sys07 usb1", b"sys06 usb1"]


def test_script_is_run_without_arguments(sandbox, usb_script):
    usb_script.write_shell(f'echo "$#" >>{usb_script.log}')
    start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(2)
    assert usb_script.runs[:2] == ["", "0"]


def test_events_are_printed_as_all_others_and_nothing_else_is(
        sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n", "usb2\n")
    service = start_monitors(sandbox, "usbDevMon")
    before = service.lines.index("Starting monitor: USB Device Monitor")
    udp_collector.wait_for(3)
    usb_script.wait_for_more_runs(2)
    assert [line for line in service.lines[before + 1:] if line != "> Process events"] == [
        ">>> sys05 usb1", ">>> sys06 usb2", ">>> sys07 usb1"]
    assert service.stderr == ""


def test_events_reach_a_tcp_collector(sandbox, tcp_collector, usb_script):
    usb_script.answer("usb1\n", "usb2\n")
    start_monitors(sandbox, "usbDevMon", protocol="syslog-tcp")
    usb_script.wait_for_runs(4)
    assert tcp_collector.wait_for(3) == [b"sys05 usb1", b"sys06 usb2", b"sys07 usb1"]
