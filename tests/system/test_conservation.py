"""The check of conservation itself, on made-up outputs: what it lets pass, and what it finds."""

import pytest

from support.conservation import LONGEST_DATAGRAM, Ledger, check
from support.sandbox import Sandbox
from support.service_output import TCP, UDP, UNRESOLVED, Violation
from support.witness import ANY

START = b"""Starting service...
loading Event definitions...
Starting event server...
listening...
Server is listening on /tmp/ov-events
allowed: perf01 sys06
host: 127.0.0.1
port: 5514
formatString: [ID] [VAL]
"""
OVER_TCP = START + b"protocol: syslog-tcp\n"
RELOADED = b"Starting event server...\nlistening...\nServer is listening on /tmp/ov-events\n"
DEFINITIONS = b"perf01,A,B,warn\nsys06,A,B,info\nnet02,A,B,info\n"
NOT_SENT = b"Error sending message\n"
FAILED_ACCEPT = b"accept: Too many open files\n"
FAILED_JOIN = b"pthread_join: No such process\n"


def event(values, identifier=b"perf01"):
    return b"> Received event\nEvent [%s] (%s) at 100\n" % (identifier, values)


def batch(*lines):
    return b"> Process events\n" + b"".join(b">>> %s\n" % line for line in lines)


ONE, TWO, THREE = b"perf01 1", b"perf01 2", b"perf01 3"
EVENTS = event(b"1") + event(b"2") + event(b"3")
DELIVERY = EVENTS + batch(ONE, TWO, THREE)


class MadeUp:
    def __init__(self, **attributes):
        vars(self).update(attributes)


class Scene:
    """A ledger of one made-up service and one made-up collector."""

    def __init__(self, output, definitions=DEFINITIONS, running=True, **kwargs):
        self.ledger = Ledger()
        self.service = self.add(output, definitions, running, **kwargs)

    def add(self, output, definitions=None, running=False, faults="", errors=b""):
        program = MadeUp(
            stdout_bytes=output, stderr_bytes=errors, status=0, is_running=lambda: running)
        self.ledger.add(program, definitions, faults)
        return program

    def collect(self, protocol, messages=(), connections=(), opened=0, closed=None, port=5514):
        mark = None if closed is None else {self.service: closed}
        collector = ANY if protocol is ANY else (protocol, port)
        self.ledger.receivers.append(MadeUp(
            collector=collector, messages=messages, connections=connections,
            opened={self.service: opened}, closing=mark, closed=mark, drain=lambda: None))
        return self

    def account(self):
        return check(self.ledger, settling=0)


def over_udp(output, *messages, **service):
    return Scene(START + output, **service).collect(UDP, messages).account()


def connection(content, is_complete=True, is_open=False):
    return MadeUp(content=content, is_complete=is_complete, is_open=is_open,
                  drain=lambda: None)


def over_tcp(output, *connections, **service):
    return Scene(OVER_TCP + output, **service).collect(TCP, connections=connections).account()


def to_store(output, *messages):
    return Scene(OVER_TCP + output).collect(ANY, messages).account()


def expect_violations(deliver, cases, **service):
    for name, arguments in cases.items():
        print("now:", name)  # is shown if nothing is found wrong with it
        with pytest.raises(Violation):
            deliver(*arguments, **service)


def test_everything_that_was_made_into_lines_and_arrived_passes():
    counts = over_udp(DELIVERY, ONE, TWO, THREE)
    assert (counts["accepted"], counts["delivered"], counts["to nobody"]) == (3, 3, 0)
    counts = over_tcp(DELIVERY, connection(b"perf01 1\nperf01 2\nperf01 3\n"))
    assert (counts["accepted"], counts["delivered"], counts["cut"]) == (3, 3, 0)


