"""The surroundings in which the benchmarks run the service, inside scripts/sandbox, and what the
kernel knows of a process. Processor times come from its per-thread account in nanoseconds
(/proc/PID/task/TID/schedstat)."""

import collections
import contextlib
import os
import pathlib
import re
import subprocess
import sys
import time

BUILD = pathlib.Path(sys.argv[1])
REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
PROGRAMS = BUILD / "benchmarks"
SERVICE = BUILD / "src/ov-event-logger"

SETTINGS = pathlib.Path("/tmp/ov-event-logger.ini")
PLATFORM = pathlib.Path("/usr/lib/orvan/ov-event-logger")
DEFINITIONS = PLATFORM / "ov-event-def.csv"
SERVICE_SOCKET = pathlib.Path("/tmp/ov-events")
PORT = 5514
DEFINITION_ROWS = 100_000
EVENT_ID = "perf01"
SHORT_VALUES = "95,80"


def write_settings(**changes):
    """The example settings, with every defined event allowed and a collector on the loopback."""
    values = {"host": "127.0.0.1", "port": PORT,
              "allowed": "perf01 perf02 perf03 sys05 sys06 sys07 sec03 sec04 net02 net03",
              **changes}
    text = (REPOSITORY / "examples/ov-event-logger.ini").read_text()
    for key, value in values.items():
        text = re.sub(f"(?m)^{key}=.*$", f"{key}={value}", text)
    SETTINGS.write_text(text)


def write_example_definitions():
    DEFINITIONS.write_bytes((REPOSITORY / "examples/ov-event-def.csv").read_bytes())


def write_many_definitions():
    DEFINITIONS.write_text("".join(
        f"ev{number:05}, USB, USB device {number} plugged in, notice\n"
        for number in range(DEFINITION_ROWS)))


def set_loopback(state):
    """Without it the service has no address, and events wait."""
    subprocess.run(["ip", "link", "set", "lo", state], check=True)


def wait_until(condition, what, seconds=60):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            sys.exit(f"waited {seconds} s in vain for {what}")
        time.sleep(0.02)


@contextlib.contextmanager
def running(*command, **kwargs):
    process = subprocess.Popen(command, **kwargs)
    try:
        yield process
    finally:
        process.kill()
        process.wait()
        if process.stdout:
            process.stdout.close()


def write_scripts():
    """Those of the monitors, doing nothing."""
    for name in ("perf", "usb-devices", "vmw-signin-status"):
        script = PLATFORM / f"{name}.sh"
        script.write_text("#!/bin/sh\n")
        script.chmod(0o755)


@contextlib.contextmanager
def service(short_idle=False, tz=None, expected_threads=2):
    """A service that accepts clients, its output thrown away."""
    environment = {"PATH": os.environ["PATH"]}
    if tz:
        environment["TZ"] = tz
    if short_idle:
        environment["LD_PRELOAD"] = str(PROGRAMS / "libshort_idle.so")
    SERVICE_SOCKET.unlink(missing_ok=True)
    with running(SERVICE, "-s", env=environment, stdout=subprocess.DEVNULL,
                 stderr=subprocess.DEVNULL) as process:
        wait_until(lambda: len(threads(process.pid)) == expected_threads,
                   "the threads of the service")
        yield process.pid


@contextlib.contextmanager
def collector(protocol):
    with running(PROGRAMS / "collector", protocol, str(PORT), stdout=subprocess.PIPE) as process:
        if process.stdout.readline() != b"ready\n":
            sys.exit("the collector did not start")
        yield process


def raise_events(count, values=SHORT_VALUES, path=SERVICE_SOCKET):
    subprocess.run([PROGRAMS / "event_source", path, str(count), EVENT_ID, values], check=True)


def number_from(program, *arguments, stream="stdout", **kwargs):
    """The number that a program of this folder prints."""
    run = subprocess.run([PROGRAMS / program, *map(str, arguments)], check=True,
                         capture_output=True, text=True, **kwargs)
    return int(getattr(run, stream))


# ---- what the kernel knows of a process

def threads(pid):
    """Thread identifiers, the main thread first and then by age."""
    return sorted(int(entry) for entry in os.listdir(f"/proc/{pid}/task"))


def cpu_nanoseconds(pid, thread):
    return int(pathlib.Path(f"/proc/{pid}/task/{thread}/schedstat").read_text().split()[0])


def status(pid, key, thread=None):
    path = f"/proc/{pid}/task/{thread}/status" if thread else f"/proc/{pid}/status"
    return int(re.search(rf"(?m)^{key}:\s+(\d+)", pathlib.Path(path).read_text()).group(1))


def resident(pid, key):
    """Kilobytes, as the kernel counts page by page."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(re.search(rf"(?m)^{key}:\s+(\d+)", text).group(1))


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def wait_until_taken_in(pid):
    """Until the main thread finds no more clients: it only idles."""
    def idle():
        before = cpu_nanoseconds(pid, pid)
        time.sleep(0.2)
        return cpu_nanoseconds(pid, pid) - before < 40_000_000
    wait_until(idle, "the end of the intake")


def wait_until_delivered(pid, thread):
    """Until the processing thread, having worked, has slept for half a second."""
    def used_in(seconds):
        before = cpu_nanoseconds(pid, thread)
        time.sleep(seconds)
        return cpu_nanoseconds(pid, thread) - before
    wait_until(lambda: used_in(0.05) > 5_000_000, "the delivery to begin")
    wait_until(lambda: used_in(0.5) == 0, "the delivery to end")


Account = collections.namedtuple("Account", "wakeups cpu")


def account(pid):
    return Account(sum(status(pid, "voluntary_ctxt_switches", thread) for thread in threads(pid)),
                   sum(cpu_nanoseconds(pid, thread) for thread in threads(pid)))


def read_mapped_files(pid):
    """The worst case: of a file that is in the page cache, the kernel maps more than was asked."""
    maps = pathlib.Path(f"/proc/{pid}/maps").read_text()
    for path in set(re.findall(r"(/\S+)$", maps, re.MULTILINE)):
        pathlib.Path(path).read_bytes()
