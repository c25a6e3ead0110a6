"""What the programs of the fleet run on: machines that share one Debian, and a network.

Everything here needs the sandbox of scripts/sandbox around it, and ends with it."""

import contextlib
import pathlib
import re
import shutil
import signal
import subprocess
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = REPOSITORY / "examples"
RESULTS = REPOSITORY / "build/fleet"
DEBIAN = RESULTS / "root"
STATE = RESULTS / "run"  # on the disk, as it would be
sys.path.insert(0, str(REPOSITORY / "tests/system"))

from support.polling import wait_until  # noqa: E402

BRIDGE = "fleet"
DEADLINE = 30  # seconds for a program to start or to stop

# In mount, host name and IPC spaces of its own.
ENTER = """
hostname "$1"
root=$2
mount -t tmpfs tmpfs "$root/$3"
shift 3
exec chroot "$root" "$@"
"""


def run(*command, **kwargs):
    """Runs a command that must succeed, and returns what it prints."""
    result = subprocess.run(command, capture_output=True, text=True, **kwargs)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: {result.stdout}{result.stderr}")
    return result.stdout


def make_bridge():
    run("ip", "link", "add", BRIDGE, "type", "bridge")
    run("ip", "link", "set", BRIDGE, "up")


def make_network(name, address):
    """A network space with one interface, which is plugged into the bridge."""
    commands = f"""
        netns add {name}
        link add {name} type veth peer name eth0 netns {name}
        link set {name} master {BRIDGE} up
    """
    run("ip", "-batch", "-", input=re.sub("^ +", "", commands.strip(), flags=re.MULTILINE))
    run("ip", "-n", name, "-batch", "-", input=f"""link set lo up
address add {address}/16 dev eth0
link set eth0 up
""")


def make_root(name):
    """A Debian whose changes are its own. Returns where it is."""
    folder = STATE / name
    for part in ("upper", "work", "root"):
        (folder / part).mkdir(parents=True)
    run("mount", "-t", "overlay", "overlay", "-o", f"lowerdir={DEBIAN},upperdir={folder}/upper,"
        f"workdir={folder}/work", folder / "root")
    return folder / "root"


def start(network, root, *command, private="dev/shm", **kwargs):
    """Starts a program on the Debian at `root`, with an empty folder `private`. The process that is
    returned becomes the program."""
    return subprocess.Popen(
        ["nsenter", f"--net=/run/netns/{network}", "unshare", "--mount", "--uts", "--ipc",
         "--propagation", "private", "sh", "-ec", ENTER, "sh", network, root, private, *command],
        env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "TZ": "UTC", "LC_ALL": "C.UTF-8"},
        stdin=subprocess.DEVNULL, **kwargs)


class Machine:
    """A name, a Debian and a network of its own."""

    def __init__(self, name, address):
        self.name = name
        self.address = address
        self.root = make_root(name)
        make_network(name, address)

    def path(self, path):
        return self.root / path.lstrip("/")

    def install(self, source, path):
        shutil.copy(EXAMPLES / source, self.path(path))

    def listens(self, port):
        """Whether a program listens on the TCP port."""
        return bool(run("ip", "netns", "exec", self.name, "ss", "-Hltn", f"sport = :{port}"))


class Program:
    """A program of a machine, which may be stopped, killed and started again. `is_ready` tells
    whether it does its work."""

    def __init__(self, name, machine, command, is_ready, usage):
        self.name = name
        self._machine = machine
        self._command = command
        self._is_ready = is_ready
        self._usage = usage
        self._process = None

    def start(self):
        with (STATE / f"{self.name}.log").open("ab") as log:
            self._process = start(self._machine.name, self._machine.root, *self._command,
                                  stdout=log, stderr=log)
        self._usage.watch(self.name, self._process.pid)
        wait_until(self._is_ready, f"{self.name} to be ready", DEADLINE)

    def end(self, how=signal.SIGTERM):
        self._usage.take_sample()
        self._process.send_signal(how)
        self._process.wait(DEADLINE)

    def kill(self):
        """At once, and so without a sample of its use. Returns its status."""
        self._process.kill()
        return self._process.wait(DEADLINE)

    def is_running(self):
        return self._process.poll() is None


@contextlib.contextmanager
def paused(processes):
    for process in processes:
        process.send_signal(signal.SIGSTOP)
    try:
        yield
    finally:
        for process in processes:
            process.send_signal(signal.SIGCONT)
