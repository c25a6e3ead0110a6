"""A service, and perhaps a client, in which one call fails."""

import contextlib
import re

from .collectors import TcpCollector, UdpCollector
from .monitors import EVENTS, NAMES, SETTINGS
from .polling import wait_until
from .records import make_record
from .sandbox import FALLBACK_DEFINITIONS

LOG = "/tmp/faults"
ROWS = [f"{event},label,text,info" for event in EVENTS]
PAUSES = (1, 3, 5, 10)  # seconds

# The lines of a service or a client in which nothing fails.
USUAL = {
    "stdout": re.compile(
        r"Starting service\.\.\.|loading .*|Starting event server\.\.\.|listening\.\.\.|"
        r"Server is listening on .*|> Received event|Event \[\w*\] \(.*\) at \d+|"
        r"(allowed|host|port|protocol|formatString|usbDevMon|agentConnMon): .*|"
        r"> Process events|>>> .*|(Starting|Stopping) monitor: .*"),
    "stderr": re.compile(r"AgentConnMon::ReadAgentStatus: .*")}


class FaultRun:
    """A situation starts the service and brings it to the call of the row; an outcome looks at what
    came of it. Events have the numbers 1, 2... as values."""

    def __init__(self, sandbox, row):
        self.sandbox = sandbox
        self.row = row
        self.service = None
        self.client = None
        self.events = []
        self.lost = []
        self.monitored = []  # the lines of a monitor
        self.neighbour = None  # a process that must stay alive
        self.sockets = 2
        self._collector = None
        self._template = SETTINGS["formatString"]
        self._settings = {**SETTINGS, "allowed": "perf01"}
        sandbox.write_definitions(*ROWS)
        sandbox.write_definitions(*ROWS, path=FALLBACK_DEFINITIONS)

    def _environment(self, faults):
        """A pause of the service is short, one of another length is a minute."""
        return self.sandbox.faulty(
            FAULTS=",".join([*faults, *(f"sleep@{pause}:1+:4" for pause in PAUSES)]),
            DELAYS=",".join([*(f"sleep@{pause}:1+:50" for pause in PAUSES), "sleep:1+:60000"]),
            FAULTS_LOG=LOG)

    def start_service(self, faults=None, prelude=None, **settings):
        self._settings.update(settings)
        self.sandbox.write_settings(**self._settings)
        is_tcp = "protocol" in settings
        self.sockets = 1 if is_tcp else 2
        self._collector = (TcpCollector if is_tcp else UdpCollector)(self.sandbox)
        faults = self.row.faults if faults is None else faults
        self.service = self.sandbox.start_service(env=self._environment(faults), prelude=prelude)

    def start_client(self):
        self.client = self.sandbox.start_client(
            "perf01", self.add_event(), env=self._environment(self.row.faults))

    def change_settings(self, **settings):
        """From the next cycle on, lines look different."""
        self._template += " new"
        self._settings.update(settings, formatString=self._template)
        self.sandbox.write_settings(**self._settings)

    def keep_old_settings(self):
        self._template = SETTINGS["formatString"]

    def add_event(self):
        values = str(len(self.events) + 1)
        self.events.append(self._template.replace("[ID]", "perf01").replace("[VAL]", values))
        return values

    def raise_event(self):
        with contextlib.suppress(BrokenPipeError):  # the service may fail to read before the write
            self.sandbox.send_bytes(make_record("perf01", self.add_event()))

    def raise_lost_event(self):
        self.raise_event()
        self.lost.append(self.events[-1])

    def raise_arriving_event(self):
        self.raise_event()
        self.wait_for_arrivals()

    def arrived(self):
        lines = getattr(self._collector, "messages", None) or getattr(self._collector, "lines", [])
        return [line.decode().strip() for line in lines]

    def wait_for_arrivals(self):
        due = [*self.monitored, *(event for event in self.events if event not in self.lost)]
        wait_until(lambda: len(self.arrived()) >= len(due), lambda: f"{due}, {self}")
        assert sorted(self.arrived()) == sorted(due), self

    def printed(self, stream):
        """The lines that a process prints only if something fails."""
        process = self.client or self.service
        lines = process.lines if stream == "stdout" else process.error_lines
        return [re.sub("0x[0-9a-f]+", "%p", line) for line in lines
                if not USUAL[stream].fullmatch(line)]

    def wait_until_printed(self):
        for stream in USUAL:
            wait_until(lambda: self.printed(stream) == self.row.lines(stream), lambda: str(self))

    def wait_until_failed(self):
        log = self.sandbox.path(LOG)
        function = re.split("[@>:]", self.row.call.split()[-1])[0]
        line = f"{function}:{self.row.faults[-1].rsplit(':', 1)[1]}"
        wait_until(lambda: log.exists() and line in log.read_text().splitlines(),
                   lambda: f"{line} in {LOG}; {self}")

    def assert_goes_on(self):
        """All that is due arrives, so does a further event, and nothing is left behind."""
        self.wait_for_arrivals()
        self.raise_arriving_event()
        events = [line for line in self.arrived() if line in self.events]
        assert events == [event for event in self.events if event not in self.lost], self
        self.assert_leaves_nothing()

    def assert_leaves_nothing(self):
        left = self.row.left
        sockets = self.sockets + (left == "a descriptor")
        zombies = ["zombie"] * (left == "a zombie")
        threads = 2 + (left == "a processing thread") - (self.row.outcome == "no monitor runs")
        threads += sum(self._settings.get(switch, 0) for switch in NAMES)
        threads = {threads, threads + (left == "perhaps a processing thread")}
        seen = []  # twice the same, as an ended process is a zombie for a moment

        def settled():
            seen.append(self.service.children)
            return (len(self.service.descriptors) == sockets and self.service.threads in threads
                    and seen[-1] in seen[:-1] and [state for _, state in seen[-1]] == zombies)
        wait_until(settled, lambda: f"{self.service.descriptors}, {self.service.children}, "
                   f"{self.service.threads} threads; {self}")

    def tell_invariant(self):
        """What the sandbox must know to check its invariant."""
        self.sandbox.has_invariant = not self.row.left.endswith("a processing thread")
        self.sandbox.expected_losses = [line.encode() for line in self.lost
                                        if f">>> {line}" in self.service.lines]

    def __str__(self):
        process = self.client or self.service
        return f"{self.row}: {process.stdout}\n{process.stderr}\narrived: {self.arrived()}"
