"""What a service's standard output tells of the events that it took in and of the lines that it
made of them, followed from its first byte to its last."""

import collections
import copy
import dataclasses
import functools
import re

UDP = "syslog-udp"
TCP = "syslog-tcp"
DEFAULT_TEMPLATE = "<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"
MONITOR_EVENTS = {"usbDevMon": ("sys05", "sys06", "sys07"), "vmwSigninMon": ("sec03", "sec04"),
                  "agentConnMon": ("net02", "net03"), "perfMon": ("perf01", "perf02", "perf03")}

TOKENS = re.compile(r"(\[(?:PRI|DATE|ID|DESC|VAL|SEV|NAME|IP)\])")
OTHER_TOKENS = ("[PRI]", "[DATE]", "[DESC]", "[SEV]", "[NAME]", "[IP]")
REPLACEMENTS = re.compile("\ufffd+")
RECORD = re.compile(rb"Event \[(.*?)\] \((.*?)\) at \d+\n", re.DOTALL)
NOT_DEFINED = re.compile(rb"Event (.*?) is not defined\n", re.DOTALL)
INTEGER = re.compile(r"\s*[+-]?[0-9]+\s*")
SETTING = re.compile(r"([^:]+): (.*)")
SETTING_LINE = re.compile(rb"(\w+): .*\n")
UNRESOLVED = b"Invalid IP address or hostname: "
LINE_STARTS = (b"> ", b">>> ", b"Starting ", b"Stopping ", b"listening...", b"Server is listening",
               b"Error ", UNRESOLVED, b"Event ")
NO_SOCKET = b"Error creating socket"
NO_SENDER = (NO_SOCKET, UNRESOLVED)


class Violation(AssertionError):
    """The law of conservation does not hold."""


@dataclasses.dataclass
class Event:
    """An event that the service queued."""
    identifier: bytes
    values: bytes

    def __str__(self):
        return f"[{self.identifier.decode(errors='replace')}] ({self.values!r})"


@dataclasses.dataclass
class Batch:
    """The lines of one pass, with the collector that they are sent to: a protocol and a port, or
    None while no collector was ever resolved, or there is no socket to reach it."""
    start: int
    collector: tuple
    lines: list = dataclasses.field(default_factory=list)
    failed: int = 0  # lines that the service reported as not sent
    is_last: bool = True  # so far
    next_start: int = None


class Settings:
    """Those in force, as the service printed them at the start of each cycle: a key that is absent
    keeps its value."""

    def __init__(self):
        self.allowed = set()
        self.template = DEFAULT_TEMPLATE
        self.protocol = UDP
        self.collectors = {UDP: None, TCP: None}
        self.monitor_events = set()  # raised by a monitor of this cycle or an earlier one
        self._has_socket = True
        self._port = 514
        self._switches = dict.fromkeys(MONITOR_EVENTS, 0)

    @property
    def collector(self):
        return self.collectors[self.protocol] if self._has_socket else None

    def take_over(self, values, has_sender, has_socket):
        self.template = values.get("formatString", self.template)
        if "allowed" in values:
            self.allowed = {word.strip() for word in values["allowed"].split(" ")}
        if "protocol" in values:
            self.protocol = TCP if values["protocol"] == TCP else UDP
        self._has_socket = has_socket or self.protocol == TCP  # which makes its own for a batch
        self._port = integer(values.get("port"), self._port)
        if has_sender:
            self.collectors[self.protocol] = (self.protocol, self._port & 0xffff)
        for switch, events in MONITOR_EVENTS.items():
            self._switches[switch] = integer(values.get(switch), self._switches[switch])
            if self._switches[switch] > 0:
                self.monitor_events |= self.allowed.intersection(events)


def integer(text, otherwise):
    if text is None or not INTEGER.fullmatch(text) or not -2**31 <= int(text) < 2**31:
        return otherwise
    return int(text)


def text_of(content):
    """Bytes as the text that the service makes of them, but for how many replacement characters
    stand for those that are no UTF-8."""
    return content.decode(errors="replace").removeprefix("\ufeff")


