"""A sandbox as scripts/sandbox makes it, held open so that a test can run programs in it, see its
files and open sockets in its network."""

import ctypes
import os
import pathlib
import re
import socket
import subprocess
import threading

import psutil

from .invariant import Violation, verify
from .polling import DEADLINE, wait_until
from .process import Process
from .records import make_record

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
CLONE_NEWNET = 0x40000000

DEFINITIONS = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv"
FALLBACK_DEFINITIONS = "/tmp/ov-event-def.csv"
SETTINGS = "/tmp/ov-event-logger.ini"
SERVICE_SOCKET = "/tmp/ov-events"
RECORD_SIZE = 144
CYCLE = "Starting event server..."
ROW = "perf01,CPU,CPU usage is high,warn"
UDP = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": "[ID] [VAL]"}
TCP = {"protocol": "syslog-tcp"}
PASSED_ON = ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS")
SANITIZER_REPORT = re.compile(rb"(WARNING|ERROR): \w+Sanitizer: |: runtime error: ")


class Sandbox:
    """Where a test's programs run. `collectors` hold what arrived (see invariant.py)."""

    def __init__(self, keep=()):
        """`keep` names further files and folders to copy to /run/kept/ in the sandbox."""
        executable = pathlib.Path(os.environ["OV_EXECUTABLE"])
        faults = pathlib.Path(os.environ["OV_FAULTS_LIBRARY"])
        self.executable = f"/run/kept/{executable.name}"
        self.faults = f"/run/kept/{faults.name}"
        self.collectors = []
        self.expected_losses = []
        self.has_invariant = True
        self.settings = {}  # as they were last written
        self._processes = []
        self._holder = subprocess.Popen(
            [REPOSITORY / "scripts/sandbox",
             *(argument for path in (executable, faults, *keep) for argument in ("--keep", path)),
             "sh", "-c", "echo ready; exec cat"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if self._holder.stdout.readline() != b"ready\n":
            raise RuntimeError("the sandbox did not start")
        self._init = psutil.Process(self._holder.pid).children()[0].pid

    def close(self):
        """Ends everything in the sandbox, in which the invariant must hold."""
        try:
            if self.has_invariant:
                self.expect_invariant()
        finally:
            self.end()
        self.expect_no_sanitizer_report()

    def expect_invariant(self, deadline=DEADLINE):
        """Gives what is on its way the time to arrive."""
        result = None

        def holds():
            nonlocal result
            try:
                self._verify()
            except Violation as violation:
                result = violation
                return False
            return True
        wait_until(holds, lambda: str(result)[:4000], deadline, growth=1.5)

    def _verify(self):
        services = [process for process in self._processes
                    if process.stdout_bytes.startswith(b"Starting service...\n")]
        clients = [process.stdout_bytes for process in self._processes
                   if process.status == 0 and process.stdout_bytes.startswith(b"Event [")]
        received = [collector.received for collector in self.collectors]
        verify([service.stdout_bytes for service in services], received, self.expected_losses,
               clients, not all(service.is_running() for service in services))

    def expect_no_sanitizer_report(self):
        for process in self._processes:
            for output in process.stderr_bytes, process.stdout_bytes:  # which may be the same
                assert not SANITIZER_REPORT.search(output), output.decode(errors="replace")

    def end(self):
        """Ends everything in the sandbox, without a check."""
        for process in self._processes:
            process.kill()
        self._holder.stdin.close()  # with the first process of the sandbox go all others
        self._holder.wait()
        self._holder.stdout.close()

    def path(self, inside):
        """Where a path of the sandbox is found from outside."""
        return pathlib.Path(f"/proc/{self._init}/root{inside}")

    def start(self, *command, env=None, prelude=None, **kwargs):
        """Starts a program in the sandbox, with nothing in its environment but PATH, `env` and what
        steers a build for measurements. The `prelude` is what a shell does before it becomes the
        program."""
        environment = {"PATH": os.environ["PATH"],
                       **{name: os.environ[name] for name in PASSED_ON if name in os.environ},
                       **(env or {})}
        shell = ["sh", "-c", f'{prelude}; exec "$@"', "sh"] if prelude else []
        # env(1) sets the environment: a library to preload exists in the sandbox only, and is
        # meant for the program and not for nsenter.
        process = Process(
            ["nsenter", "--target", str(self._init), "--mount", "--net", "--uts", "--pid", "--root",
             "--wd=/tmp", "--", *shell, "env", "-i",
             *(f"{name}={value}" for name, value in environment.items()), *command], **kwargs)
        self._processes.append(process)
        return process

    def faulty(self, **values):
        """The environment of a program that runs with the fault library (see faults.c):
        faulty(FAULTS="bind:1:98")."""
        return {"LD_PRELOAD": self.faults,
                **{f"OV_{name}": str(value) for name, value in values.items()}}

    def short_pauses(self, **values):
        """The environment of a service that pauses for a tenth of a second between two passes,
        checks or tries to connect."""
        faults = ",".join(["sleep:1+:4", *values.pop("FAULTS", "").split()])
        delays = ",".join(["sleep:1+:100", *values.pop("DELAYS", "").split()])
        return self.faulty(FAULTS=faults, DELAYS=delays, **values)

    def run(self, *command, **kwargs):
        """Runs a program of the sandbox to its end."""
        process = self.start(*command, **kwargs)
        process.wait()
        return process

    def sh(self, script):
        """Runs shell commands that set the sandbox up; they must succeed."""
        process = self.run("sh", "-ec", script)
        assert process.status == 0, process.stderr
        return process

    def start_service(self, **kwargs):
        return self.start(self.executable, "-s", **kwargs)

    def start_listening_service(self, **kwargs):
        """A service that has come to its accept loop."""
        service = self.start_service(**kwargs)
        service.wait_for_cycle(1)
        return service

    def start_forwarding_service(self, *rows, env=None, held=False, **settings):
        """A listening service that forwards "perf01", or what these rows and settings say. One that
        is `held` finds no address, so that its events wait."""
        if held:
            self.hold_events()
        self.write_definitions(*(rows or [ROW]))
        self.write_settings(**{**UDP, **settings})
        return self.start_listening_service(env=env)

    def reload(self, service, cycle, **changes):
        """Changes settings and waits for the service's `cycle`th cycle with them. Its settings are
        those that were written before, but for these."""
        self.write_settings(**{**self.settings, **changes, "cycle": cycle})
        service.wait_for_line(f"cycle: {cycle}")
        service.wait_for_cycle(cycle)

    def raise_event(self, values, identifier="perf01"):
        """Sends the service a record of the time 100."""
        self.send_bytes(make_record(identifier, values, 100))

    def start_client(self, *arguments, **kwargs):
        return self.start(self.executable, "-e", *arguments, **kwargs)

    def send(self, *arguments):
        """Raises one event with a client, which must succeed."""
        client = self.run(self.executable, "-e", *arguments)
        assert client.status == 0, client.stderr
        return client

    def write_definitions(self, *rows, path=DEFINITIONS):
        content = rows[0] if rows and isinstance(rows[0], bytes) else "".join(
            row + "\n" for row in rows).encode()
        self.path(path).write_bytes(content)

    def write_settings(self, **values):
        """Writes the settings file anew, with a modification time that no earlier one had."""
        self.settings = values
        self.write_settings_bytes(
            "".join(f"{key}={value}\n" for key, value in values.items()).encode())

    def write_settings_bytes(self, content):
        settings = self.path(SETTINGS)
        modified = settings.stat().st_mtime + 2 if settings.exists() else None
        new = settings.with_suffix(".new")
        new.write_bytes(content)
        if modified is not None:
            os.utime(new, (modified, modified))
        new.rename(settings)

    def connect(self, deadline=DEADLINE):
        """A connection to the service, from a client of the test's own."""
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        wait_until(lambda: connection.connect_ex(str(self.path(SERVICE_SOCKET))) == 0,
                   "a connection to the service", deadline)
        return connection

    def bind_service_socket(self):
        """A socket of the test's own in the place of the service's, for clients to connect to
        once the test lets it listen."""
        server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        server.settimeout(DEADLINE)
        server.bind(str(self.path(SERVICE_SOCKET)))
        return server

    def send_bytes(self, content):
        """Sends bytes to the service on a connection of their own."""
        with self.connect() as connection:
            connection.sendall(content)

    def hold_events(self):
        """Takes the loopback interface, and with it the service's address, away: events wait."""
        self.sh("ip link set lo down")

    def release_events(self):
        """Gives the address back: the next pass delivers what waits as one batch."""
        self.sh("ip link set lo up")

    def send_batch(self, service, *values):
        """Raises events that one pass is to deliver, in a service that is held."""
        before = service.lines.count("> Received event")
        for value in values:
            self.raise_event(value)
        service.wait_for_line("> Received event", count=before + len(values))
        self.release_events()

    def add_interface(self, name, address, carrier=True):
        """Adds a network interface that is up; without carrier it is not running."""
        self.sh(f"ip link add {name} type veth peer name {name}-peer; "
                f"ip address add {address} dev {name}; ip link set {name} up")
        if carrier:
            self.sh(f"ip link set {name}-peer up")
        state = " state UP " if carrier else "DOWN "  # the kernel takes a moment to settle it
        wait_until(lambda: state in self.sh(f"ip link show {name}").stdout.split("\n")[0],
                   f"interface {name} to be in{state}")

    def set_host_names(self, *rows):
        """Lets these rows of /etc/hosts be all that resolves names, whatever the machine uses."""
        self.path("/tmp/hosts").write_text("".join(f"{row}\n" for row in rows))
        self.sh("rm -f /etc/hosts /etc/nsswitch.conf; mv /tmp/hosts /etc/hosts;"
                "echo 'hosts: files' > /etc/nsswitch.conf")

    def network_socket(self, family, kind):
        """A collector's socket in the sandbox's network. Sockets belong to the network in which
        they were made, so only the thread that makes it moves there."""
        result = []

        def make():
            libc = ctypes.CDLL(None, use_errno=True)
            with open(f"/proc/{self._init}/ns/net", "rb") as network:
                if libc.setns(network.fileno(), CLONE_NEWNET) != 0:
                    raise OSError(ctypes.get_errno(), "setns")
            result.append(socket.socket(family, kind))

        thread = threading.Thread(target=make)
        thread.start()
        thread.join()
        return result[0]
