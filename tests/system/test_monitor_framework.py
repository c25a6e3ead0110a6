"""What the four monitors share: their switches, their start and stop in a cycle, their periods, and
how what they raise leaves the service."""

import subprocess
import time

import pytest

from support.monitors import (
    NAMES, Script, arrived, begin_service, reload, start_client, start_monitors,
    starting, stopping, wait_until_nothing_is_left, write_status)
from support.polling import wait_until

ALL = tuple(NAMES)
NO_HOST = "Invalid IP address or hostname: Name or service not known"
UNKNOWN = "> Client address is unknown"
CYCLE = "Starting event server..."
REFUSED = "connect: Connection refused"
EVENTS = {"usbDevMon": b"sys05 usb1", "vmwSigninMon": b"sec03 alice", "agentConnMon": b"net02 ",
          "perfMon": b"perf01 81.00% > 80.00%"}
NOTE_TIME = 'read -r uptime rest </proc/uptime; echo "$uptime" >>/tmp/{}.times'
each_switch = pytest.mark.parametrize("switch", ALL)
each_place = pytest.mark.parametrize("place", range(4), ids=ALL)


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
    """What standard error holds but for the status that one monitor tells at each check."""
    return [line for line in service.error_lines if not line.startswith("AgentConnMon::")]


def started(*switches):
    return [CYCLE, *map(starting, switches)]


def hold(sandbox, script):
    """Lets the script's next run wait until it is released; it prints "usb1"."""
    sandbox.sh("mkfifo /tmp/gate")
    script.write_shell("read -r line </tmp/gate; echo usb1")


def release(sandbox):
    sandbox.path("/tmp/gate").write_text("go\n")


def noted_times(sandbox, name):
    times = sandbox.path(f"/tmp/{name}.times")
    return [float(line) for line in times.read_text().split()] if times.exists() else []


def gaps(times):
    return [later - earlier for earlier, later in zip(times, times[1:])]


# Start

def test_monitors_start_in_order_between_the_sender_and_the_processing_thread(sandbox):
    sandbox.hold_events()
    service = start_monitors(sandbox, *ALL, host="")
    service.wait_for_line(UNKNOWN)
    after_sender = service.lines[service.lines.index(NO_HOST) + 1:]
    assert after_sender[:5] == [*map(starting, ALL), UNKNOWN]


def test_all_four_raise_their_events(sandbox, udp_collector, machine):
    start_monitors(sandbox, *ALL)
    udp_collector.wait_for(4)
    assert sorted(arrived(sandbox, udp_collector)) == sorted(EVENTS.values())


@each_switch
def test_monitor_that_alone_is_enabled_is_the_only_one_at_work(
        sandbox, udp_collector, machine, switch):
    service = start_monitors(sandbox, switch)
    udp_collector.wait_for(1)
    reload(sandbox, service, 2, switch)
    udp_collector.wait_for(2)
    assert arrived(sandbox, udp_collector) == [EVENTS[switch]] * 2
    assert monitor_lines(service) == [*started(switch), stopping(switch), *started(switch)]


def test_disabled_monitors_are_neither_started_nor_stopped(sandbox, udp_collector, machine):
    service = start_monitors(sandbox)
    reload(sandbox, service, 2)
    assert arrived(sandbox, udp_collector) == []
    assert (monitor_lines(service), service.stderr) == ([CYCLE, CYCLE], "")


@each_switch
@pytest.mark.parametrize("value, enabled", [
    (2, True), (2147483647, True), ("+1", True), (-1, False), (0, False), ("true", False),
    ("1.5", False), ("", False)])
def test_switch_enables_its_monitor_when_above_0(sandbox, switch, value, enabled):
    service = start_monitors(sandbox, **{switch: value})
    sandbox.send("end")
    service.wait_for_line(">>> end ")
    assert monitor_lines(service) == (started(switch) if enabled else [CYCLE])


def test_switch_that_is_removed_keeps_its_monitor_enabled(sandbox):
    service = start_monitors(sandbox, *ALL)
    reload(sandbox, service, 2)
    service.wait_for_line(starting(ALL[3]), 2)
    assert monitor_lines(service) == [*started(*ALL), *map(stopping, ALL), *started(*ALL)]


# Stop

def test_monitors_stop_in_order_between_the_processing_thread_and_the_next_cycle(sandbox):
    sandbox.hold_events()
    service = start_monitors(sandbox, *ALL)
    service.wait_for_line(UNKNOWN)
    reload(sandbox, service, 2, *ALL)
    assert service.lines.index(UNKNOWN) < service.lines.index(stopping(ALL[0]))
    stopped = service.lines[service.lines.index(stopping(ALL[0])):]
    assert stopped[:5] == [*map(stopping, ALL), CYCLE]


def test_no_monitor_stops_before_the_processing_thread_has_ended(sandbox, udp_collector):
    service = start_monitors(sandbox, "usbDevMon", protocol="syslog-tcp")
    sandbox.send("end")
    service.wait_for_error_line(REFUSED)
    sandbox.write_settings(protocol="syslog-tcp", facility=4)
    refused = service.error_lines.count(REFUSED)
    service.wait_for_error_line(REFUSED, refused + 30)
    assert monitor_lines(service) == started("usbDevMon")