def test_lines_that_are_not_those_of_the_events_are_found():
    expect_violations(over_udp, {
        "first is missing": (EVENTS + batch(TWO, THREE), TWO, THREE),
        "last is missing": (EVENTS + batch(ONE, TWO), ONE, TWO),
        "last of a batch is missing": (
            EVENTS + batch(ONE, TWO) + event(b"4") + batch(b"perf01 4"), ONE, TWO, b"perf01 4"),
        "all are missing": (EVENTS,),
        "lost at a reload": (EVENTS + RELOADED + event(b"4") + batch(b"perf01 4"), b"perf01 4"),
        "twice": (EVENTS + batch(ONE, ONE, TWO, THREE), ONE, ONE, TWO, THREE),
        "twice, in two batches": (DELIVERY + batch(THREE), ONE, TWO, THREE, THREE),
        "swapped": (EVENTS + batch(ONE, THREE, TWO), ONE, THREE, TWO),
        "of nobody": (DELIVERY + batch(b"perf01 4"), ONE, TWO, THREE, b"perf01 4"),
        "other values": (event(b"1") + batch(b"perf01 1x"), b"perf01 1x"),
        "not allowed": (event(b"1", b"net02") + batch(b"net02 1"), b"net02 1"),
    })


def test_datagrams_that_are_not_the_lines_are_found():
    expect_violations(over_udp, {
        "missing": (DELIVERY, ONE, THREE),
        "last missing": (DELIVERY, ONE, TWO),
        "twice": (DELIVERY, ONE, TWO, TWO, THREE),
        "last twice": (DELIVERY, ONE, TWO, THREE, THREE),
        "swapped": (DELIVERY, TWO, ONE, THREE),
        "foreign": (DELIVERY, ONE, TWO, b"foreign", THREE),
        "changed": (DELIVERY, ONE, TWO, THREE + b" "),
    })
    expect_violations(over_udp, {
        "more lost than reported": (DELIVERY + NOT_SENT, ONE),
        "fewer lost than reported": (DELIVERY + NOT_SENT, ONE, TWO, THREE),
    }, faults="sendto:1:1")


def test_connections_that_are_not_the_batches_are_found():
    whole = b"perf01 1\nperf01 2\nperf01 3\n"
    expect_violations(over_tcp, {
        "none": (DELIVERY,),
        "last line missing": (DELIVERY, connection(b"perf01 1\nperf01 2\n")),
        "first line missing": (DELIVERY, connection(b"perf01 2\nperf01 3\n")),
        "line twice": (DELIVERY, connection(whole + b"perf01 3\n")),
        "swapped": (DELIVERY, connection(b"perf01 2\nperf01 1\nperf01 3\n")),
        "batch twice": (DELIVERY, connection(whole), connection(whole)),
        "two connections": (DELIVERY, connection(b"perf01 1\n"),
                            connection(b"perf01 2\nperf01 3\n")),
        "reset, and lost twice": (DELIVERY + 3 * NOT_SENT, connection(b"perf01 1\n", False)),
        "reset, and not a beginning": (DELIVERY, connection(b"perf01 2", is_complete=False)),
        "still open": (DELIVERY, connection(whole, is_complete=False, is_open=True)),
    })
    expect_violations(over_tcp, {
        "fewer lost than reported": (DELIVERY + NOT_SENT, connection(whole)),
        "more lost than reported": (DELIVERY + NOT_SENT, connection(b"perf01 1\n")),
    }, faults="send:1:104")


def test_lines_that_could_not_be_sent_are_lost_by_rule():
    for faults in ("sendto:2:101", "sleep:1+:4,sendto@3>socket:1+:1"):
        counts = over_udp(DELIVERY + NOT_SENT, ONE, THREE, faults=faults)
        assert (counts["delivered"], counts["not sent"]) == (2, 1)
    counts = over_tcp(DELIVERY + NOT_SENT, connection(b"perf01 1\nperf01 3\n"),
                      faults="send:2:104")
    assert (counts["delivered"], counts["not sent"], counts["cut"]) == (2, 1, 0)
    counts = over_tcp(DELIVERY + NOT_SENT, connection(b"perf01 1\nper", is_complete=False))
    assert (counts["delivered"], counts["not sent"], counts["cut"]) == (1, 1, 1)
    left = connection(b"perf01 1\nperf01 3\n")
    for errors in FAILED_ACCEPT, FAILED_JOIN:
        counts = over_tcp(DELIVERY + NOT_SENT, left, errors=errors)
        assert (counts["delivered"], counts["not sent"]) == (2, 1)
    counts = over_udp(DELIVERY + NOT_SENT, ONE, THREE, errors=FAILED_JOIN)
    assert (counts["delivered"], counts["not sent"]) == (2, 1)


