"""Each call that can fail does so once with an error of each kind. tests/faults/calls.csv says what
is printed then and what comes of it."""

import collections
import contextlib
import os
import resource
import signal
import socket

import pytest

from support.fault_run import LOG, FaultRun
from support.fault_table import calls_of_units, fallible_calls, unchecked_functions
from support.monitors import Script, stopping, write_status
from support.polling import DEADLINE, wait_until
from support.process import POLL
from support.records import make_record
from support.sandbox import FALLBACK_DEFINITIONS, SERVICE_SOCKET

TCP = {"protocol": "syslog-tcp"}
USB = {"usbDevMon": 1, "allowed": "perf01 sys05 sys06 sys07"}
AGENT = {"agentConnMon": 1, "allowed": "perf01 net02 net03"}
PORT_OF_NOBODY = 5515
HOLD = "/tmp/hold"


# Situations

def start_client(run):
    run.start_service(faults=[])
    run.service.wait_for_cycle(1)
    run.start_client()


def start_service(run):
    run.start_service()


def start_without_input(run):
    run.start_service(prelude="exec <&-")


def start_over_tcp(run):
    run.start_service(**TCP)


def raise_event(run, **settings):
    run.start_service(**settings)
    run.raise_event()


def raise_event_over_tcp(run):
    raise_event(run, **TCP)


def change_settings(run, **settings):
    """The first look at the settings, before any change, is over when the service waits."""
    run.service.wait_for_cycle(1)
    run.service.wait_for_call(POLL)
    run.raise_arriving_event()
    run.change_settings(**settings)


def start_and_change(run):
    run.start_service()
    change_settings(run)


def change_collector(run):
    run.start_service()
    change_settings(run, port=PORT_OF_NOBODY)


def stop_monitor(run):
    write_usb_script(run, ":")
    run.start_service(usbDevMon=1)
    change_settings(run)


def let_clients_wait(run):
    """They wait while the service is stopped."""
    run.start_service()
    run.service.wait_for_cycle(1)
    run.service.wait_for_call(POLL)
    run.service.facts.suspend()
    for _ in range(3):
        run.raise_event()
    run.service.facts.resume()


def raise_events_as_cycle_ends(run):
    """A script of a monitor, which is waited for, holds the end of the cycle up."""
    write_usb_script(run, f"while [ -e {HOLD} ]; do sleep 0.01; done")
    run.sandbox.path(HOLD).touch()
    run.start_service(usbDevMon=1)
    change_settings(run, usbDevMon=0)
    run.service.wait_for_line(stopping("usbDevMon"))
    for _ in range(2):
        run.raise_event()
    run.wait_until_failed()
    run.sandbox.path(HOLD).unlink()


def write_usb_script(run, commands):
    Script(run.sandbox, "usb-devices.sh").write(f"#!/bin/sh\n{commands}\n")


def start_monitor(run):
    """If the script is to be killed, it runs until then."""
    wait = f"until grep -qx kill:1 {LOG}; do sleep 0.01; done; " if "kill" in run.row.call else ""
    write_usb_script(run, f"{wait}echo A")
    run.neighbour = run.sandbox.start("sleep", "infinity")
    run.start_service(**USB)


def connect_agent(run):
    write_status(run.sandbox, "1", "2", "CONNECTED")
    run.start_service(**AGENT)


SITUATIONS = {
    "a client starts": start_client,
    "the service starts": start_service,
    "the service starts without standard input": start_without_input,
    "the service starts over TCP": start_over_tcp,
    "the settings change": start_and_change,
    "the collector changes": change_collector,
    "a client raises an event": raise_event,
    "a client raises an event over TCP": raise_event_over_tcp,
    "three clients wait": let_clients_wait,
    "clients come as a cycle ends": raise_events_as_cycle_ends,
    "a monitor starts": start_monitor,
    "a monitor is stopped": stop_monitor,
    "the agent is connected": connect_agent,
}


# Outcomes

def end_with_status_1(run):
    assert (run.client or run.service).wait(DEADLINE) == 1
    if run.client:
        run.lost = run.events[:]
        run.assert_goes_on()


def go_on(run):
    if run.client:
        assert run.client.wait(DEADLINE) == 0
    run.assert_goes_on()


def lose_event(run, kept=0):
    run.wait_until_printed()
    run.lost = run.events[kept:]
    run.assert_goes_on()


def lose_later_events(run):
    run.service.wait_for_cycle(2)
    lose_event(run, kept=1)


def lose_lines_of_cycle(run):
    run.raise_lost_event()
    run.wait_until_printed()
    run.change_settings()
    begin_next_cycle(run)


def begin_next_cycle(run):
    run.service.wait_for_cycle(2)
    run.assert_goes_on()


def begin_next_cycle_with_old_settings(run):
    run.keep_old_settings()
    begin_next_cycle(run)