def test_monitor_that_is_stopped_in_a_pause_pauses_to_its_end_and_checks_no_more(
        sandbox, perf_script):
    perf_script.write_shell(NOTE_TIME.format("perf"))
    service = start_monitors(sandbox, "perfMon", env={})
    perf_script.wait_for_runs(1)
    reload(sandbox, service, 2, "perfMon")
    perf_script.wait_for_more_runs(1)
    wait_until(lambda: len(noted_times(sandbox, "perf")) == len(perf_script.runs),
               lambda: noted_times(sandbox, "perf"))
    assert min(gaps(noted_times(sandbox, "perf"))) >= 4.98


def test_monitor_that_is_stopped_in_its_first_look_makes_no_check(
        sandbox, udp_collector, usb_script):
    hold(sandbox, usb_script)
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(1)
    sandbox.write_settings(usbDevMon=0, formatString="new [ID] [VAL]")
    service.wait_for_line(stopping("usbDevMon"))
    release(sandbox)
    service.wait_for_cycle(2)
    assert udp_collector.wait_for(1) == [b"new sys05 usb1"]
    assert usb_script.runs == [""]


def test_reload_waits_for_a_check_and_loses_no_client_by_it(sandbox, udp_collector, usb_script):
    hold(sandbox, usb_script)
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(1)
    sandbox.write_settings(facility=4)
    service.wait_for_line(stopping("usbDevMon"))
    for number in range(5):
        sandbox.send("end", str(number))
    assert service.lines[-1] == stopping("usbDevMon")
    usb_script.answer("")
    release(sandbox)
    service.wait_for_cycle(2)
    clients = [b"end %d" % number for number in range(5)]
    assert udp_collector.wait_for(6) == [b"sys05 usb1", *clients]


def test_sender_stays_open_until_the_monitors_have_stopped(sandbox, usb_script):
    hold(sandbox, usb_script)
    service = start_monitors(sandbox, "usbDevMon")
    usb_script.wait_for_runs(1)
    sandbox.write_settings(facility=4)
    service.wait_for_line(stopping("usbDevMon"))
    assert service.sockets == 2


def test_monitor_that_waits_for_its_script_holds_up_no_client_and_no_other_monitor(
        sandbox, udp_collector, machine, usb_script):
    hold(sandbox, usb_script)
    start_monitors(sandbox, "usbDevMon", "perfMon")
    usb_script.wait_for_runs(1)
    udp_collector.wait_for(1)
    assert arrived(sandbox, udp_collector) == [EVENTS["perfMon"]]


def test_change_before_a_monitors_thread_runs_does_not_hang_the_cycle(sandbox):
    service = begin_service(
        sandbox, *ALL, env=sandbox.hasty(FAULTS="accept4:1:24", THREAD_START_DELAY_MS=300))
    service.wait_for_line(starting(ALL[3]), 2)


# A failed accept

def test_failed_accept_stops_the_monitors_in_reverse_order_only(sandbox):
    service = begin_service(sandbox, *ALL, env=sandbox.hasty(FAULTS="accept4:3:24"))
    service.wait_for_line(starting(ALL[3]), 2)
    assert monitor_lines(service) == [
        *started(*ALL), *map(stopping, reversed(ALL)), *started(*ALL)]
    assert error_lines(service) == ["accept: Too many open files"]


def test_failed_accept_removes_the_socket_file_before_the_monitors_stop(sandbox, usb_script):
    hold(sandbox, usb_script)
    service = begin_service(sandbox, "usbDevMon", env=sandbox.hasty(FAULTS="accept4:1:24"))
    service.wait_for_line(stopping("usbDevMon"))
    assert not sandbox.path("/tmp/ov-events").exists()
    assert service.lines.count(CYCLE) == 1


# Threads that fail

@each_place
def test_monitor_whose_thread_fails_is_reported_and_the_others_work(
        sandbox, udp_collector, machine, place):
    failed = ALL[place]
    service = start_monitors(
        sandbox, *ALL, env=sandbox.hasty(FAULTS=f"pthread_create:{place + 1}:11"))
    udp_collector.wait_for(3)
    assert sorted(arrived(sandbox, udp_collector)) == sorted(
        event for switch, event in EVENTS.items() if switch != failed)
    assert [line for line in error_lines(service) if not line.startswith("VmwSigninMon")] == [
        f"Error starting monitor: {NAMES[failed]}",
        "pthread_create: Resource temporarily unavailable"]
    assert monitor_lines(service) == started(*ALL)


def test_failed_thread_is_reported_before_the_start_that_did_not_happen(sandbox):
    sandbox.write_settings(usbDevMon=1)
    service = sandbox.start_service(
        env=sandbox.hasty(FAULTS="pthread_create:1:11"), stderr=subprocess.STDOUT)
    service.wait_for_line(starting("usbDevMon"))
    assert service.lines[service.lines.index(NO_HOST) + 1:][:3] == [
        "Error starting monitor: USB Device Monitor",
        "pthread_create: Resource temporarily unavailable", starting("usbDevMon")]


