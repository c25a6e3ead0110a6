"""The invariant of the system tests: it fails when an event is lost, doubled, changed..."""

import re

import pytest

from support.invariant import Violation, verify

START = b"""Starting service...
Server is listening on /tmp/ov-events
allowed: perf01 sys05
formatString: <[PRI]> [ID] [VAL]
usbDevMon: 1
Starting monitor: USB Device Monitor
"""


def event(identifier, values):
    return b"> Received event\nEvent [%s] (%s) at 100\n" % (identifier, values)


OUTPUT = (START + event(b"perf01", b"1") + event(b"sec03", b"2") + event(b"perf01", b"3") +
          b"> Process events\n>>> <28> perf01 1\n>>> <30> sys05 usb\n>>> <28> perf01 3\n")
LINES = [b"<28> perf01 1", b"<30> sys05 usb", b"<28> perf01 3"]


def test_events_that_each_become_one_line_are_fine():
    verify([OUTPUT], [LINES])
    verify([OUTPUT.replace(b"(3)", b"(\n3)").replace(b"01 3", b"01 \n3")],
           [[*LINES[:2], b"<28> perf01 ", b"3"]])
    verify([OUTPUT + event(b"perf01", b"9")], [LINES], has_ended=True)


@pytest.mark.parametrize("before, after", [
    (b">>> <28> perf01 1\n", b""),
    (b">>> <28> perf01 3\n", b""),
    (b">>> <28> perf01 3\n", b">>> <28> perf01 3\n" * 2),
    (b"perf01 1\n>>> <30> sys05 usb\n>>> <28> perf01 3",
     b"perf01 3\n>>> <30> sys05 usb\n>>> <28> perf01 1"),
    (b">>> <28> perf01 3", b">>> <28> perf01 4"),
    (b"Event [sec03] (2)", b"Event [perf01] (2)"),
    (b"usbDevMon: 1", b"usbDevMon: 0")],
    ids=["first-lost", "last-lost", "doubled", "out-of-order", "changed", "event-without-a-line",
         "line-without-a-monitor"])
def test_event_that_does_not_become_its_line_is_found(before, after):
    changed = OUTPUT.replace(before, after)
    assert changed != OUTPUT
    with pytest.raises(Violation, match="is not the line of|have no line"):
        verify([changed], [re.findall(b">>> (.*)", changed)])


@pytest.mark.parametrize("received, complaint", [
    (LINES[:-1], "lost"), (LINES + LINES[-1:], "out of order, twice"),
    (LINES[::-1], "out of order"), ([*LINES[:2], b"<28> perf01 4"], "never sent")],
    ids=["lost", "doubled", "out-of-order", "changed"])
def test_line_that_does_not_arrive_as_it_is_is_found(received, complaint):
    with pytest.raises(Violation, match=complaint):
        verify([OUTPUT], [received])


def test_line_that_arrives_at_two_collectors_is_found():
    with pytest.raises(Violation, match="twice"):
        verify([OUTPUT], [LINES, LINES[:1]])


def test_expected_loss_is_no_violation_and_must_happen():
    verify([OUTPUT], [LINES[1:]], expected_losses=LINES[:1])
    with pytest.raises(Violation, match="were to be lost"):
        verify([OUTPUT], [LINES], expected_losses=LINES[:1])


def test_event_that_was_sent_and_never_taken_in_is_found():
    sent = b"Event [perf01] (1) at 100\n"
    verify([OUTPUT], [LINES], sent_records=[sent])
    with pytest.raises(Violation, match="never taken in"):
        verify([OUTPUT], [LINES], sent_records=[sent, sent])
