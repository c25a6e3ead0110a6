"""The outcomes of docs/RELIABILITY.md: each sees that it came to that."""

import os
import re

from .polling import DEADLINE
from .sandbox import FALLBACK_DEFINITIONS


def end_with_status_1(run):
    assert (run.client or run.service).wait(DEADLINE) == 1
    if run.client:
        run.lost |= run.struck
        run.assert_goes_on()


def go_on(run):
    if run.client:
        assert run.client.wait(DEADLINE) == 0
    run.assert_goes_on()


def lose_struck_events(run):
    run.wait_until_printed()
    run.lost |= run.struck
    run.assert_goes_on()


def lose_lines_of_cycle(run):
    run.lost.add(run.raise_event())
    run.wait_until_printed()
    cycle = run.service.lines.count("Starting event server...")
    run.change_settings()
    begin_next_cycle(run, cycle + 1)


def begin_next_cycle(run, cycle=2):
    run.service.wait_for_cycle(cycle)
    run.assert_goes_on()


def begin_next_cycle_with_old_values(run):
    run.service.wait_for_cycle(2)
    run.expect_old_values()
    run.assert_goes_on()


def wait_for_change_of_file(run):
    run.wait_until_printed()
    run.lost.add(run.raise_event())
    run.service.wait_for_line("> Received event")
    run.service.wait_for_pauses(5)
    assert run.service.lines.count("Starting event server...") == 1
    run.change_settings()
    begin_next_cycle(run)


def see_next_change(run):
    run.change_settings()
    begin_next_cycle(run)


def define_nothing(run):
    run.sandbox.ledger.forget_definitions(run.service)
    run.service.wait_for_cycle(1)
    run.raise_event()
    run.wait_until_printed()
    run.wait_for_arrivals(["sys05 A"])
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


def expect_of_monitor(*lines):
    def see(run):
        run.wait_for_arrivals(lines)
        run.monitored = lines
        run.wait_until_printed()
        run.assert_goes_on()
    return see


OUTCOMES = {
    "status 1": end_with_status_1,
    "as usual": go_on,
    "its event is lost": lose_struck_events,
    "the events of all that wait are lost": lose_struck_events,
    "the lines of the cycle are lost": lose_lines_of_cycle,
    "the lines go to the collector of before": begin_next_cycle,
    "the event waits for the next pass": go_on,
    "the next cycle begins": begin_next_cycle,
    "the next cycle begins at the first look": begin_next_cycle,
    "the next cycle begins with the old values": begin_next_cycle_with_old_values,
    "the file is read when it changes": wait_for_change_of_file,
    "the change is seen at the next look": see_next_change,
    "no event is defined": define_nothing,
    "the fallback definitions are read": read_fallback_definitions,
    "/dev/null is standard input": open_null_device,
    "the service socket is standard input": take_service_socket,
    "the monitor works": expect_of_monitor("sys05 A"),
    "the monitor does not run": expect_of_monitor(),
    "the program printed nothing": expect_of_monitor("sys06 A"),
    "the status is empty": expect_of_monitor("net02", "net03", "net02"),
}


def outcome_of(row):
    if re.fullmatch(r"tried again after \d+ s", row.outcome):
        return go_on  # a pause of any other length would outlast the test
    return OUTCOMES[row.outcome]
