"""A Debian 12 with the package, which boots in a container with systemd as its first process."""

import ctypes
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time

import psutil

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY / "tests/system"))

from support.polling import wait_until  # noqa: E402

ROOT = REPOSITORY / "build/machine/root"
[PACKAGE] = (REPOSITORY / "build/package").glob("ov-event-logger_*_amd64.deb")
NSPAWN = ["systemd-nspawn", "--quiet", "--register=no", "--keep-unit"]
SETTINGS = "/etc/ov-event-logger/ov-event-logger.ini"
DEFINITIONS = "/etc/ov-event-logger/ov-event-def.csv"
PORT = 5514
UNIT = "ov-event-logger.service"
ALLOWED = ("perf01 perf02 perf03 sys01 sys02 sys03 sys05 sys06 sys07 sys10 "
           "sec03 sec04 net02 net03")
BOOT = 60  # seconds
CLONE_NEWNET = 0x40000000


class Collector:
    """Receives datagrams within the machine's network from before the machine has one."""

    def __init__(self, leader):
        self.lines = []
        self._is_open = True
        self._ready = threading.Event()
        self._thread = threading.Thread(target=self._run, args=[leader], daemon=True)
        self._thread.start()
        assert self._ready.wait(BOOT)

    def _run(self, leader):
        with open(f"/proc/{leader}/ns/net") as network:
            assert ctypes.CDLL(None).setns(network.fileno(), CLONE_NEWNET) == 0
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
            receiver.bind(("0.0.0.0", PORT))
            receiver.settimeout(0.1)
            self._ready.set()
            while self._is_open:
                try:
                    self.lines.append(receiver.recv(65536).decode())
                except socket.timeout:
                    pass

    def close(self):
        self._is_open = False
        self._thread.join()

    def wait_for(self, text, count=1, deadline=BOOT):
        """The first line with this text, once there are `count` of them."""
        def found():
            return [line for line in self.lines if text in line][:count]
        wait_until(lambda: len(found()) == count, lambda: f"{count} x {text!r} in {self.lines}",
                   deadline)
        return found()[0]


def first_process(nspawn):
    """The machine's, once it is more than a helper of nspawn's."""
    for child in nspawn.children():
        try:
            if "systemd" in child.exe() and "nspawn" not in child.exe():
                return child.pid
        except psutil.Error:
            pass
    return None


class Machine:
    """What is changed on it is gone with it."""

    def __init__(self, folder, package=PACKAGE):
        self._folder = folder
        self._process = None
        self.collector = None
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", folder], check=True)
        for name in ("upper", "work", "root"):
            (folder / name).mkdir()
        self.root = folder / "root"
        layers = f"lowerdir={ROOT},upperdir={folder}/upper,workdir={folder}/work"
        subprocess.run(["mount", "-t", "overlay", "overlay", "-o", layers, self.root], check=True)
        if package:
            self.install(package)
            self.write_settings()

    def path(self, path):
        return self.root / path.lstrip("/")

    def install(self, package):
        shutil.copy(package, self.path("/root/package.deb"))
        return self.sh("dpkg --install /root/package.deb")

    def write_settings(self, **changes):
        settings = {"host": "127.0.0.1", "port": PORT, "allowed": ALLOWED, **changes}
        self.path(SETTINGS).write_text("".join(f"{key}={value}\n"
                                               for key, value in settings.items()))

    def boot(self):
        """Waits until the start is over."""
        self._process = subprocess.Popen(
            [*NSPAWN, "-D", self.root, "--boot", "--private-network", "--console=pipe"],
            stdin=subprocess.DEVNULL, stdout=open(self._folder / "console", "wb"),
            stderr=subprocess.STDOUT)
        nspawn = psutil.Process(self._process.pid)
        self.leader = wait_until(lambda: first_process(nspawn), "the first process", BOOT)
        self.collector = Collector(self.leader)
        wait_until(lambda: self.run("systemctl is-system-running").stdout.strip() in
                   ("running", "degraded"), "the end of the start", BOOT, interval=0.2)

    def run(self, script):
        """Runs shell commands on the machine, booted or not."""
        if self._process is None:
            command = [*NSPAWN, "--pipe", "-D", self.root, "sh", "-c", script]
        else:
            command = ["nsenter", f"--target={self.leader}", "--all", "env", "-i",
                       "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                       "sh", "-c", script]
        return subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL)

    def sh(self, script):
        """Commands that must succeed. Returns what they print."""
        process = self.run(script)
        assert process.returncode == 0, (script, process.stdout, process.stderr)
        return process.stdout

    def show(self, name, unit=UNIT):
        return self.sh(f"systemctl show --property={name} --value {unit}").strip()

    def wait_until_active(self, deadline=BOOT):
        """The number of the service's process, once it listens."""
        def listening():
            return self.run("ss -xl | grep -q /tmp/ov-events").returncode == 0 and self.show(
                "MainPID")
        return wait_until(listening, lambda: self.sh(f"systemctl status {UNIT} || true"), deadline)

    def raise_event(self, values, event="sys10", user=1000):
        """As a user without rights."""
        return self.sh(f"setpriv --reuid={user} --regid={user} --clear-groups "
                       f"ov-event-logger -e {event} {values}")

    def raise_and_wait(self, values, **kwargs):
        self.raise_event(values, **kwargs)
        return self.collector.wait_for(f" - {values} ")

    def power_off(self):
        self.run("systemctl poweroff")
        self._process.wait(BOOT)
        self._process = None
        self.collector.close()

    def close(self):
        if self._process is not None:
            os.kill(self.leader, signal.SIGKILL)
            self._process.wait(BOOT)
            self.collector.close()
        for mount in (self.root, self._folder):
            deadline = time.monotonic() + BOOT
            while subprocess.run(["umount", mount], capture_output=True).returncode != 0:
                assert time.monotonic() < deadline, f"{mount} stays busy"
                time.sleep(0.1)
