"""Runs the benchmarks inside scripts/sandbox and prints each figure beside its floor and target.

Each group of measurements is a function that yields rows. Where a figure and its floor are
repeated, they take turns and the least of each counts, since what else runs only ever adds."""

import collections
import contextlib
import pathlib
import subprocess
import sys
import time

from surroundings import (
    DEFINITION_ROWS, EVENT_ID, PLATFORM, PORT, PROGRAMS, SERVICE, SERVICE_SOCKET, SETTINGS,
    SHORT_VALUES, account, collector, cpu_nanoseconds, descriptors, number_from, raise_events,
    read_mapped_files, resident, running, service, set_loopback, status, threads, wait_until,
    wait_until_delivered, wait_until_taken_in, write_example_definitions, write_many_definitions,
    write_scripts, write_settings)

INTAKE_EVENTS = 20_000
BATCH_EVENTS = 100_000
ROUNDS = 3
STARTS = 30
CLIENTS_A_PAUSE = 8  # the service takes in eleven, then sleeps for up to a second
CLIENT_PAUSES = 12
MINUTE = 60
HOUR = 3600

LINE_BYTES = 80

# "at most" the target holds for the ratio to the floor, or for the figure if there is no floor or
# the target is absolute.
Row = collections.namedtuple("Row", "name figure floor target unit absolute", defaults=("", False))


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
    with service() as pid:
        read_mapped_files(pid)
    with collector("udp") as sink, service() as pid, \
            running(PROGRAMS / "idle_floor", "/tmp/idle-floor", SETTINGS) as floor:
        raise_a_few_events(sink)
        yield from minute("idle", pid, floor.pid, 80, 10)
        yield Row("idle, resident", resident(pid, "Rss"), None, 11264, "kB")
        yield Row("idle, private (dirty)", resident(pid, "Private_Dirty"), None, 1024, "kB")


def monitors():
    """A minute of a service with all four monitors, whose scripts do nothing."""
    with monitoring_service() as (pid, floor):
        yield from monitored_minute("monitors", pid, floor)


def hour():
    """The same minute once more, after an hour."""
    with monitoring_service() as (pid, floor):
        begin = time.monotonic()
        yield from monitored_minute("monitors", pid, floor)
        time.sleep(HOUR - (time.monotonic() - begin))
        yield from monitored_minute("monitors, after an hour", pid, floor)


@contextlib.contextmanager
def monitoring_service():
    write_example_definitions()
    write_scripts()
    write_settings(usbDevMon=1, vmwSigninMon=1, agentConnMon=1, perfMon=1)
    with service(expected_threads=6) as pid:
        read_mapped_files(pid)
    with collector("udp") as sink, service(expected_threads=6) as pid, \
            running(PROGRAMS / "idle_floor", "/tmp/monitors-floor", SETTINGS, PLATFORM) as floor:
        raise_a_few_events(sink)
        yield pid, floor.pid


def raise_a_few_events(sink):
    for values in ("95,80", "96,80", "97,80"):
        raise_events(1, values)
    sink.stdout.readline()
    time.sleep(4)


def monitored_minute(name, pid, floor):
    yield from minute(name, pid, floor, 420, 45)
    yield Row(f"{name}, resident", resident(pid, "Rss"), None, 12288, "kB")
    yield Row(f"{name}, private (dirty)", resident(pid, "Private_Dirty"), None, 1228, "kB")
    yield Row(f"{name}, descriptors", descriptors(pid), None, 5, "")


def minute(name, pid, floor, most_wakeups, most_milliseconds):
    """Of the service, and at the same time of a floor that keeps the same pauses."""
    before, floor_before = account(pid), account(floor)
    time.sleep(MINUTE - 0.004)  # what taking the accounts takes
    after, floor_after = account(pid), account(floor)
    yield Row(f"{name}, wake-ups a minute", after.wakeups - before.wakeups,
              floor_after.wakeups - floor_before.wakeups, most_wakeups, absolute=True)
    yield Row(f"{name}, processor time a minute", (after.cpu - before.cpu) / 1e6,
              (floor_after.cpu - floor_before.cpu) / 1e6, most_milliseconds, "ms", absolute=True)


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
              sys.argv[2:] or ("intake", "delivery", "memory", "idle", "monitors", "start")]
    print(f"{'':44} {'figure':>10} {'floor':>9} {'':5} {'ratio':>6} {'at most':>10}")
    met = [show(row) for group in groups for row in group()]
    sys.exit(0 if all(met) else 1)


if __name__ == "__main__":
    main()
