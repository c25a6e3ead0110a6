"""Runs the benchmarks inside scripts/sandbox and prints each figure beside its floor and target.
Each group of measurements is a function that yields rows."""

import collections
import contextlib
import shutil
import socket
import sys
import time

from sandboxed import (
    DEFINITIONS, EVENT, EXAMPLES, EXECUTABLE, FLOOR_SOCKET, PORT, PROGRAMS, SERVICE_SOCKET,
    collector, fill_page_cache, hold_events, kilobytes, milliseconds_of_run, peak_kilobytes,
    printed_number, processor_time, raise_events, reset_peak, service, service_floor, set_loopback,
    thread_ids, wait_until_delivered, wakeups_and_time, write_idle_scripts, write_settings)

INTAKE_EVENTS = 20_000
BATCH_EVENTS = 100_000
DEFINITION_ROWS = 100_000
ROUNDS = 3
STARTS = 200
LOADS = 20
MINUTE = 59.99  # seconds; a little less, so that no look of the next minute counts
HOUR = 3600
LINE_BYTES = 80

# With a floor the target is the most times that the figure may be of it; otherwise it is the most
# that the figure may be.
Row = collections.namedtuple("Row", "name figure unit target floor", defaults=(None,))


def least(rounds, *measures):
    """The least result of each measure. They take turns, and what else runs only ever adds."""
    return [min(results) for results in zip(*([measure() for measure in measures]
                                              for _ in range(rounds)))]


# ---- the measurements

def intake():
    """The main thread while it takes in events at full speed; delivery is held back."""
    write_settings()
    set_loopback("down")

    def microseconds(program, path):
        with program() as process:
            raise_events(100, path=path)  # what happens once only
            before = processor_time(process.pid, process.pid)
            raise_events(INTAKE_EVENTS, path=path)
            return (processor_time(process.pid, process.pid) - before) / INTAKE_EVENTS / 1e3
    figure, floor = least(ROUNDS, lambda: microseconds(service, SERVICE_SOCKET),
                          lambda: microseconds(service_floor, FLOOR_SOCKET))
    set_loopback("up")
    yield Row("intake, processor time per event", figure, "us", 1.3, floor)


def delivery():
    """The processing thread while it formats, prints and sends one batch."""
    for protocol, most in (("udp", 2), ("tcp", 5)):
        write_settings(protocol=f"syslog-{protocol}")
        for name, zone in (("TZ set", {"TZ": "UTC"}), ("TZ unset", {})):
            with collector(protocol) as sink, service(**zone) as process:
                raise_events(1)
                line = sink.stdout.readline().decode().rstrip("\n")
                figure, floor = least(
                    ROUNDS, lambda: deliver(process) / 1e3,
                    lambda: printed_number("send_floor", protocol, PORT, BATCH_EVENTS, line))
            yield Row(f"delivery over {protocol.upper()}, {name}, per event",
                      figure / BATCH_EVENTS, "us", most, floor / BATCH_EVENTS)


def deliver(process):
    """Delivers a batch and returns the nanoseconds that it took."""
    thread = thread_ids(process)[1]
    hold_events()
    raise_events(BATCH_EVENTS)
    before = processor_time(process.pid, thread)
    set_loopback("up")
    wait_until_delivered(process, thread)
    return processor_time(process.pid, thread) - before


def memory():
    """What one batch takes: waiting, while it is delivered, and afterwards."""
    write_settings(formatString="[DATE] [NAME] [ID] [VAL]")
    event = (EVENT[0], "x" * (LINE_BYTES - len("Nov 21 12:00:00 tc-0042 perf01 ")))
    with collector("udp") as sink, service() as process:
        raise_events(1, *event)
        line = sink.stdout.readline().decode().rstrip("\n")
        if len(line) != LINE_BYTES:
            sys.exit(f"the line is not of {LINE_BYTES} bytes: {line}")
        hold_events()
        begin = kilobytes(process, "rss")
        raise_events(BATCH_EVENTS, *event)
        queued = kilobytes(process, "rss")
        reset_peak(process)
        set_loopback("up")
        wait_until_delivered(process, thread_ids(process)[1])
        peak = peak_kilobytes(process)
        end = kilobytes(process, "rss")
    yield Row("memory per queued event", (queued - begin) * 1024 / BATCH_EVENTS, "bytes", 176)
    yield Row("more at the peak of its delivery", (peak - queued) * 1024 / BATCH_EVENTS, "bytes",
              300)
    yield Row("kept after the batch", end - begin, "kB", 1024)


def idle():
    """A minute of a service without monitors, after a few deliveries."""
    write_settings()
    with warm_service() as process, service_floor() as floor:
        (wakeups, figure), (_, floor_figure) = minute(process, floor)
        yield Row("idle, wake-ups a minute", wakeups, "", 80)
        yield Row("idle, processor time a minute", figure, "ms", 1.5, floor_figure)
        yield Row("idle, resident", kilobytes(process, "rss"), "kB", 9216)
        yield Row("idle, private (dirty)", kilobytes(process, "private_dirty"), "kB", 819)