def test_line_that_no_datagram_holds_is_lost_by_rule():
    long_value = b"x" * (LONGEST_DATAGRAM - len(b"perf01 "))

    def deliver(value):
        return over_udp(event(value) + batch(b"perf01 " + value) + NOT_SENT)

    assert deliver(long_value + b"x")["not sent"] == 1
    with pytest.raises(Violation):
        deliver(long_value)


def test_line_reported_as_not_sent_for_no_reason_is_found():
    one_udp, nowhere = (DELIVERY + NOT_SENT, ONE, THREE), (DELIVERY + 3 * NOT_SENT,)
    expect_violations(over_udp, {"one": one_udp, "all": nowhere})
    expect_violations(over_udp, {"all but one": nowhere}, faults="sendto:1:1")
    expect_violations(over_udp, {"for a call that nobody makes": one_udp}, faults="send:1+:1")
    expect_violations(over_udp, {"beside another thread": one_udp}, errors=FAILED_ACCEPT)
    of_monitor = b"Error stopping monitor: USB Device Monitor\n" + FAILED_JOIN
    expect_violations(over_udp, {"beside a monitor": one_udp}, errors=of_monitor)
    expect_violations(over_udp, {"by a service that ended": one_udp}, running=False)
    one_tcp = (DELIVERY + NOT_SENT, connection(b"perf01 1\nperf01 3\n"))
    all_tcp = (*nowhere, connection(b""))
    expect_violations(over_tcp, {
        "one": one_tcp, "all": all_tcp, "without a connection": nowhere})
    expect_violations(over_tcp, {"all but one": all_tcp}, faults="send:1:32")
    expect_violations(over_tcp, {"for a call that nobody makes": one_tcp}, faults="sendto:1+:1")
    expect_violations(over_tcp, {
        "by a service that ended": one_tcp, "and without a connection": nowhere}, running=False)
    with pytest.raises(Violation):
        Scene(OVER_TCP + DELIVERY + 3 * NOT_SENT).account()
    assert to_store(DELIVERY, ONE, TWO, THREE)["delivered"] == 3
    expect_violations(to_store, {"one": (DELIVERY + NOT_SENT, ONE, THREE)})


def test_every_line_without_a_socket_must_be_reported_as_not_sent():
    reload = RELOADED + b"facility: 1\nError creating socket\n"
    output = DELIVERY + reload + event(b"4") + batch(b"perf01 4")
    counts = over_udp(output + NOT_SENT, ONE, TWO, THREE)
    assert (counts["delivered"], counts["not sent"]) == (3, 1)
    expect_violations(over_udp, {"without a word": (output, ONE, TWO, THREE)})


def test_every_line_without_any_collector_must_be_reported_as_not_sent():
    output = START + b"Invalid IP address or hostname: unknown\n" + DELIVERY
    assert Scene(output + 3 * NOT_SENT).account()["not sent"] == 3
    with pytest.raises(Violation):
        Scene(output + 2 * NOT_SENT).account()


def test_datagrams_are_lost_by_rule_only_while_no_collector_is_there():
    first, second = START + EVENTS + batch(ONE, TWO, THREE), event(b"4") + batch(b"perf01 4")
    late = Scene(first + second).collect(UDP, [b"perf01 4"], opened=len(first))
    assert late.account()["to nobody"] == 3
    early = Scene(first + second + batch()).collect(UDP, [ONE, TWO, THREE], closed=len(first))
    assert early.account()["to nobody"] == 1
    with pytest.raises(Violation):
        Scene(first + second).collect(UDP, [ONE, TWO], closed=len(first + second)).account()


def test_connection_that_the_collector_cut_may_carry_a_beginning():
    counts = over_tcp(DELIVERY, connection(b"perf01 1\nper", is_complete=False))
    assert (counts["delivered"], counts["cut"]) == (1, 2)
    counts = over_tcp(DELIVERY, connection(b"perf01 1\nper"), running=False)
    assert (counts["delivered"], counts["cut"]) == (1, 2)


