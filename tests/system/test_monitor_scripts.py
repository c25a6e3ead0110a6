"""Scripts that misbehave: the monitors go on, and nothing of the scripts is left in the service."""

import os
import time

import pytest

from support.monitors import (
    NAMES, Script, arrived, settings, start_monitors, starting, stopping,
    wait_until_nothing_is_left)
from support.polling import wait_until
from support.sandbox import CYCLE

TIMEOUT = 30  # seconds


def go_on_with(sandbox, collector, service, script, present=""):
    """Mends the script, and checks that the next poll works and nothing is left of the ones
    before; returns all that has been raised."""
    script.answer(f"{present}mended\n")
    script.wait_for_more_runs(3)
    events = arrived(sandbox, collector)
    wait_until_nothing_is_left(service, monitors=1)
    assert (events.pop(), service.stderr) == (b"sys06 mended", "")
    return events


def test_missing_script_is_looked_for_until_it_is_there(sandbox, udp_collector, usb_script):
    usb_script.path.unlink(missing_ok=True)
    service = start_monitors(sandbox, "usbDevMon")
    assert arrived(sandbox, udp_collector) == []
    assert go_on_with(sandbox, udp_collector, service, usb_script) == []


def test_child_that_keeps_the_output_of_a_script_open_holds_nothing_up(
        sandbox, udp_collector, usb_script):
    usb_script.write_shell("echo usb1; setsid sleep 1000 &")
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(2)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1"]
    assert go_on_with(sandbox, udp_collector, service, usb_script, "usb1\n") == [b"sys05 usb1"]


@pytest.mark.slow
def test_script_is_ended_after_half_a_minute_and_its_output_so_far_used(
        sandbox, udp_collector, usb_script):
    usb_script.write_shell("printf 'usb1\\nus'; trap '' TERM; while :; do sleep 1; done")
    began = time.monotonic()
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(1)
    script, _ = wait_until(lambda: service.children, "the script")[0]
    usb_script.answer("usb1\nus\nmended\n")
    wait_until(lambda: len(usb_script.runs) >= 2, lambda: usb_script.runs, deadline=TIMEOUT + 30)
    assert time.monotonic() - began >= TIMEOUT
    assert not os.path.exists(f"/proc/{script}")
    events = go_on_with(sandbox, udp_collector, service, usb_script, "usb1\nus\n")
    assert sorted(events) == [b"sys05 us", b"sys05 usb1"]


@pytest.mark.slow
def test_reload_waits_for_a_script_that_takes_too_long_and_loses_no_event(
        sandbox, udp_collector, usb_script):
    usb_script.write_shell("echo usb1; sleep 1000")
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(1)
    sandbox.write_settings(**settings("usbDevMon", formatString="new [VAL]"))
    service.wait_for_line(stopping("usbDevMon"))
    usb_script.answer("usb2\n")
    sandbox.send("end", "client")
    service.wait_for_line(CYCLE, 2, deadline=TIMEOUT + 30)
    assert sorted(udp_collector.wait_for(3)) == [b"new client", b"new usb1", b"new usb2"]


def test_no_program_gets_a_descriptor_but_the_standard_ones(
        sandbox, usb_script, signin_script, perf_script):
    sandbox.path("/tmp/bin").mkdir()
    programs = [usb_script, signin_script, perf_script, Script(sandbox, "pgrep", "/tmp/bin")]
    for program in programs:
        name = program.path.name
        program.write_shell(
            f"[ -e /tmp/{name}.fds ] || /bin/ls -l /proc/self/fd >/tmp/{name}.fds; echo 1")
    sandbox.write_settings(**settings(*NAMES))
    # Descriptor 3 is the lowest that a starter can leave open.
    service = sandbox.start_service(prelude="exec 3</dev/null 9</dev/null",
                                    env={**sandbox.short_pauses(), "PATH": "/tmp/bin"})
    service.wait_for_line(starting("perfMon"))
    assert {3, 9} <= set(service.descriptors)  # it has got them itself
    for program in programs:
        program.wait_for_runs(2)
        listing = sandbox.path(f"/tmp/{program.path.name}.fds").read_text().split("\n")[1:-1]
        streams = dict(line.split()[-3::2] for line in listing)
        assert sorted(streams) == ["0", "1", "2", "3"]
        assert streams["3"].endswith("/fd")  # the listing itself
        assert [streams[number].split(":")[0] for number in "02"] == ["pipe", "pipe"]
