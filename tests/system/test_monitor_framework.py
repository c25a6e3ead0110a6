"""What the four monitors share: their switches, their start and stop in a cycle, their periods, and
how what they raise leaves the service."""

import time

import pytest

from support.monitors import (
    NAMES, Script, arrived, begin_service, reload, start_client, start_monitors,
    starting, stopping, wait_until_nothing_is_left, write_status)
from support.polling import wait_until
from support.sandbox import CYCLE

ALL = tuple(NAMES)
NO_HOST = "Invalid IP address or hostname: Name or service not known"
UNKNOWN = "> Client address is unknown"
EVENTS = {"usbDevMon": b"sys05 usb1", "vmwSigninMon": b"sec03 alice", "agentConnMon": b"net02 ",
          "perfMon": b"perf01 81.00% > 80.00%"}
NOTE_TIME = 'read -r uptime rest </proc/uptime; echo "$uptime" >>/tmp/{}.times'


@pytest.fixture
def machine(sandbox, usb_script, signin_script, perf_script):
    """A machine with something to report for each monitor."""
    usb_script.answer("usb1\n")
    signin_script.answer(user=["alice"], success=["ok\n"])
    perf_script.answer("cpu=81\n")
    write_status(sandbox, "agent", "1", "CONNECTED")
    start_client(sandbox)


def monitor_lines(service):
    """What the service has printed about its monitors, and where each cycle began."""
    return [line for line in service.lines if line == CYCLE or "onitor" in line]


def error_lines(service):
    """What standard error holds but for what the monitors tell at each check."""
    return [line for line in service.error_lines
            if not line.startswith(("AgentConnMon::", "VmwSigninMon"))]


def started(*switches):
    return [CYCLE, *map(starting, switches)]


def hold(sandbox, script):
    """Lets the script's next run wait until it is released; it prints "usb1"."""
    sandbox.sh("mkfifo /tmp/gate")
    script.write_shell("read -r line </tmp/gate; echo usb1")


def release(sandbox):
    sandbox.path("/tmp/gate").write_text("go\n")


def periods(sandbox, name):
    """The seconds between one run of a script that notes its time and the next."""
    times = [float(line) for line in sandbox.path(f"/tmp/{name}.times").read_text().split()]
    return [later - earlier for earlier, later in zip(times, times[1:])]


# Start and stop

def test_monitors_start_and_stop_in_order_between_the_steps_of_the_cycle(sandbox):
    sandbox.hold_events()
    service = start_monitors(sandbox, *ALL, host="")
    service.wait_for_line(UNKNOWN)
    reload(sandbox, service, 2, *ALL)
    service.wait_for_line(starting(ALL[3]), 2)
    lines = [line for line in service.lines if line != UNKNOWN]
    assert lines[lines.index(NO_HOST) + 1:][:9] == [*map(starting, ALL), *map(stopping, ALL), CYCLE]
    assert service.lines.index(UNKNOWN) > service.lines.index(starting(ALL[3]))


@pytest.mark.parametrize("switch", ALL)
def test_monitor_that_alone_is_enabled_is_the_only_one_at_work(
        sandbox, udp_collector, machine, switch):
    service = start_monitors(sandbox, switch)
    udp_collector.wait_for(1)
    reload(sandbox, service, 2, switch)
    udp_collector.wait_for(2)
    assert arrived(sandbox, udp_collector) == [EVENTS[switch]] * 2
    assert monitor_lines(service) == [*started(switch), stopping(switch), *started(switch)]


def test_monitors_that_are_not_switched_on_are_neither_started_nor_stopped(
        sandbox, udp_collector, machine):
    service = start_monitors(sandbox, usbDevMon=-1, vmwSigninMon="true")
    reload(sandbox, service, 2)
    assert arrived(sandbox, udp_collector) == []
    assert (monitor_lines(service), service.stderr) == ([CYCLE, CYCLE], "")


def test_monitor_that_is_stopped_in_its_first_look_makes_no_check(
        sandbox, udp_collector, usb_script):
    hold(sandbox, usb_script)
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(1)
    sandbox.write_settings(usbDevMon=0, formatString="new [ID] [VAL]")
    service.wait_for_line(stopping("usbDevMon"))
    assert service.sockets == 2  # the sender is still open
    release(sandbox)
    service.wait_for_cycle(2)
    assert udp_collector.wait_for(1) == [b"new sys05 usb1"]
    assert usb_script.runs == [""]


def test_monitor_that_waits_for_its_script_holds_up_no_client_and_no_other_monitor(
        sandbox, udp_collector, machine, usb_script):
    hold(sandbox, usb_script)
    service = start_monitors(sandbox, "usbDevMon", "perfMon")
    usb_script.wait_for_runs(1)
    udp_collector.wait_for(1)
    assert arrived(sandbox, udp_collector) == [EVENTS["perfMon"]]
    sandbox.write_settings(**sandbox.settings, cycle=2)
    service.wait_for_line(stopping("usbDevMon"))
    for number in range(5):
        sandbox.send("end", str(number))
    assert service.lines.count(CYCLE) == 1
    release(sandbox)
    service.wait_for_cycle(2)


