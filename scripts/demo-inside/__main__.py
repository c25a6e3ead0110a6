"""The part of scripts/demo that runs inside the sandbox."""

import os
import pathlib
import re
import socket
import subprocess
import sys
import threading
import time

LOGGER = "/run/kept/ov-event-logger"
EXAMPLES = pathlib.Path("/run/kept/examples")
DEFINITIONS = pathlib.Path("/usr/lib/orvan/ov-event-logger/ov-event-def.csv")
SETTINGS = pathlib.Path("/tmp/ov-event-logger.ini")
ADDRESS = ("127.0.0.1", 5514)
DEADLINE = 9.0  # seconds for the events of one protocol

# Event, values, and how their line goes on behind the date.
EVENTS = [
    ("perf01", "95,80", 28, "Processor use has reached its threshold - 95,80 (warn)"),
    ("sys01", None, 30, "System started -  (info)"),
    ("net03", "DISCONNECTED", 27, "Secure connection lost - DISCONNECTED (err)"),
]

printing = threading.Lock()


def show(who, line):
    with printing:
        print(f"{who:>9} | {line}", flush=True)


class Collector:
    """Receives lines over UDP and TCP and shows them as they arrive."""

    def __init__(self):
        self.received = []
        self._udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._udp.bind(ADDRESS)
        self._tcp = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._tcp.bind(ADDRESS)
        self._tcp.listen()
        for receive in (self._receive_datagrams, self._receive_streams):
            threading.Thread(target=receive, daemon=True).start()

    def _take(self, protocol, line):
        show("collector", f"{protocol}: {line}")
        self.received.append((protocol, line))

    def _receive_datagrams(self):
        while True:
            self._take("UDP", self._udp.recv(65536).decode())

    def _receive_streams(self):
        while True:
            connection, _ = self._tcp.accept()
            with connection, connection.makefile(newline="\n") as stream:
                for line in stream:
                    self._take("TCP", line.removesuffix("\n"))


class Service:
    """The service, whose output is shown as it comes."""

    def __init__(self):
        self.lines = []
        self._process = subprocess.Popen([LOGGER, "-s"], stdout=subprocess.PIPE,
                                         stderr=subprocess.STDOUT, text=True,
                                         env={**os.environ, "LC_ALL": "C"})
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self._process.stdout:
            show("service", line.removesuffix("\n"))
            self.lines.append(line.removesuffix("\n"))


def wait_until(condition):
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


def write_settings(protocol):
    """The example settings, with this demo's collector and events."""
    text = (EXAMPLES / "ov-event-logger.ini").read_text()
    for key, value in {"allowed": " ".join(event[0] for event in EVENTS), "protocol": protocol,
                       "host": ADDRESS[0], "port": ADDRESS[1]}.items():
        text = re.sub(f"^{key}=.*$", f"{key}={value}", text, flags=re.MULTILINE)
    before = SETTINGS.stat().st_mtime if SETTINGS.exists() else 0
    SETTINGS.write_text(text)
    if SETTINGS.stat().st_mtime < before + 1:  # the service looks at whole seconds
        os.utime(SETTINGS, (before + 1, before + 1))


def raise_events():
    """Raises the events and returns the lines that must arrive."""
    expected = []
    for event, values, priority, rest in EVENTS:
        command = [LOGGER, "-e", event, *([values] if values is not None else [])]
        printed = subprocess.run(command, check=True, capture_output=True, text=True).stdout
        show("client", f"{' '.join(command[1:])}   ->   {printed.strip()}")
        seconds = int(printed.rsplit(" ", 1)[1])
        date = time.strftime("%b %d %H:%M:%S", time.localtime(seconds))
        expected.append(f"<{priority}> {date} {socket.gethostname()}({ADDRESS[0]}): {event} {rest}")
    return expected


def demonstrate(collector, protocol):
    start = len(collector.received)
    expected = [(protocol, line) for line in raise_events()]
    wait_until(lambda: len(collector.received) - start >= len(expected))
    arrived = collector.received[start:]
    if arrived == expected:
        show("demo", f"all {len(expected)} lines arrived exactly over {protocol}")
        return True
    show("demo", f"FAILED over {protocol}: expected {expected}, arrived {arrived}")
    return False


def listening(service, times):
    return wait_until(
        lambda: service.lines.count("Server is listening on /tmp/ov-events") >= times)


def stay_up():
    outer = os.environ["OV_SANDBOX_PID"]
    user = "sudo nsenter"
    if pathlib.Path("/proc/self/uid_map").read_text().split()[1] != "0":
        user = "nsenter --user --preserve-credentials"
    show("demo", "staying up; Ctrl-C ends it. To raise an event from another terminal:")
    show("demo", f"{user} --mount --net --uts --pid --target "
                 f"$(cat /proc/{outer}/task/{outer}/children) {LOGGER} -e perf01 97,80")
    try:
        while True:
            time.sleep(3600)
    except KeyboardInterrupt:
        pass


def main():
    DEFINITIONS.write_bytes((EXAMPLES / "ov-event-def.csv").read_bytes())
    write_settings("syslog-udp")
    collector = Collector()
    service = Service()
    passed = listening(service, 1) and demonstrate(collector, "UDP")
    write_settings("syslog-tcp")
    passed = listening(service, 2) and demonstrate(collector, "TCP") and passed
    if "--keep" in sys.argv:
        stay_up()
    return 0 if passed else 1


sys.exit(main())