def wait_for_change_of_file(run):
    run.wait_until_printed()
    run.raise_lost_event()  # nothing is allowed
    run.service.wait_for_line("> Received event")
    run.service.wait_for_pauses(3)
    assert run.service.lines.count("Starting event server...") == 1
    run.change_settings()
    begin_next_cycle(run)


def see_next_change(run):
    run.wait_until_failed()
    run.change_settings()
    begin_next_cycle(run)


def define_nothing(run):
    run.service.wait_for_cycle(1)
    run.raise_lost_event()
    run.wait_until_printed()
    run.assert_leaves_nothing()


def read_fallback_definitions(run):
    run.service.wait_for_line(f"loading {FALLBACK_DEFINITIONS}")
    run.assert_goes_on()


def standard_input(run):
    run.service.wait_for_cycle(1)
    return os.readlink(f"/proc/{run.service.pid}/fd/0")


def open_null_device(run):
    assert standard_input(run) == "/dev/null"
    run.assert_goes_on()


def take_service_socket(run):
    assert standard_input(run).startswith("socket:")
    run.sockets -= 1
    run.assert_goes_on()


def see_monitor_raise(run, lines):
    run.monitored = lines
    run.assert_goes_on()
    # Without the id of a child, a service that kills it would end every other process.
    assert run.neighbour is None or run.neighbour.is_running()


OUTCOMES = {
    "status 1": end_with_status_1,
    "as usual": go_on,
    "its event is lost": lose_event,
    "all but the first event are lost": lose_later_events,
    "the lines of the cycle are lost": lose_lines_of_cycle,
    "the next cycle begins": begin_next_cycle,
    "the next cycle begins with the old settings": begin_next_cycle_with_old_settings,
    "the file is read when it changes": wait_for_change_of_file,
    "the change is seen at the next look": see_next_change,
    "no event is defined": define_nothing,
    "the fallback definitions are read": read_fallback_definitions,
    "/dev/null is standard input": open_null_device,
    "the service socket is standard input": take_service_socket,
    "no monitor runs": go_on,
    "the monitor raises sys05 A": lambda run: see_monitor_raise(run, ["sys05 A"]),
    "the monitor raises sys06 A": lambda run: see_monitor_raise(run, ["sys06 A"]),
    "the monitor raises net02 net03 net02":
        lambda run: see_monitor_raise(run, ["net02", "net03", "net02"]),
}


def is_built_for_threads():
    return os.environ.get("OV_SANITIZER") == "thread"


@pytest.mark.parametrize("row", fallible_calls(), ids=str)
def test_call_that_fails_has_the_listed_outcome(sandbox, row):
    if is_built_for_threads():
        if (row.unit, row.function) == ("service/run_cycle", "pthread_join"):
            pytest.skip("only a join tells the sanitizer that the thread has ended")
        if row.call.startswith("clone"):
            pytest.skip("this build forks in the place of clone")
    run = FaultRun(sandbox, row)
    SITUATIONS[row.situation](run)
    OUTCOMES[row.outcome](run)
    run.wait_until_printed()
    run.wait_until_failed()
    run.tell_invariant()


def test_every_fallible_call_of_a_unit_has_a_row_or_a_reason():
    listed = collections.defaultdict(set)
    for row in fallible_calls():
        listed[row.unit].add(row.function)
    missing = {unit: names - listed[unit] - unchecked_functions()
               for unit, names in calls_of_units().items()}
    assert {unit: names for unit, names in missing.items() if names} == {}


def test_every_row_and_reason_is_about_a_call_that_is_made():
    calls = calls_of_units()
    assert [str(row) for row in fallible_calls() if row.function not in calls[row.unit]] == []
    assert unchecked_functions() - set().union(*calls.values()) == set()


@pytest.mark.skipif(bool(os.environ.get("OV_SANITIZER")), reason="it needs much address space")
def test_lack_of_memory_ends_the_service_by_a_signal(sandbox):
    """Events without an address wait in memory, until the service gets no more."""
    sandbox.write_definitions("perf01,label,text,info")
    sandbox.write_settings(allowed="perf01")
    sandbox.hold_events()
    service = sandbox.start_listening_service()
    size = service.facts.memory_info().vms
    resource.prlimit(service.pid, resource.RLIMIT_AS, (size, size))

    def ends():
        with socket.socket(socket.AF_UNIX) as client, contextlib.suppress(OSError):
            client.connect(str(sandbox.path(SERVICE_SOCKET)))
            client.sendall(make_record("perf01"))
        return not service.is_running()
    wait_until(ends, "the end of the service", interval=0)
    assert service.wait() == 128 + signal.SIGABRT
    assert service.error_lines == ["terminate called after throwing an instance of "
                                   "'std::bad_alloc'", "  what():  std::bad_alloc"]