def test_change_before_a_monitors_thread_runs_does_not_hang_the_cycle(sandbox):
    service = begin_service(
        sandbox, *ALL, env=sandbox.short_pauses(FAULTS="accept4:1:24", THREAD_START_DELAY_MS=300))
    service.wait_for_line(starting(ALL[3]), 2)


def test_failed_accept_stops_the_monitors_in_reverse_order_and_removes_the_socket_file(
        sandbox, usb_script):
    hold(sandbox, usb_script)
    service = begin_service(sandbox, *ALL, env=sandbox.short_pauses(FAULTS="accept4:1:24"))
    service.wait_for_line(stopping("usbDevMon"))
    assert not sandbox.path("/tmp/ov-events").exists()
    release(sandbox)
    service.wait_for_line(starting(ALL[3]), 2)
    assert monitor_lines(service) == [
        *started(*ALL), *map(stopping, reversed(ALL)), *started(*ALL)]
    assert error_lines(service) == ["accept: Too many open files"]
    release(sandbox)
    usb_script.answer("")


# Threads that fail

def test_monitor_whose_thread_fails_is_reported_and_the_others_work(
        sandbox, udp_collector, machine):
    failing = ALL[1]
    service = start_monitors(
        sandbox, *ALL, env=sandbox.short_pauses(FAULTS="pthread_create:2:11"))
    assert sorted(udp_collector.wait_for(3)) == sorted(
        event for switch, event in EVENTS.items() if switch != failing)
    reload(sandbox, service, 2, *ALL)
    service.wait_for_line(starting(ALL[3]), 2)
    assert error_lines(service) == [f"Error starting monitor: {NAMES[failing]}",
                                    "pthread_create: Resource temporarily unavailable"]
    ends = [f"{NAMES[switch]} is not running" if switch == failing else stopping(switch)
            for switch in ALL]
    assert monitor_lines(service) == [*started(*ALL), *ends, *started(*ALL)]


def test_service_that_ends_for_want_of_a_processing_thread_stops_no_monitor(sandbox):
    service = begin_service(sandbox, *ALL, env=sandbox.short_pauses(FAULTS="pthread_create:5:11"))
    assert service.wait() == 1
    assert monitor_lines(service) == started(*ALL)
    assert error_lines(service) == ["Error creating event processing thread: 11"]


# Periods

@pytest.mark.slow
def test_each_monitor_checks_once_a_period_also_while_it_is_stopped(
        sandbox, usb_script, signin_script, perf_script):
    sandbox.path("/tmp/bin").mkdir()
    for name, script in {"usb": usb_script, "perf": perf_script,
                         "pgrep": Script(sandbox, "pgrep", "/tmp/bin")}.items():
        script.write_shell(NOTE_TIME.format(name))
    began = time.monotonic()
    service = start_monitors(sandbox, *ALL, env={"PATH": "/tmp/bin"})
    wait_until(lambda: len(service.error_lines) >= 3, lambda: service.stderr)
    assert 2 * 5 <= time.monotonic() - began < 16
    assert 2.98 <= min(periods(sandbox, "usb")[1:]) < 4.9  # two runs belong to the first check
    assert 2.98 <= min(periods(sandbox, "pgrep")) < 4.9
    assert 4.98 <= min(periods(sandbox, "perf")) < 6.9
    reload(sandbox, service, 2, "perfMon")
    perf_script.wait_for_more_runs(1)
    wait_until(lambda: len(periods(sandbox, "perf")) + 1 == len(perf_script.runs), "noted times")
    assert min(periods(sandbox, "perf")) >= 4.98


def test_first_check_does_not_wait_for_a_period(sandbox, usb_script):
    usb_script.answer("usb1\n")
    start_monitors(sandbox, "usbDevMon", env=sandbox.faulty(DELAYS="sleep:1+:600000"))
    usb_script.wait_for_runs(2)  # one before the first check


# Events

def test_event_that_nobody_defined_is_sent_with_an_empty_definition_and_defined_from_then_on(
        sandbox, udp_collector, usb_script):
    service = start_monitors(sandbox, "usbDevMon", rows=["end,l,d,info"], facility=4,
                             formatString="[PRI]|[ID]|[DESC]|[VAL]|[SEV]")
    sandbox.send("sys06", "early")
    service.wait_for_line("Event sys06 is not defined")
    usb_script.answer("usb1\n")
    udp_collector.wait_for(1)
    sandbox.send("sys06", "late")
    assert udp_collector.wait_for(2) == [b"32|sys06||usb1|", b"32|sys06||late|"]


def test_many_polls_and_cycles_leave_no_process_no_thread_and_no_descriptor_behind(
        sandbox, machine, usb_script, signin_script, perf_script):
    signin_script.answer(user=["alice"])
    service = start_monitors(sandbox, *ALL)
    for cycle in range(2, 5):
        for script in usb_script, signin_script, perf_script:
            script.wait_for_more_runs(3)
        reload(sandbox, service, cycle, *ALL)
    reload(sandbox, service, 5, **dict.fromkeys(ALL, 0))
    wait_until_nothing_is_left(service)
