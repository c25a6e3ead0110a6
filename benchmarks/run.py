"""Runs the benchmarks inside scripts/sandbox and prints each figure beside its floor and target.

Each group of measurements is a function that yields rows. Processor times come from the kernel's
per-thread account in nanoseconds (/proc/PID/task/TID/schedstat); where a figure and its floor are
repeated, they take turns and the least of each counts, since what else runs only ever adds."""

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
DEFINITIONS = pathlib.Path("/usr/lib/orvan/ov-event-logger/ov-event-def.csv")
SERVICE_SOCKET = pathlib.Path("/tmp/ov-events")
PORT = 5514

INTAKE_EVENTS = 20_000
BATCH_EVENTS = 100_000
DEFINITION_ROWS = 100_000
ROUNDS = 3
STARTS = 30
CLIENTS_A_PAUSE = 8  # the service takes in eleven, then sleeps for up to a second
CLIENT_PAUSES = 12
IDLE_SECONDS = 60

LINE_BYTES = 80
EVENT_ID = "perf01"
SHORT_VALUES = "95,80"

# "at most" the target holds for the ratio to the floor, or for the figure if there is no floor or
# the target is absolute.
Row = collections.namedtuple("Row", "name figure floor target unit absolute", defaults=("", False))


# ---- the surroundings of the service

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


@contextlib.contextmanager
def service(short_idle=False, tz=None):
    """A service that accepts clients, its output thrown away."""
    environment = {"PATH": os.environ["PATH"]}
    if tz:
        environment["TZ"] = tz
    if short_idle:
        environment["LD_PRELOAD"] = str(PROGRAMS / "libshort_idle.so")
    SERVICE_SOCKET.unlink(missing_ok=True)
    with running(SERVICE, "-s", env=environment, stdout=subprocess.DEVNULL) as process:
        wait_until(lambda: len(threads(process.pid)) == 2, "the threads of the service")
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


# ---- the measurements

def intake():
    """The main thread while it takes in events at full speed; delivery is held back."""
    write_example_definitions()
    write_settings()
    set_loopback("down")
    figures, floors = [], []
    for _ in range(ROUNDS):
        with service(short_idle=True) as pid:
            raise_events(100)  # what happens once only
            before = cpu_nanoseconds(pid, pid)
            raise_events(INTAKE_EVENTS)
            figures.append(cpu_nanoseconds(pid, pid) - before)
        floors.append(intake_floor())
    set_loopback("up")
    yield Row("intake, processor time per event", min(figures) / INTAKE_EVENTS / 1000,
              min(floors) / INTAKE_EVENTS / 1000, 1.3, "us")


def intake_floor():
    path = pathlib.Path("/tmp/floor")
    with running(PROGRAMS / "intake_floor", path, str(INTAKE_EVENTS), stdout=subprocess.PIPE) \
            as floor:
        wait_until(path.exists, "the floor to listen")
        time.sleep(0.1)
        raise_events(INTAKE_EVENTS, path=path)
        result = int(floor.stdout.readline())
    path.unlink()
    return result


def delivery():
    """The processing thread while it formats, prints and sends one batch."""
    write_example_definitions()
    for protocol, most in (("udp", 2.0), ("tcp", 5.0)):
        write_settings(protocol=f"syslog-{protocol}")
        for tz in ("UTC", None):
            figures, floors = delivery_rounds(protocol, tz)
            yield Row(f"delivery over {protocol}, TZ {'set' if tz else 'unset'}, per event",
                      min(figures) / BATCH_EVENTS / 1000, min(floors) / BATCH_EVENTS / 1000,
                      most, "us")


def delivery_rounds(protocol, tz):
    figures, floors = [], []
    with collector(protocol) as sink, service(short_idle=True, tz=tz) as pid:
        thread = threads(pid)[1]
        for round_number in range(ROUNDS):
            set_loopback("down")
            time.sleep(3.1)  # a pass may have begun with the address
            raise_events(BATCH_EVENTS)
            wait_until_taken_in(pid)
            before = cpu_nanoseconds(pid, thread)
            set_loopback("up")
            wait_until_delivered(pid, thread)
            figures.append(cpu_nanoseconds(pid, thread) - before)
            if round_number == 0:
                line = sink.stdout.readline().decode().rstrip("\n")
            floors.append(number_from("send_floor", protocol, PORT, BATCH_EVENTS, line))
    return figures, floors


def memory():
    """What one batch takes: waiting, while it is delivered, and afterwards."""
    write_example_definitions()
    write_settings(formatString="[DATE] [NAME] [ID] [VAL]")
    values = "x" * (LINE_BYTES - len("Nov 21 12:00:00 tc-0042 perf01 "))
    with collector("udp") as sink, service(short_idle=True) as pid:
        thread = threads(pid)[1]
        raise_events(1, values)
        line = sink.stdout.readline().decode().rstrip("\n")
        if len(line) != LINE_BYTES:
            sys.exit(f"the line is not of {LINE_BYTES} bytes: {line}")
        set_loopback("down")
        time.sleep(3.1)
        begin = resident(pid, "Rss")
        raise_events(BATCH_EVENTS, values)
        wait_until_taken_in(pid)
        queued = resident(pid, "Rss")
        pathlib.Path(f"/proc/{pid}/clear_refs").write_text("5")  # the peak begins anew
        set_loopback("up")
        wait_until_delivered(pid, thread)
        peak = status(pid, "VmHWM")
        end = resident(pid, "Rss")
    yield Row("memory per queued event", (queued - begin) * 1024 / BATCH_EVENTS, None, 176, "bytes")
    yield Row("more at the peak of its delivery", (peak - queued) * 1024 / BATCH_EVENTS, None, 300,
              "bytes")
    yield Row("kept after the batch", end - begin, None, 1024, "kB")


