"""Thin clients: real services, each with a network, a name and a /tmp of its own."""

import itertools
import re
import selectors
import shutil
import socket
import subprocess
import threading
import time

from conservation import Sent
from lines import parse
from machines import DEADLINE, EXAMPLES, make_network, make_root, run, start, wait_until
from support.records import make_record

LOGGER = "/usr/bin/ov-event-logger"
SETTINGS = "/etc/ov-event-logger/ov-event-logger.ini"
DEFINITIONS = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv"
RUN_SERVICE = f"ln -s {SETTINGS} /tmp/ && exec {LOGGER} -s"
MONITORS = ("usbDevMon", "vmwSigninMon", "agentConnMon", "perfMon")
PASS_PAUSE = 3  # seconds between two passes of a service
SENT, LISTENING = b">>> ", b"Server is listening on /tmp/ov-events"


class Client:
    def __init__(self, name, address, root, usage):
        self.name = name
        self.address = address
        self.sent = []
        self.complaints = []  # on standard error, with their times
        self.is_listening = False
        self.lock = threading.Lock()
        self.heartbeats = itertools.count(1)
        make_network(name, address)
        self.process = start(name, root, "sh", "-ec", RUN_SERVICE, private="tmp",
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        usage.watch("services", self.process.pid)

    def take_line(self, line):
        """A line of standard output."""
        if line.startswith(SENT):
            text = line.removeprefix(SENT).decode()
            parsed = parse(text)
            if parsed is None:
                raise RuntimeError(f"{self.name} sent a line of another form: {text}")
            self.sent.append(Sent(parsed, time.time()))
        elif line == LISTENING:
            self.is_listening = True

    def take_complaint(self, line):
        self.complaints.append((time.time(), line.decode()))

    def run_client(self, identifier, values):
        run("nsenter", f"--target={self.process.pid}", "--mount", "--uts", "--root", "--wd=/",
            LOGGER, "-e", identifier, values, timeout=DEADLINE)

    def send_record(self, identifier, values):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            connection.connect(f"/proc/{self.process.pid}/root/tmp/ov-events")
            connection.sendall(make_record(identifier, values))

    def set_link(self, state):
        """Plugs the cable in ("up") or out ("down"), at the other end."""
        run("ip", "link", "set", self.name, state)


class Reader(threading.Thread):
    """Reads what all services print, and notes when."""

    def __init__(self):
        super().__init__(daemon=True)
        self.failures = []
        self._selector = selectors.DefaultSelector()
        self._rests = {}

    def add(self, client):
        for stream, take in ((client.process.stdout, client.take_line),
                             (client.process.stderr, client.take_complaint)):
            self._selector.register(stream, selectors.EVENT_READ, take)
            self._rests[stream] = b""

    def run(self):
        while True:
            for key, _ in self._selector.select():
                try:
                    self._read(key.fileobj, key.data)
                except (RuntimeError, UnicodeDecodeError) as failure:
                    self.failures.append(str(failure))

    def _read(self, stream, take):
        content = stream.read1(65536)
        if not content:
            self._selector.unregister(stream)
        *lines, self._rests[stream] = (self._rests[stream] + content).split(b"\n")
        for line in lines:
            take(line)


def start_clients(number, executable, relay, usage):
    """Returns the clients, once each of them listens, and their reader."""
    root = make_root("clients")
    for path in (SETTINGS, DEFINITIONS):
        (root / path.lstrip("/")).parent.mkdir(parents=True)
    shutil.copy(executable, root / LOGGER.lstrip("/"))
    shutil.copy(EXAMPLES / "ov-event-def.csv", root / DEFINITIONS.lstrip("/"))
    (root / SETTINGS.lstrip("/")).write_text(settings(relay))
    reader = Reader()
    reader.start()
    clients = []
    for index in range(1, number + 1):
        client = Client(f"c{index:03}", f"10.90.{1 + index // 250}.{1 + index % 250}", root, usage)
        reader.add(client)
        clients.append(client)
        time.sleep(PASS_PAUSE / number)  # their passes are spread out, as in a fleet
    wait_until(lambda: all(client.is_listening for client in clients), "every service to listen",
               2 * DEADLINE)
    return clients, reader


def settings(relay):
    """The recommended ones, with this relay and every event of the example definitions, and without
    monitors: no event is raised but by the fleet."""
    text = (EXAMPLES / "collector/ov-event-logger.ini").read_text()
    identifiers = re.findall("^([a-z]+[0-9]{2}),", (EXAMPLES / "ov-event-def.csv").read_text(),
                             re.MULTILINE)
    for key, value in {"host": relay, "allowed": " ".join(identifiers),
                       **dict.fromkeys(MONITORS, 0)}.items():
        text, count = re.subn(f"^{key}=.*$", f"{key}={value}", text, flags=re.MULTILINE)
        if count != 1:
            raise RuntimeError(f"the example settings have {count} lines with {key}=")
    return text
