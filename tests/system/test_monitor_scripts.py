"""Scripts that misbehave: the monitors go on, and nothing of the scripts is left in the service."""

import os
import time

import pytest

from support.monitors import (
    NAMES, Script, arrived, begin_service, settings, start_client, start_monitors,
    starting, wait_until_nothing_is_left)
from support.polling import wait_until

TIMEOUT = 30  # seconds


def go_on_with(sandbox, collector, service, script, present=""):
    """Mends the script, and checks that the next poll works and nothing is left of the ones
    before; returns all that has been raised."""
    script.answer(f"{present}mended\n")
    script.wait_for_more_runs(3)
    events = arrived(sandbox, collector)
    wait_until_nothing_is_left(service)
    assert (events.pop(), service.stderr) == (b"sys06 mended", "")
    return events


# Scripts that give nothing

@pytest.mark.parametrize("make", [
    "true", "mkdir {}", "echo '#!/bin/sh\necho usb1' >{}", "ln -s {0} {0}", "ln -s /nowhere {}",
    "install /dev/null {}", "echo 'echo usb1' >{0}; chmod +x {0}",
    "echo '#!/nowhere' >{0}; chmod +x {0}", "ln -s /bin/false {}", "mkfifo {0}; chmod +x {0}"],
    ids=["missing", "directory", "not-executable", "endless-links", "dangling-link", "empty-file",
         "no-interpreter", "missing-interpreter", "silent", "pipe"])
def test_script_that_gives_nothing_is_polled_until_it_is_mended(
        sandbox, udp_collector, usb_script, make):
    sandbox.sh(make.format(usb_script.inside))
    service = start_monitors(sandbox, "usbDevMon")
    assert arrived(sandbox, udp_collector) == []
    assert (service.stderr, service.is_running()) == ("", True)
    sandbox.sh(f"rm -rf {usb_script.inside}")
    assert go_on_with(sandbox, udp_collector, service, usb_script) == []


@pytest.mark.parametrize("ending", [
    "sleep 1000 &", "setsid sleep 1000 &", "exec >&-; sleep 1", "kill -KILL $$", "exit 9",
    "head -c 1000000 /dev/zero >&2", "echo usb2 >&2", "exec sleep 1"],
    ids=["child-keeps-the-pipe", "daemon-keeps-the-pipe", "closes-its-output", "killed", "fails",
         "many-errors", "errors", "becomes-another-program"])
def test_what_a_script_printed_is_taken_however_it_ends(
        sandbox, udp_collector, usb_script, ending):
    usb_script.write_shell(f"echo usb1; {ending}")
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(2)
    assert arrived(sandbox, udp_collector) == [b"sys05 usb1"]
    assert go_on_with(sandbox, udp_collector, service, usb_script, "usb1\n") == [b"sys05 usb1"]


@pytest.mark.parametrize("commands, expected", [
    (f"yes {'v' * 127} | head -c 10000000", [b"sys05 " + b"v" * 127]),
    ("head -c 10000000 /dev/zero | tr '\\0' v; echo; echo usb1",
     [b"sys05 usb1", b"sys05 " + b"v" * 127]),
    ("yes v | head -c 10000000 | tr -d '\\n'", [b"sys05 " + b"v" * 127])],
    ids=["lines", "line-and-line", "one-line"])
def test_ten_megabytes_of_output_are_all_read(
        sandbox, udp_collector, usb_script, commands, expected):
    usb_script.write_shell(commands)
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(3)
    assert sorted(arrived(sandbox, udp_collector)) == expected
    assert service.stderr == ""


@pytest.mark.parametrize("output, present", [
    (b"usb1\n\0usb2\n", ["usb1"]), (b"usb1\nus\0b2\n", ["us", "usb1"]), (b"\0usb1\n", []),
    (b"usb1\0", ["usb1"])])
def test_output_ends_at_its_first_nul(sandbox, udp_collector, usb_script, output, present):
    usb_script.answer(output)
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(3)
    events = go_on_with(sandbox, udp_collector, service, usb_script,
                        "".join(f"{device}\n" for device in present))
    assert sorted(events) == [f"sys05 {device}".encode() for device in present]


