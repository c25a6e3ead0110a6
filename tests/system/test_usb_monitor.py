"""The USB device monitor: the lines of its script that are there at its start, come and go."""

import pytest

from support.monitors import arrived, reload, start_monitors


def events_of(sandbox, collector, script, *outputs, **settings):
    """All that is raised while the script prints these outputs in turn, the first at the start."""
    script.answer(*outputs)
    start_monitors(sandbox, "usbDevMon", **settings)
    script.wait_for_runs(len(outputs) + 2)
    return arrived(sandbox, collector)


def test_devices_present_are_reported_then_new_ones_before_those_that_went_away(
        sandbox, udp_collector, usb_script):
    events = events_of(sandbox, udp_collector, usb_script, "usb1\nusb2\n", "usb1\nusb3\n")
    assert sorted(events[:2]) == [b"sys05 usb1", b"sys05 usb2"]
    assert events[2:] == [b"sys06 usb3", b"sys07 usb2"]


def test_blank_and_repeated_lines_change_nothing_and_white_space_does(
        sandbox, udp_collector, usb_script):
    assert events_of(sandbox, udp_collector, usb_script, "usb1", "\n\nusb1\n\nusb1\n",
                     "usb1\r\n") == [b"sys05 usb1", b"sys06 usb1\r", b"sys07 usb1"]


def test_line_is_sent_as_it_is_printed_and_cut_to_127_bytes(sandbox, udp_collector, usb_script):
    line = "1d6b:0002 \"Ünïcode 😀\" [ID] %s=\\n" + "v" * 100
    assert events_of(sandbox, udp_collector, usb_script, line) == [
        b"sys05 " + line.encode()[:127]]


@pytest.mark.parametrize("disallowed", ["sys05", "sys06", "sys07"])
def test_disallowed_event_is_not_raised_and_the_devices_are_watched_all_the_same(
        sandbox, udp_collector, usb_script, disallowed):
    events = [b"sys05 usb1", b"sys06 usb2", b"sys07 usb1"]
    allowed = [name for name in ("sys05", "sys06", "sys07", "end") if name != disallowed]
    assert events_of(sandbox, udp_collector, usb_script, "usb1\n", "usb2\n", allowed=allowed) == [
        event for event in events if not event.startswith(disallowed.encode())]


def test_devices_are_reported_as_present_again_after_a_reload(
        sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n")
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(3)
    reload(sandbox, service, 2, usbDevMon=0)
    usb_script.answer("usb2\n")
    reload(sandbox, service, 3, "usbDevMon")
    usb_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1", b"sys05 usb2"]


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
