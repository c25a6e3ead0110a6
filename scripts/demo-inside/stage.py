"""What all acts of the demo use: the service, a collector, the settings, and what is shown."""

import os
import pathlib
import re
import socket
import subprocess
import threading
import time

LOGGER = "/run/kept/ov-event-logger"
EXAMPLES = pathlib.Path("/run/kept/examples")
DEFINITIONS = pathlib.Path("/usr/lib/orvan/ov-event-logger/ov-event-def.csv")
SETTINGS = pathlib.Path("/tmp/ov-event-logger.ini")
ADDRESS = ("127.0.0.1", 5514)
DEADLINE = 9.0  # seconds; two pauses of a monitor or of the service, and then some

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

    def wait_for_cycle(self, number):
        """Waits until the service listens with the settings written for its `number`th cycle."""
        return wait_until(
            lambda: self.lines.count("Server is listening on /tmp/ov-events") >= number)


def wait_until(condition):
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


def write_settings(**values):
    """The example settings, with this demo's collector and these values."""
    text = (EXAMPLES / "ov-event-logger.ini").read_text()
    for key, value in {"host": ADDRESS[0], "port": ADDRESS[1], **values}.items():
        text = re.sub(f"^{key}=.*$", f"{key}={value}", text, flags=re.MULTILINE)
    before = SETTINGS.stat().st_mtime if SETTINGS.exists() else 0
    SETTINGS.write_text(text)
    if SETTINGS.stat().st_mtime < before + 1:  # the service looks at whole seconds
        os.utime(SETTINGS, (before + 1, before + 1))


def line_of(priority, seconds, event, rest):
    """The line of an event at that time (seconds since the epoch), as it must arrive."""
    date = time.strftime("%b %d %H:%M:%S", time.localtime(seconds))
    return f"<{priority}> {date} {socket.gethostname()}({ADDRESS[0]}): {event} {rest}"
