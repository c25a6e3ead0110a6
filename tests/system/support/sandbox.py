"""A sandbox as scripts/sandbox makes it, held open so that a test can run programs in it, see its
files and open sockets in its network."""

import ctypes
import os
import pathlib
import re
import socket
import subprocess
import threading

from .conservation import Ledger, check
from .process import Process
from .polling import DEADLINE, wait_until
from .witness import CollectorSocket

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
CLONE_NEWNET = 0x40000000

DEFINITIONS = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv"
FALLBACK_DEFINITIONS = "/tmp/ov-event-def.csv"
SETTINGS = "/tmp/ov-event-logger.ini"
SERVICE_SOCKET = "/tmp/ov-events"
RECORD_SIZE = 144
PASSED_ON = ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LLVM_PROFILE_FILE")
SANITIZER_REPORT = re.compile(rb"(WARNING|ERROR): \w+Sanitizer: |: runtime error: ")


class Sandbox:
    def __init__(self, keep=()):
        """`keep` names further files and folders to copy to /run/kept/ in the sandbox."""
        executable = pathlib.Path(os.environ["OV_EXECUTABLE"])
        faults = pathlib.Path(os.environ["OV_FAULTS_LIBRARY"])
        self.executable = f"/run/kept/{executable.name}"
        self.faults = f"/run/kept/{faults.name}"
        self._processes = []
        self.ledger = Ledger()
        self._holder = subprocess.Popen(
            [REPOSITORY / "scripts/sandbox",
             *(argument for path in (executable, faults, *keep) for argument in ("--keep", path)),
             "sh", "-c", "echo ready; exec cat"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if self._holder.stdout.readline() != b"ready\n":
            raise RuntimeError("the sandbox did not start")
        self._init = child_of(self._holder.pid)

    def close(self):
        """Ends everything in the sandbox, in which the law of conservation must hold."""
        try:
            check(self.ledger)
        finally:
            self.end()
        self.expect_no_sanitizer_report()

    def expect_no_sanitizer_report(self):
        for process in self._processes:
            for output in process.stderr_bytes, process.stdout_bytes:  # which may be the same
                assert not SANITIZER_REPORT.search(output), output.decode(errors="replace")

    def end(self):
        """The same, without a question."""
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
        self.ledger.add(process, self._definitions(), environment.get("OV_FAULTS", ""))
        return process

    def _definitions(self):
        """The definitions that a service which starts now finds, if they are a plain file."""
        for path in map(self.path, (DEFINITIONS, FALLBACK_DEFINITIONS)):
            if path.exists():
                return path.read_bytes() if path.is_file() else None
        return b""

    def faulty(self, **values):
        """The environment of a program that runs with the fault library (see faults.c):
        faulty(FAULTS="bind:1:98")."""
        return {"LD_PRELOAD": self.faults,
                **{f"OV_{name}": str(value) for name, value in values.items()}}

    def eager(self):
        """The environment of a service that looks for clients and at its settings a thousand
        times a second, so that a test which waits for that waits less."""
        return self.faulty(DELAYS="usleep:1+:1", FAULTS="usleep:1+:4")

    def hasty(self, **values):
        """The environment of a service that pauses for a tenth of a second at most, wherever it
        would pause for seconds, so that the polls and passes of a test take less time."""
        faults = ",".join(["sleep:1+:4,usleep:1+:4", *values.pop("FAULTS", "").split()])
        delays = ",".join(["sleep:1+:100,usleep:1+:10", *values.pop("DELAYS", "").split()])
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
        self.ledger.clients_have_a_service = False
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
        self.ledger.address_may_be_missing = True

    def release_events(self):
        """Gives the address back: the next pass delivers what waits as one batch."""
        self.sh("ip link set lo up")
        self.ledger.address_may_be_missing = False

    def send_batch(self, service, *records):
        """Hands the service records that one pass is to deliver, oldest first. Needs a service
        that has found no address since it was started."""
        before = service.lines.count("> Received event")
        for record in records:
            self.send_bytes(record)
        service.wait_for_line("> Received event", count=before + len(records))
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
            result.append(CollectorSocket(self.ledger, family, kind))

        thread = threading.Thread(target=make)
        thread.start()
        thread.join()
        return result[0]


def child_of(pid):
    """The one child of a process, once it has one."""
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children")
    return int(wait_until(lambda: children.read_text().split(), f"a child of process {pid}")[0])