def monitors(pause=None):
    """A minute of a service with all four monitors, whose scripts do nothing; after a pause, that
    minute once more."""
    write_idle_scripts()
    write_settings(usbDevMon=1, vmwSigninMon=1, agentConnMon=1, perfMon=1)
    with warm_service(threads=6) as process:
        yield from monitored_minute("monitors", process)
        if pause:
            time.sleep(pause)
            yield from monitored_minute("monitors, later", process)


def monitored_minute(name, process):
    (wakeups, figure), = minute(process)
    yield Row(f"{name}, wake-ups a minute", wakeups, "", 420)
    yield Row(f"{name}, processor time a minute", figure, "ms", 50)
    yield Row(f"{name}, resident", kilobytes(process, "rss"), "kB", 12288)
    yield Row(f"{name}, private (dirty)", kilobytes(process, "private_dirty"), "kB", 1228)
    yield Row(f"{name}, descriptors", process.num_fds(), "", 5)


def hour():
    """The minute with the monitors, and the same after an hour."""
    yield from monitors(HOUR)


@contextlib.contextmanager
def warm_service(threads=2):
    """A service that has delivered some events."""
    with service(threads) as process:
        fill_page_cache(process)
    with collector("udp") as sink, service(threads) as process:
        for _ in range(3):
            raise_events(1)
        sink.stdout.readline()
        time.sleep(4)
        yield process


def minute(*processes):
    """The wake-ups of each process and its processor time in milliseconds."""
    before = [wakeups_and_time(process) for process in processes]
    time.sleep(MINUTE)
    after = [wakeups_and_time(process) for process in processes]
    return [(wakeups - wakeups_before, (used - used_before) / 1e6)
            for (wakeups, used), (wakeups_before, used_before) in zip(after, before)]


def start():
    """How long the programs take, by the clock; loading definitions, by processor time."""
    write_settings()
    yield from client_start()
    yield from service_start()
    yield from definitions()


def client_start():
    syslog = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    syslog.bind("/tmp/log")
    write_line = shutil.which("logger"), "-u", "/tmp/log", " ".join(EVENT)

    def logger_milliseconds():
        duration = milliseconds_of_run(*write_line)
        syslog.recv(1024)
        return duration
    with service():
        client, empty, logger = least(
            STARTS, lambda: milliseconds_of_run(EXECUTABLE, "-e", *EVENT),
            lambda: milliseconds_of_run(PROGRAMS / "empty_program"), logger_milliseconds)
    yield Row("client run", client, "ms", 1.1, empty)
    yield Row("client run against logger -u", client, "ms", 1.7, logger)


def service_start():
    def until_listening():
        SERVICE_SOCKET.unlink(missing_ok=True)
        return milliseconds_of_run(EXECUTABLE, "-s", until="Server is listening")
    figure, floor = least(STARTS, until_listening,
                          lambda: milliseconds_of_run(PROGRAMS / "empty_program"))
    yield Row("service start to listening", figure, "ms", 2, floor)


def definitions():
    """The main thread of a service that starts, with many definitions less one with none."""
    rows = "".join(f"ev{number:05}, USB, USB device {number} plugged in, notice\n"
                   for number in range(DEFINITION_ROWS))

    def milliseconds(text):
        DEFINITIONS.write_text(text)
        with service() as process:
            return processor_time(process.pid, process.pid) / 1e6

    def floor_milliseconds():
        DEFINITIONS.write_text(rows)
        return printed_number("read_definitions", DEFINITIONS) / 1e3
    many, none, floor = least(LOADS, lambda: milliseconds(rows), lambda: milliseconds(""),
                              floor_milliseconds)
    yield Row(f"loading {DEFINITION_ROWS:,} definitions, processor time", many - none, "ms", 6,
              floor)


# ---- the table

def show(row):
    """Prints the row and returns whether its target is met."""
    ratio = row.figure / row.floor if row.floor else None
    met = (ratio or row.figure) <= row.target
    print(f"{row.name:44} {row.figure:10.2f} {f'{row.floor:.2f}' if ratio else '':>9}"
          f" {row.unit:5} {f'{ratio:.2f}' if ratio else '':>6}"
          f" {f'{row.target:g} ' + ('x' if ratio else row.unit):>10}  {'met' if met else 'MISSED'}",
          flush=True)
    return met


def main():
    names = sys.argv[2:] or ("intake", "delivery", "memory", "idle", "monitors", "start")
    print(f"{'':44} {'figure':>10} {'floor':>9} {'':5} {'ratio':>6} {'at most':>10}")
    met = []
    for name in names:
        DEFINITIONS.write_bytes((EXAMPLES / DEFINITIONS.name).read_bytes())
        met += [show(row) for row in globals()[name]()]
    sys.exit(0 if all(met) else 1)


if __name__ == "__main__":
    main()