def test_reading_ends_at_the_first_nul(sandbox, udp_collector, perf_script):
    perf_script.answer(b"cpu=81\n\0mem=82\n", b"cpu=8\0\n", b"cpu=83\n")
    start_monitors(sandbox, "perfMon")
    perf_script.wait_for_runs(5)
    assert arrived(sandbox, udp_collector) == [
        b"perf01 81.00% > 80.00%", b"perf01 83.00% > 80.00%"]


# Scripts that take too long

@pytest.mark.slow
@pytest.mark.parametrize("ending", [
    "trap '' TERM; while :; do sleep 1; done", "exec >&-; sleep 1000", "kill -STOP $$", "cat",
    "sleep 1000"],
    ids=["ignores-sigterm", "closes-its-output", "stops-itself", "reads-its-input", "sleeps"])
def test_script_is_ended_after_half_a_minute_and_its_output_so_far_used(
        sandbox, udp_collector, usb_script, ending):
    usb_script.write_shell(f"printf 'usb1\\nus'; {ending}; echo late")
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
def test_status_that_was_printed_counts_when_the_script_took_too_long(
        sandbox, udp_collector, signin_script):
    signin_script.write_shell(
        'case $1 in user) echo x:alice:CORP:y ;; success) echo ok; sleep 1000 ;; esac')
    start_client(sandbox)
    start_monitors(sandbox, "vmwSigninMon")
    assert udp_collector.wait_for(1, deadline=TIMEOUT + 30) == [b"sec03 alice/CORP"]
    signin_script.wait_for_runs(3)
    assert signin_script.runs == ["user", "success", "error"]


@pytest.mark.slow
def test_reload_waits_for_a_script_that_takes_too_long_and_goes_on(
        sandbox, udp_collector, usb_script):
    usb_script.write_shell("echo usb1; sleep 1000")
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(1)
    sandbox.write_settings(**settings("usbDevMon", formatString="new [VAL]"))
    service.wait_for_line("Stopping monitor: USB Device Monitor")
    usb_script.answer("usb2\n")
    sandbox.send("end", "client")
    service.wait_for_line("Starting event server...", 2, deadline=TIMEOUT + 30)
    assert udp_collector.wait_for(3)[0] == b"new usb1"
    assert sorted(udp_collector.wait_for(3)[1:]) == [b"new client", b"new usb2"]


# What a script is given

def test_no_program_gets_a_descriptor_but_the_standard_ones(
        sandbox, usb_script, signin_script, perf_script):
    sandbox.path("/tmp/bin").mkdir()
    programs = [usb_script, signin_script, perf_script, Script(sandbox, "pgrep", "/tmp/bin")]
    for program in programs:
        name = program.path.name
        program.write_shell(
            f"[ -e /tmp/{name}.fds ] || /bin/ls -l /proc/self/fd >/tmp/{name}.fds; echo 1")
    inherited = os.pipe()
    sandbox.write_settings(**settings(*NAMES))
    service = sandbox.start_service(
        env={**sandbox.hasty(), "PATH": "/tmp/bin"}, pass_fds=inherited)
    service.wait_for_line(starting("perfMon"))
    for end in inherited:
        assert os.path.exists(f"/proc/{service.pid}/fd/{end}")  # it has got them itself
        os.close(end)
    for program in programs:
        program.wait_for_runs(2)
        listing = sandbox.path(f"/tmp/{program.path.name}.fds").read_text().split("\n")[1:-1]
        numbers = [line.split(" -> ")[0].split()[-1] for line in listing]
        assert numbers == ["0", "1", "2", "3"]
        assert listing[3].endswith("/fd")  # the listing itself


def test_standard_error_of_a_script_is_not_that_of_the_service(sandbox, usb_script):
    usb_script.write_shell("echo oops >&2")
    service = begin_service(sandbox, "usbDevMon")
    usb_script.wait_for_runs(3)
    assert service.stderr == ""
