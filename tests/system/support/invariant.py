"""The invariant that every system test is held to when its sandbox closes.

1. Each event that a service took in and allows becomes one line, in the order of the events. Lines
   of the service's monitors come between.
2. Each line arrives at a collector of the test, once and in order. Lines that a test expects to be
   lost stand in `sandbox.expected_losses`.
3. Each client that ended with status 0 had its event taken in.

A service that has ended may have lost what was on its way. A test without a collector does not
look at what arrives. A test in which two processing threads send beside each other sets
`sandbox.has_invariant = False`.
"""

import collections
import functools
import re

MONITOR_EVENTS = {b"usbDevMon": b"sys0[567]", b"vmwSigninMon": b"sec0[34]",
                  b"agentConnMon": b"net0[23]", b"perfMon": b"perf0[123]"}
DEFAULT_TEMPLATE = b"<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"

# Texts with line feeds are part of the entry in which they are printed.
ENTRY_END = re.compile(rb"\n(?=[A-Z]\w+ |>|listening|loading |\S+: |\Z)")
SETTING = re.compile(rb"(formatString|allowed|\w+Mon): (.*)", re.DOTALL)
RECORD = re.compile(rb"Event \[(.*?)\] \((.*)\) at \d+", re.DOTALL)
TOKEN = re.compile(rb"\[(PRI|DATE|ID|DESC|VAL|SEV|NAME|IP)\]")


class Violation(AssertionError):
    """The invariant does not hold."""


class ServiceOutput:
    """What a service's standard output tells of its events, followed from the first to the last."""

    def __init__(self, output):
        self.records = collections.Counter()  # of all events, as clients print them
        self.waiting = collections.deque()  # the identifiers and values of events without a line
        self.lines = []
        self._settings = {b"formatString": DEFAULT_TEMPLATE, b"allowed": b""}
        self._monitor_events = set()  # patterns of those that a monitor raises or has raised
        for entry in ENTRY_END.split(output)[:-1]:
            self._follow(entry)

    def _follow(self, entry):
        record, setting = RECORD.fullmatch(entry), SETTING.fullmatch(entry)
        if record:
            self.records[entry + b"\n"] += 1
            if record[1].decode("latin-1") in self._settings[b"allowed"].decode().split():
                self.waiting.append(record.groups())
        elif setting:
            self._settings[setting[1]] = setting[2]
            if setting[2] > b"0" and setting[1] in MONITOR_EVENTS:
                self._monitor_events.add(MONITOR_EVENTS[setting[1]])
        elif entry.startswith(b">>> "):
            self._take_line(entry[4:])
        elif self.waiting and entry == b"Event %s is not defined" % self.waiting[-1][0]:
            self.waiting.pop()

    def _take_line(self, line):
        template = self._settings[b"formatString"]
        due = [as_pattern(text) for event in list(self.waiting)[:1] for text in event]
        monitored = b"|".join(sorted(self._monitor_events))
        if due and line_pattern(template, *due).fullmatch(line):
            self.waiting.popleft()
        elif not monitored or not line_pattern(template, monitored, b".*").fullmatch(line):
            raise Violation(f"{line!r} is not the line of {due}")
        self.lines.append(line)


@functools.lru_cache(maxsize=64)
def line_pattern(template, identifier, values):
    """A pattern for the line of an event, by those of its identifier and values."""
    texts = {b"ID": identifier, b"VAL": values}
    pieces = TOKEN.split(template)
    return re.compile(b"".join(
        b"(?:%s)" % texts.get(piece, b".*?") if number % 2 else re.escape(piece)
        for number, piece in enumerate(pieces)), re.DOTALL)


def as_pattern(text):
    """What is no UTF-8 becomes some replacement characters."""
    valid = text.decode(errors="replace").removeprefix("\ufeff")
    return b"(?:\xef\xbf\xbd)+".join(re.escape(piece.encode()) for piece in
                                     re.split("\ufffd+", valid))


def pieces_of(line):
    """A line as it is compared: over TCP it has no white space at its ends, and line feeds end
    it."""
    return line.decode().strip().encode().split(b"\n")


def verify(outputs, received, expected_losses=(), sent_records=(), has_ended=False):
    """`outputs` are the standard outputs of services; `received` has, for each collector, its lines
    in their order."""
    services = [ServiceOutput(output) for output in outputs]
    lost = lost_lines(services, received) if received else collections.Counter()
    expected = collections.Counter(expected_losses)
    if expected - lost:
        raise Violation(f"arrived, and were to be lost: {list(expected - lost)}")
    if has_ended:
        return
    if lost - expected:
        raise Violation(f"{sum(lost.values())} lines are lost: {list(lost - expected)[:3]}")
    waiting = [event for service in services for event in service.waiting]
    if waiting and received:
        raise Violation(f"{len(waiting)} events have no line, the first is {waiting[0]}")
    taken_in = sum((service.records for service in services), collections.Counter())
    untaken = collections.Counter(sent_records) - taken_in
    if services and untaken:
        raise Violation(f"sent and never taken in: {list(untaken)[:3]}")


def lost_lines(services, received):
    """How often each line did not arrive; fails if one arrived out of order or too often."""
    lines = [piece for service in services for line in service.lines for piece in pieces_of(line)]
    for collected in received:
        rest = iter(lines)
        for line in collected:
            if line not in rest:
                raise Violation(f"arrived out of order, twice, or never sent: {line!r}")
    lost = collections.Counter(lines)
    for collected in received:
        lost.subtract(collected)
    if min(lost.values(), default=0) < 0:
        raise Violation(f"arrived twice: {lost.most_common()[-1][0]!r}")
    return +lost
