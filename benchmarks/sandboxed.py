"""What the benchmarks run inside scripts/sandbox, and what the kernel knows of a process."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import time

import psutil

BUILD = pathlib.Path(sys.argv[1])
EXAMPLES = pathlib.Path(__file__).parents[1] / "examples"
PROGRAMS = BUILD / "benchmarks"
EXECUTABLE = BUILD / "src/ov-event-logger"

SETTINGS = pathlib.Path("/tmp/ov-event-logger.ini")
PLATFORM = pathlib.Path("/usr/lib/orvan/ov-event-logger")
DEFINITIONS = PLATFORM / "ov-event-def.csv"
SERVICE_SOCKET = pathlib.Path("/tmp/ov-events")
FLOOR_SOCKET = pathlib.Path("/tmp/floor")
PORT = 5514
EVENT = ("perf01", "95,80")


def write_settings(**changes):
    """The example settings, with a collector on the loopback interface."""
    text = (EXAMPLES / SETTINGS.name).read_text()
    for key, value in {"host": "127.0.0.1", "port": PORT, "allowed": "perf01", **changes}.items():
        text = re.sub(f"(?m)^{key}=.*$", f"{key}={value}", text)
    SETTINGS.write_text(text)


def write_idle_scripts():
    """Scripts for the monitors that do nothing."""
    for name in ("perf", "usb-devices", "vmw-signin-status"):
        script = PLATFORM / f"{name}.sh"
        script.write_text("#!/bin/sh\n")
        script.chmod(0o755)


def set_loopback(state):
    """Without this interface the service has no address, and events wait."""
    subprocess.run(["ip", "link", "set", "lo", state], check=True)


def hold_events():
    set_loopback("down")
    time.sleep(3.1)  # a pass of the service may have begun with the address


def wait_until(condition, what):
    deadline = time.monotonic() + 60
    while not condition():
        if time.monotonic() > deadline:
            sys.exit(f"waited in vain for {what}")
        time.sleep(0.02)


@contextlib.contextmanager
def running(*command, threads=1, env=None, stdout=subprocess.DEVNULL):
    """A program that has come to have this number of threads. It is killed in the end."""
    with psutil.Popen(command, env=env, stdout=stdout, stderr=subprocess.DEVNULL) as process:
        try:
            wait_until(lambda: process.num_threads() == threads, f"{threads} threads of {command}")
            yield process
        finally:
            process.kill()


def service(threads=2, **environment):
    SERVICE_SOCKET.unlink(missing_ok=True)
    environment["PATH"] = os.environ["PATH"]
    return running(EXECUTABLE, "-s", threads=threads, env=environment)


def service_floor():
    return running(PROGRAMS / "service_floor", threads=2)


@contextlib.contextmanager
def collector(protocol):
    with running(PROGRAMS / "collector", protocol, str(PORT), stdout=subprocess.PIPE) as process:
        if process.stdout.readline() != b"ready\n":
            sys.exit("the collector did not start")
        yield process


def raise_events(count, *event, path=SERVICE_SOCKET):
    subprocess.run([PROGRAMS / "event_source", path, str(count), *(event or EVENT)], check=True)


def printed_number(program, *arguments):
    command = [PROGRAMS / program, *map(str, arguments)]
    return int(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)


def milliseconds_of_run(*command, until=()):
    """By the clock, to the end of a program, or to a line that begins with a text."""
    output, end = os.pipe()
    start = time.perf_counter()
    pid = os.posix_spawn(command[0], command, os.environ,
                         file_actions=[(os.POSIX_SPAWN_DUP2, end, 1)])
    os.close(end)
    with open(output) as lines:
        seen = any(line.startswith(until) for line in lines)
        duration = time.perf_counter() - start
        os.kill(pid, signal.SIGKILL)
    if os.waitpid(pid, 0)[1] != 0 and not seen:
        sys.exit(f"{command} failed")
    return duration * 1000


# ---- what the kernel knows of a process

def thread_ids(process):
    """The main thread first, and then by age."""
    return sorted(thread.id for thread in process.threads())


def processor_time(pid, thread):
    """Of a thread, in nanoseconds."""
    return int(pathlib.Path(f"/proc/{pid}/task/{thread}/schedstat").read_text().split()[0])


def wakeups_and_time(process):
    """How often threads of a process went to sleep, and their processor time in nanoseconds."""
    threads = thread_ids(process)
    return (sum(psutil.Process(thread).num_ctx_switches().voluntary for thread in threads),
            sum(processor_time(process.pid, thread) for thread in threads))


def wait_until_delivered(process, thread):
    """Until the processing thread, having worked, has slept for half a second."""
    def used_in(seconds):
        before = processor_time(process.pid, thread)
        time.sleep(seconds)
        return processor_time(process.pid, thread) - before
    wait_until(lambda: used_in(0.05) > 5_000_000, "the delivery to begin")
    wait_until(lambda: used_in(0.5) == 0, "the delivery to end")


def kilobytes(process, kind):
    """Its memory of a kind ("rss", "private_dirty"), as the kernel counts page by page."""
    return sum(getattr(area, kind) for area in process.memory_maps()) // 1024


def reset_peak(process):
    pathlib.Path(f"/proc/{process.pid}/clear_refs").write_text("5")


def peak_kilobytes(process):
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"VmHWM:\s+(\d+)", status)[1])


def fill_page_cache(process):
    """With the files that a process maps: the kernel then maps more of them than is asked for."""
    for area in process.memory_maps():
        if area.path.startswith("/"):
            pathlib.Path(area.path).read_bytes()