def test_batch_for_a_collector_that_refuses_is_held():
    assert Scene(OVER_TCP + DELIVERY + event(b"4")).account()["held"] == 1
    with pytest.raises(Violation):
        Scene(OVER_TCP + DELIVERY + event(b"4") + batch(b"perf01 4")).account()


def test_events_wait_for_an_address_or_end_with_the_service():
    unknown = b"> Client address is unknown\n"
    assert over_udp(EVENTS + unknown)["held"] == 3
    scene = Scene(START + EVENTS + unknown)
    scene.ledger.address_may_be_missing = False
    with pytest.raises(Violation):
        scene.account()
    assert over_udp(EVENTS, running=False)["ended"] == 3


def test_dropped_events_are_those_not_defined_and_those_not_allowed():
    counts = over_udp(event(b"1", b"net02") + event(b"1", b"gone") + b"Event gone is not defined\n"
                      + event(b"1") + batch(ONE), ONE)
    assert (counts["not allowed"], counts["not defined"], counts["accepted"]) == (1, 1, 1)


def test_defined_event_that_is_dropped_as_undefined_is_found():
    with pytest.raises(Violation):
        over_udp(event(b"1") + b"Event perf01 is not defined\n")
    with pytest.raises(Violation):
        over_udp(DELIVERY, ONE, TWO, THREE, definitions=b"sys06,A,B,info\n")


def test_removed_key_keeps_its_value_in_the_next_cycle():
    over_udp(RELOADED + b"formatString: new [VAL]\n" + event(b"1") + batch(b"new 1"), b"new 1")


def test_events_of_monitors_come_between_while_one_is_on():
    output = b"usbDevMon: 1\n" + EVENTS + batch(ONE, b"sys06 a\nb", TWO, THREE)
    counts = over_udp(output, ONE, b"sys06 a\nb", TWO, THREE)
    assert (counts["of monitors"], counts["delivered"]) == (1, 4)
    expect_violations(over_udp, {
        "monitor off": (EVENTS + batch(ONE, b"sys06 a", TWO, THREE), ONE, b"sys06 a", TWO, THREE),
        "not allowed": (b"usbDevMon: 1\n" + batch(b"sys05 a"), b"sys05 a")})


def test_settings_may_come_between_the_lines_of_a_thread_that_was_left_behind():
    output = (b"usbDevMon: 1\n" + RELOADED + b"host: 127.0.0.1\n" + batch(b"sys06 a")
              + b"port: 5515\nusbDevMon: 1\n" + batch(b"sys06 b") + b"formatString: [VAL] [ID]\n"
              + b"Starting monitor: USB Device Monitor\n" + batch(b"c\nend: 1 sys06"))
    scene = Scene(START + output).collect(UDP, [b"sys06 a"])
    scene.collect(UDP, [b"sys06 b", b"c\nend: 1 sys06"], port=5515)
    assert scene.account()["delivered"] == 3
    output = RELOADED + b"port: 5515\n" + batch() + UNRESOLVED + b"\n" + event(b"1") + batch(ONE)
    assert over_udp(output, ONE)["delivered"] == 1


def test_values_of_any_bytes_are_recognised_in_their_lines():
    over_udp(event(b"a\n>>> b") + event(b"\xff\xfe%s") + batch(
        b"perf01 a\n>>> b", b"perf01 \xef\xbf\xbd%s"), b"perf01 a\n>>> b", b"perf01 \xef\xbf\xbd%s")


def test_record_that_a_client_sent_must_have_been_taken_in():
    scene = Scene(START + DELIVERY).collect(UDP, [ONE, TWO, THREE])
    scene.add(b"Event [perf01] (1) at 100\n")
    scene.account()
    scene.add(b"Event [perf01] (1) at 100\n")
    with pytest.raises(Violation):
        scene.account()


def test_every_test_is_held_to_the_law_when_its_sandbox_closes(monkeypatch):
    monkeypatch.setattr("support.sandbox.check", lambda ledger: check(ledger, settling=0))
    sandbox = Sandbox()
    sandbox.ledger.add(Scene(START + EVENTS + batch(TWO)).service, DEFINITIONS)
    with pytest.raises(Violation):
        sandbox.close()