def stretches(template, event):
    """What is known of an event's line: its texts between the other tokens."""
    texts = {"[ID]": text_of(event.identifier), "[VAL]": text_of(event.values)}
    return "".join("\0" if piece in OTHER_TOKENS else texts.get(piece, piece)
                   for piece in TOKENS.split(template)).split("\0")


def matching(text):
    """A pattern for a text, with any number of replacement characters where it has some."""
    return b"(?:\xef\xbf\xbd)+".join(
        re.escape(piece.encode()) for piece in REPLACEMENTS.split(text))


@functools.lru_cache(maxsize=16)
def monitor_line(template, identifiers):
    """A pattern for the lines of these events, with any values."""
    texts = {"[ID]": "|".join(sorted(identifiers)).join("()"), "[VAL]": "(?s:.*?)"}
    return re.compile("".join(
        "[^\n]*?" if piece in OTHER_TOKENS else texts.get(piece) or re.escape(piece)
        for piece in TOKENS.split(template)).encode())


def defined_identifiers(definitions):
    """The identifiers that a definitions file (bytes) defines."""
    rows = definitions.decode("utf-8-sig", "replace").split("\n")
    columns = [row.split(",") for row in rows if not row.startswith("#")]
    return {row[0].strip() for row in columns if len(row) >= 4}


