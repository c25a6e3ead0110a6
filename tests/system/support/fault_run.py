"""One service, or one client of a service, in which one call fails."""

import re

from .collectors import TcpCollector, UdpCollector
from .monitors import EVENTS, NAMES, SETTINGS
from .polling import wait_until
from .records import make_record
from .sandbox import FALLBACK_DEFINITIONS, SERVICE_SOCKET

ROWS = [f"{event},label,text,info" for event in EVENTS]
LOG = "/tmp/faults"
MARK = "/tmp/mark"  # for scripts

LEFTOVERS = {"a descriptor stays open", "a zombie stays", "a zombie may stay",
             "a processing thread stays", "a processing thread may stay", "the program runs on"}

# Every line of a service or a client to which nothing happens.
USUAL = {
    "standard output": re.compile(
        r"Starting service\.\.\.|loading .*|Starting event server\.\.\.|listening\.\.\.|"
        r"Server is listening on .*|> Received event|Event \[\w*\] \(.*\) at \d+|"
        r"(allowed|host|port|protocol|formatString|usbDevMon|agentConnMon): .*|"
        r"> Process events|>>> .*|(Starting|Stopping) monitor: .*"),
    "standard error": re.compile(r"AgentConnMon::ReadAgentStatus: .*")}


class FaultRun:
    """The stage of one run: settings, scripts and collectors stand ready; the situation starts the
    service. Events have the numbers 1, 2... as values; `struck` are those whose client or line
    the failing call is for."""

    def __init__(self, sandbox, collectors, row, error):
        self.sandbox = sandbox
        self.row = row
        self.error = error
        self.service = None
        self.client = None
        self.struck = set()
        self.monitored = []  # what is to arrive of a monitor
        self.lost = set()
        self.sockets = 2  # that a cycle holds open
        self._lines = {}  # of each raised event
        self._collectors = collectors
        self._settings = {**SETTINGS, "allowed": "perf01"}
        sandbox.sh(f"rm -f {SERVICE_SOCKET} {LOG} {MARK}")
        sandbox.write_definitions(*ROWS)
        sandbox.write_definitions(*ROWS, path=FALLBACK_DEFINITIONS)

    def _environment(self, faults, delays):
        """All pauses that the service is known to make are short; any other takes a minute."""
        told = re.findall(r"tried again after (\d+) s", self.row.outcome)
        pauses = ["3", "5", *(told or ["1", "10"])]
        faults = [fault if fault.count(":") == 2 else f"{fault}:{self.error.number}"
                  for fault in faults]
        return self.sandbox.faulty(
            FAULTS=",".join([*faults, *(f"sleep@{pause}:1+:4" for pause in pauses), "usleep:1+:4"]),
            DELAYS=",".join([*delays, *(f"sleep@{pause}:1+:20" for pause in pauses),
                             "sleep:1+:60000", "usleep:1+:5"]),
            FAULTS_LOG=LOG)

    def start_service(self, *faults, delays=(), closed_input=False, **settings):
        """Starts a service whose calls at these places, in the form of OV_FAULTS, fail: with the
        run's error, or with their own if they have one."""
        self._settings.update(settings)
        self.sandbox.write_settings(**self._settings)
        self.sockets = 1 if "protocol" in settings else 2
        for collector in self._collectors.values():
            collector.clear()
        environment = self._environment(faults, delays)
        self.service = self.sandbox.start_service(
            env=environment, prelude="exec <&-" if closed_input else None)

    def change_settings(self, **settings):
        """Lets lines from now on look different, once the service has read it."""
        self._settings.update(settings, formatString=f"{self._settings['formatString']} new")
        if "protocol" in settings:
            self.sockets = 1
        self.sandbox.write_settings(**self._settings)

    def start_client(self, *faults):
        values = self._add_event()
        self.struck.add(values)
        self.client = self.sandbox.start_client(
            "perf01", values, env=self._environment(faults, ()))

    def _add_event(self):
        values = str(len(self._lines) + 1)
        template = self._settings["formatString"]
        self._lines[values] = template.replace("[ID]", "perf01").replace("[VAL]", values)
        return values

    def expect_old_values(self):
        """Whatever the settings file says."""
        self._settings["formatString"] = SETTINGS["formatString"]

    def open_client(self):
        """A client that has connected, and the values and record of its event."""
        values = self._add_event()
        return self.sandbox.connect(), values, make_record("perf01", values)

    def raise_struck_event(self):
        self.struck.add(self.raise_event())

    def raise_event(self):
        values = self._add_event()
        self.sandbox.send_bytes(make_record("perf01", values))
        return values

    def raise_arriving_event(self):
        values = self.raise_event()
        texts = self.collector.texts
        wait_until(lambda: self._lines[values] in texts(),
                   lambda: f"{self._lines[values]!r} in {texts()}; {self}")

    @property
    def collector(self):
        return self._collectors[self._settings.get("protocol", "syslog-udp")]

    def wait_for_arrivals(self, lines):
        """Waits until these have arrived, and nothing else."""
        texts = self.collector.texts
        wait_until(lambda: sorted(texts()) == sorted(lines),
                   lambda: f"{lines}, not {texts()}; {self}")

    def __str__(self):
        return "; ".join([self.error.name, *(
            f"{process.lines} {process.error_lines[:5]}"
            for process in (self.client, self.service) if process is not None)])

    def printed(self, stream):
        """The lines that no process prints to which nothing happens."""
        process = self.client or self.service
        lines = process.lines if stream == "standard output" else process.error_lines
        return [line for line in lines if not USUAL[stream].fullmatch(line)]

    def wait_until_printed(self):
        """Waits for what the row says, and nothing else."""
        for stream in USUAL:
            expected = self.row.lines(stream, self.error)
            wait_until(lambda: self.printed(stream) == expected,
                       lambda: f"{expected} on {stream}; {self}")

    @property
    def failure(self):
        """The line of the log that tells that the row's call has failed."""
        return f"{self.row.function}:{self.error.number}"

    def wait_until_failed(self):
        log = self.sandbox.path(LOG)
        wait_until(lambda: log.exists() and self.failure in log.read_text().splitlines(),
                   lambda: f"{self.failure} in what failed; {self}")

    def assert_goes_on(self):
        """Exactly what is to arrive does, and a further event behind it, which another processing
        thread may take; nothing is left behind."""
        self.wait_for_arrivals([*self.monitored, *self._due_lines()])
        self.raise_arriving_event()
        lines = self._due_lines()
        arrived = self.collector.texts()
        assert sorted(arrived) == sorted([*self.monitored, *lines]), self
        assert [line for line in arrived if line in lines] == lines  # in their order
        self.assert_leaves_nothing()

    def _due_lines(self):
        return [line for values, line in self._lines.items() if values not in self.lost]

    def assert_leaves_nothing(self):
        left = self.row.leftovers
        assert set(left) <= LEFTOVERS
        sockets = self.sockets + left.count("a descriptor stays open")
        zombies = left.count("a zombie stays")
        numbers = {zombies, zombies + left.count("a zombie may stay")}
        threads = self._threads()
        beside = left.count("a processing thread stays")
        threads = {threads + beside, threads + beside + left.count("a processing thread may stay")}
        seen = []  # twice the same, as any ended process is a zombie for a moment

        def settled():
            seen.append(self.service.children)
            return (len(self.service.descriptors) == sockets and len(seen[-1]) in numbers
                    and {state for _, state in seen[-1]} <= {"Z"} and seen[-1] in seen[:-1]
                    and self.service.threads in threads)
        wait_until(settled, lambda: f"{self.service.descriptors}, {self.service.children}, "
                   f"{self.service.threads} threads; {self}")

    def _threads(self):
        """How many the service usually has: its first, the processing thread and its monitors'."""
        monitors = sum(self._settings.get(switch, 0) for switch in NAMES)
        return 2 + monitors - (self.row.outcome == "the monitor does not run")

    def end(self):
        for process in self.client, self.service:
            if process is not None:
                process.kill()


class Collectors(dict):
    """A collector for each protocol, which every run begins with nothing in."""

    def __init__(self, sandbox):
        super().__init__({"syslog-udp": Arrivals(UdpCollector(sandbox), "messages"),
                          "syslog-tcp": Arrivals(TcpCollector(sandbox), "lines")})


class Arrivals:
    def __init__(self, collector, attribute):
        self._all = lambda: getattr(collector, attribute)
        self._before = 0

    def clear(self):
        self._before = len(self._all())

    def texts(self):
        return [line.decode().strip() for line in self._all()[self._before:]]