@each_place
def test_monitor_whose_thread_failed_is_not_running_at_the_end_of_the_cycle(sandbox, place):
    service = start_monitors(
        sandbox, *ALL, env=sandbox.hasty(FAULTS=f"pthread_create:{place + 1}:11"))
    reload(sandbox, service, 2, *ALL)
    ends = [f"{NAMES[switch]} is not running" if switch == ALL[place] else stopping(switch)
            for switch in ALL]
    service.wait_for_line(starting(ALL[3]), 2)
    assert monitor_lines(service) == [*started(*ALL), *ends, *started(*ALL)]


def test_monitor_whose_thread_failed_is_not_stopped_after_a_failed_accept(sandbox):
    service = begin_service(
        sandbox, *ALL, env=sandbox.hasty(FAULTS="pthread_create:2:11,accept4:1:24"))
    service.wait_for_line(starting(ALL[3]), 2)
    assert monitor_lines(service) == [
        *started(*ALL), stopping(ALL[3]), stopping(ALL[2]), stopping(ALL[0]), *started(*ALL)]


def test_failed_join_of_a_monitor_is_reported_and_the_next_cycle_starts(sandbox):
    service = start_monitors(
        sandbox, "usbDevMon", env=sandbox.hasty(FAULTS="pthread_join:2:3"))
    reload(sandbox, service, 2, usbDevMon=0)
    assert error_lines(service) == ["Error stopping monitor: USB Device Monitor",
                                    "pthread_join: No such process"]
    assert monitor_lines(service) == [*started("usbDevMon"), stopping("usbDevMon"), CYCLE]


def test_service_that_ends_for_want_of_a_processing_thread_stops_no_monitor(sandbox):
    service = begin_service(sandbox, *ALL, env=sandbox.hasty(FAULTS="pthread_create:5:11"))
    assert service.wait() == 1
    assert monitor_lines(service) == started(*ALL)
    assert error_lines(service) == ["Error creating event processing thread: 11"]


# Periods

@pytest.mark.slow
def test_each_monitor_checks_once_a_period(sandbox, usb_script, signin_script, perf_script):
    sandbox.path("/tmp/bin").mkdir()
    for name, script in {"usb": usb_script, "perf": perf_script,
                         "pgrep": Script(sandbox, "pgrep", "/tmp/bin")}.items():
        script.write_shell(NOTE_TIME.format(name))
    began = time.monotonic()
    service = start_monitors(sandbox, *ALL, env={"PATH": "/tmp/bin"})
    told = []
    while len(told) < 4:
        wait_until(lambda: len(service.error_lines) > len(told), lambda: service.stderr)
        told.append(time.monotonic())
    usb = gaps(noted_times(sandbox, "usb"))
    assert 2.98 <= min(usb[1:]) < 4.9
    assert 2.98 <= min(gaps(noted_times(sandbox, "pgrep"))) < 4.9
    assert 4.98 <= min(gaps(noted_times(sandbox, "perf"))) < 6.9
    assert told[-1] - began >= 3 * 5 and min(gaps(told)) < 6.9  # as seen from outside, maybe late


def test_first_check_does_not_wait_for_a_period(sandbox, usb_script):
    usb_script.answer("usb1\n")
    start_monitors(sandbox, "usbDevMon", env=sandbox.faulty(DELAYS="sleep@3:1+:600000"))
    usb_script.wait_for_runs(2)  # one before the first check


# Events

def test_event_that_nobody_defined_is_sent_with_an_empty_definition(
        sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n")
    start_monitors(sandbox, "usbDevMon", rows=["sys06,l,d,info"], facility=4,
                   formatString="[PRI]|[ID]|[DESC]|[VAL]|[SEV]")
    assert udp_collector.wait_for(1) == [b"32|sys05||usb1|"]


def test_event_that_a_monitor_raised_is_defined_for_clients_from_then_on(
        sandbox, udp_collector, usb_script):
    service = start_monitors(sandbox, "usbDevMon", rows=["end,l,d,info"])
    sandbox.send("sys06", "early")
    service.wait_for_line("Event sys06 is not defined")
    usb_script.answer("usb1\n")
    udp_collector.wait_for(1)
    sandbox.send("sys06", "late")
    assert udp_collector.wait_for(2) == [b"sys06 usb1", b"sys06 late"]


def test_event_has_the_time_at_which_it_was_raised(sandbox, udp_collector, usb_script):
    usb_script.answer("usb1\n")
    sandbox.hold_events()
    earliest = int(time.time())
    start_monitors(sandbox, "usbDevMon", formatString="[DATE]")
    usb_script.wait_for_runs(2)
    latest = int(time.time())
    wait_until(lambda: time.time() > latest + 1.5, "a later second")
    sandbox.release_events()
    possible = [sandbox.run("date", "-d", f"@{moment}", "+%b %d %T").stdout.strip().encode()
                for moment in range(earliest, latest + 1)]
    assert udp_collector.wait_for(1)[0] in possible


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
    wait_until(lambda: service.threads == 2, lambda: service.threads)