def idle():
    """A minute of a service without monitors, after a few deliveries."""
    write_example_definitions()
    write_settings()
    with collector("udp") as sink, service() as pid:
        read_mapped_files(pid)
    floor_arguments = ["/tmp/idle-floor", SETTINGS]
    with collector("udp") as sink, service() as pid, \
            running(PROGRAMS / "idle_floor", *floor_arguments) as floor:
        for values in ("95,80", "96,80", "97,80"):
            raise_events(1, values)
        sink.stdout.readline()
        time.sleep(4)
        before, floor_before = account(pid), account(floor.pid)
        time.sleep(IDLE_SECONDS - 0.004)  # what taking the accounts takes
        after, floor_after = account(pid), account(floor.pid)
        yield Row("idle, wake-ups a minute", after.wakeups - before.wakeups,
                  floor_after.wakeups - floor_before.wakeups, 80, absolute=True)
        yield Row("idle, processor time a minute", (after.cpu - before.cpu) / 1e6,
                  (floor_after.cpu - floor_before.cpu) / 1e6, 10, "ms", absolute=True)
        yield Row("idle, resident", resident(pid, "Rss"), None, 11264, "kB")
        yield Row("idle, private (dirty)", resident(pid, "Private_Dirty"), None, 1024, "kB")


Account = collections.namedtuple("Account", "wakeups cpu")


def account(pid):
    return Account(sum(status(pid, "voluntary_ctxt_switches", thread) for thread in threads(pid)),
                   sum(cpu_nanoseconds(pid, thread) for thread in threads(pid)))


def read_mapped_files(pid):
    """The worst case: of a file that is in the page cache, the kernel maps more than was asked."""
    maps = pathlib.Path(f"/proc/{pid}/maps").read_text()
    for path in set(re.findall(r"(/\S+)$", maps, re.MULTILINE)):
        pathlib.Path(path).read_bytes()


def start():
    """How long the programs take, by the clock; loading definitions, by processor time."""
    write_example_definitions()
    write_settings()
    yield from client_start()
    yield from service_start()
    yield from definitions()


def client_start():
    figures, floors = [], []
    with service():
        for _ in range(CLIENT_PAUSES):
            time.sleep(1.1)
            for _ in range(CLIENTS_A_PAUSE):
                figures.append(number_from("time_run", "", SERVICE, "-e", EVENT_ID, SHORT_VALUES))
                floors.append(number_from("time_run", "", PROGRAMS / "empty_program"))
    yield Row("client run", min(figures) / 1e6,
              min(floors) / 1e6, 1.1, "ms")


def service_start():
    figures, floors = [], []
    for _ in range(STARTS):
        SERVICE_SOCKET.unlink(missing_ok=True)
        figures.append(number_from("time_run", "Server is listening", SERVICE, "-s"))
        floors.append(number_from("time_run", "", PROGRAMS / "empty_program"))
    yield Row("service start to listening", min(figures) / 1e6,
              min(floors) / 1e6, 2, "ms")


def definitions():
    write_many_definitions()
    figures, floors = [], []
    for _ in range(STARTS):
        figures.append(number_from("load_definitions", stream="stderr"))
        floors.append(number_from("read_definitions", stream="stderr"))
    yield Row(f"loading {DEFINITION_ROWS:,} definitions, processor time",
              min(figures) / 1e6, min(floors) / 1e6, 3, "ms")


# ---- the table

def show(row):
    """Prints the row and returns whether its target is met."""
    ratio = row.figure / row.floor if row.floor else None
    of_figure = row.absolute or ratio is None
    met = (row.figure if of_figure else ratio) <= row.target
    target = f"{row.target:g} {row.unit if of_figure else 'x'}"
    print(f"{row.name:44} {row.figure:10.2f} {'' if ratio is None else format(row.floor, '.2f'):>9}"
          f" {row.unit:5} {'' if ratio is None else format(ratio, '.2f'):>6} {target:>10}"
          f"  {'met' if met else 'MISSED'}", flush=True)
    return met


def main():
    groups = [globals()[name] for name in
              sys.argv[2:] or ("intake", "delivery", "memory", "idle", "start")]
    print(f"{'':44} {'figure':>10} {'floor':>9} {'':5} {'ratio':>6} {'at most':>10}")
    met = [show(row) for group in groups for row in group()]
    sys.exit(0 if all(met) else 1)


if __name__ == "__main__":
    main()