class ServiceOutput:
    """Everything is followed at once: fails with a Violation where a line is not that of the event
    that has waited longest, nor of a monitor.

    `definitions` are the definitions file's bytes, or None where they are not known."""

    def __init__(self, output, definitions=None):
        self.batches = []
        self.waiting = collections.deque()  # events without a line so far
        self.records = collections.Counter()  # the lines of the records that were taken in
        self.counts = collections.Counter()
        self.is_held = False  # for want of an address
        self._output = output
        self._position = 0
        self._defined = None if definitions is None else defined_identifiers(definitions)
        self._settings = Settings()
        self._settings_before = None  # this cycle's, those of the cycle before
        self._printed_settings = {}  # of this cycle so far
        self._may_print_settings = False
        self._records_due = 0
        self._latest = None  # the latest event taken in, and whether it was queued
        self._follow()

    def _follow(self):
        steps = {b"Server is listening on ": self._begin_cycle, b">>> ": self._take_line,
                 b"> Process events\n": self._begin_batch, b"Event ": self._take_event_line,
                 b"> Received event\n": self._expect_record,
                 b"> Client address is unknown\n": self._hold,
                 b"Error sending message\n": self._count_failure,
                 UNRESOLVED: self._take_unresolved,
                 **dict.fromkeys((b"Starting ", b"Stopping "), self._end_settings)}
        end = self._output.rfind(b"\n") + 1  # what is behind it is still being printed
        while self._position < end:
            for start, step in steps.items():
                if self._output.startswith(start, self._position):
                    step()
                    break
            else:
                self._take_other_line()

    def _take_other_line(self):
        if self._may_print_settings and not self._is_at(LINE_STARTS):
            self._read_settings()
        else:
            self._next_line()

    def _is_at(self, starts):
        return self._output.startswith(starts, self._position)

    def _next_line(self):
        start = self._position
        self._position = self._output.index(b"\n", start) + 1
        return self._output[start:self._position - 1].decode(errors="replace")

    def _has_line(self):
        return self._output.find(b"\n", self._position) >= 0

    def _begin_cycle(self):
        self._next_line()
        self._settings_before = copy.deepcopy(self._settings)
        self._printed_settings = {}
        self._read_settings()
        # A processing thread that a failed accept left behind may print between two of them.
        self._may_print_settings = self.counts["cycles"] > 0
        self.counts["cycles"] += 1

    def _read_settings(self):
        key = None
        values = self._printed_settings
        while not self._is_at(LINE_STARTS) and self._has_line():
            line = self._next_line()
            setting = SETTING.fullmatch(line)
            if setting:
                key = setting[1]
                values[key] = setting[2]
            elif key is not None:
                values[key] += "\n" + line
        self._settings = copy.deepcopy(self._settings_before)
        self._settings.take_over(values, not self._is_at(NO_SENDER), not self._is_at(NO_SOCKET))

    def _take_unresolved(self):
        if self._may_print_settings:
            self._read_settings()  # of which none is left, and which have no sender
        self._end_settings()

    def _end_settings(self):
        self._next_line()
        self._may_print_settings = False

    def _expect_record(self):
        self._end_settings()
        self._records_due += 1

    def _take_event_line(self):
        record = RECORD.match(self._output, self._position) if self._records_due else None
        undefined = None if record else NOT_DEFINED.match(self._output, self._position)
        if record:
            self._take_record(record)
        elif undefined:
            self._drop_undefined(undefined)
        found = record or undefined
        self._position = found.end() if found else self._output.index(b"\n", self._position) + 1

    def _take_record(self, record):
        self._records_due -= 1
        self.counts["received"] += 1
        self.records[record[0]] += 1
        event = Event(record[1], record[2])
        queued = event.identifier.decode("latin-1") in self._settings.allowed
        self._latest = (event, queued)
        if queued:
            self.waiting.append(event)
            self.counts["accepted"] += 1
        else:
            self.counts["not allowed"] += 1

    def _drop_undefined(self, report):
        event, queued = self._latest or (None, False)
        if event is None or event.identifier != report[1]:
            raise Violation(f"{report[0]!r} does not follow its record")
        if self._defined is not None and event.identifier.decode("latin-1") in self._defined:
            raise Violation(f"{event} was dropped as not defined, and it is")
        self.counts["not defined"] += 1
        self.counts["accepted" if queued else "not allowed"] -= 1
        if queued:
            self.waiting.pop()
        self._latest = None

    def _hold(self):
        self._next_line()
        self.is_held = True

    def _begin_batch(self):
        if self.batches:
            self.batches[-1].is_last = False
            self.batches[-1].next_start = self._position
        self.batches.append(Batch(self._position, self._settings.collector))
        self._next_line()
        self.is_held = False

    def _count_failure(self):
        self._next_line()
        self.batches[-1].failed += 1
        self.counts["not sent"] += 1

    def _take_line(self):
        start = self._position + len(b">>> ")
        end = self._end_of_waiting_line(start) or self._end_of_monitor_line(start)
        if end is None:
            line = self._output[start:self._output.index(b"\n", start)]
            due = self.waiting[0] if self.waiting else "none"
            raise Violation(f"the line {line!r} was made where that of event {due} was due")
        self.batches[-1].lines.append(self._output[start:end - 1])
        self._position = end

    def _end_of_waiting_line(self, start):
        if not self.waiting:
            return None
        event = self.waiting[0]
        end = self._end_of_line_of(event, start)
        if end is not None:
            self._expect_defined(event)
            self.waiting.popleft()
        return end

    def _end_of_line_of(self, event, start):
        texts = stretches(self._settings.template, event)
        if len(texts) == 1 and "\ufffd" not in texts[0]:
            line = texts[0].encode() + b"\n"
            return start + len(line) if self._output.startswith(line, start) else None
        pattern = rb"[^\n]*?".join(map(matching, texts)) + b"\n"
        found = re.compile(pattern).match(self._output, start)
        return found.end() if found else None

    def _expect_defined(self, event):
        if self._defined is not None and event.identifier.decode("latin-1") not in self._defined:
            raise Violation(f"{event} was forwarded, and it is not defined")

    def _end_of_monitor_line(self, start):
        """The values may hold line feeds: the line ends where another begins that is known."""
        identifiers = frozenset(self._settings.monitor_events)
        end = self._output.index(b"\n", start)
        while end + 1 < len(self._output) and not self._begins_known_line(end + 1):
            end = self._output.find(b"\n", end + 1)
        pattern = monitor_line(self._settings.template, identifiers)
        found = pattern.fullmatch(self._output, start, end) if identifiers else None
        if not found:
            return None
        if self._defined is not None:  # one that was not is from then on
            self._defined.update(name.decode() for name in found.groups())
        self.counts["of monitors"] += 1
        return end + 1

    def _begins_known_line(self, position):
        if self._output.startswith(LINE_STARTS, position):
            return True
        setting = SETTING_LINE.match(self._output, position) if self._may_print_settings else None
        return setting is not None and setting[1].decode() not in self._printed_settings
