"""Lets a service work for some minutes among clients, monitors, reloads and a collector that fails
it in every way; checks the invariant and the resources of the service. See scripts/soak."""

import collections
import itertools
import pathlib
import random
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "system"))

from support.invariant import ServiceOutput, Violation, lost_lines, pieces_of  # noqa: E402
from support.polling import wait_until  # noqa: E402
from support.process import SENDTO  # noqa: E402
from support.sandbox import Sandbox  # noqa: E402

from clients import RealClient, Writer  # noqa: E402
from collector import AWAY, READS, RESETS, STALLS, Collector  # noqa: E402
from scene import (ALLOWED, LONG_LINES, PATIENCE, PORTS, RESTING, TEMPLATES,  # noqa: E402
                   Machine, set_up)

SHORT_RUN = 2  # minutes; below it the service's pauses are shortened
LOOK = 0.1  # seconds between two looks at what has grown long
REFUSED = "connect: Connection refused"
THREADS = 6  # the main one, the processing one, four monitors
SOCKETS = 2  # for clients and for datagrams

# Without files. Seen to grow by less than half of that, for what the allocator keeps elsewhere than
# before; 64 bytes lost for each event are more, also in a run of 20 seconds.
MOST_GROWTH = 96  # kB


class Soak:
    def __init__(self, sandbox, minutes, seed):
        self._sandbox = sandbox
        self._random = random.Random(seed)
        is_short = minutes < SHORT_RUN
        self._mood_seconds = 0.5 if is_short else 8.0
        self._end = time.monotonic() + 60 * minutes
        self._cycle = 1
        self.failing = []  # the ranges of lines that may be lost
        self.reloads = 0
        self.stalls = 0
        set_up(sandbox)
        self._machine = Machine(sandbox)
        self.collector = Collector(sandbox, PORTS)
        self.collector.start()
        sandbox.write_settings(**RESTING, cycle=1)
        self.service = sandbox.start_listening_service(
            env=sandbox.short_pauses() if is_short else None)
        pause = 0.1 if is_short else 0.5
        self._real = [RealClient(sandbox, f"real{number}", f"app0{number}", pause)
                      for number in (1, 2)]
        self._writers = [Writer(sandbox, f"writer{number}", seed + number, pause)
                         for number in range(3)]
        for writer in self._writers:
            writer.start()

    @property
    def refusals(self):
        return self.service.error_lines.count(REFUSED)

    @property
    def sent(self):
        return [record for client in (*self._real, *self._writers) for record in client.sent]

    def work(self):
        """One round of everything, to warm up; then at least one more, until the time is over.
        Returns the memory of the service after the first and after the last."""
        acts = (self._over_udp, self._over_tcp, self._stalled, self._refused)
        first = None
        self._set_quiet(False)
        for number, act in enumerate(itertools.cycle(acts)):
            if number >= 2 * len(acts) and time.monotonic() > self._end:
                return first, self._rest()
            if number == len(acts):
                first = self._rest()
                self._set_quiet(False)
            act()
            self._machine.change()

    def _over_udp(self):
        self._reload("syslog-udp")
        self._let_collector_be(READS, AWAY, READS)

    def _over_tcp(self):
        self._reload("syslog-tcp")
        self._let_collector_be(READS, RESETS, STALLS, RESETS, READS)

    def _stalled(self):
        """The collector stops reading in the midst of a batch."""
        self._reload("syslog-tcp", **LONG_LINES)
        self._change_mood(STALLS)
        wait_until(lambda: any(call == SENDTO for call, _ in self.service.waiting_in),
                   "a batch to be held up", PATIENCE, LOOK)
        # The first is cut off for certain.
        self._let_collector_be(STALLS, READS if self.stalls % 2 else RESETS, READS)
        self.stalls += 1

    def _refused(self):
        """The collector is away, also while the settings change."""
        self._reload("syslog-tcp")
        self._change_mood(AWAY)
        before = self.refusals
        wait_until(lambda: self.refusals > before, "a refusal", PATIENCE, LOOK)
        self._write_settings("syslog-tcp")
        time.sleep(self._mood_seconds)
        self._change_mood(READS)
        self._wait_for_cycle()

    def _let_collector_be(self, *moods):
        for mood in moods:
            self._change_mood(mood)
            time.sleep(self._mood_seconds)

    def _change_mood(self, mood):
        """While the collector does not read, lines may be lost: those of the batch before it began,
        and all that are printed until it ends."""
        output = self.service.stdout_bytes
        if mood != READS:
            begin = output[:output.rfind(b"> Process events")].count(b"\n>>> ")
            self.failing.append(range(begin, sys.maxsize))
        self.collector.be(mood)
        if mood == READS and self.failing:
            printed = self.service.stdout_bytes.count(b"\n>>> ")
            self.failing = [range(one.start, min(one.stop, printed)) for one in self.failing]

    def _reload(self, protocol, **values):
        self._write_settings(protocol, **values)
        self._wait_for_cycle()

    def _write_settings(self, protocol, **values):
        self._cycle += 1
        self._sandbox.write_settings(**{
            **RESTING, "protocol": protocol, "port": self._random.choice(PORTS),
            "formatString": f'"{self._random.choice(TEMPLATES)}"',
            "allowed": self._random.choice(ALLOWED), **values}, cycle=self._cycle)

    def _wait_for_cycle(self):
        # Printed once the settings are read: it would be too early to write others before that.
        settings = b"\ncycle: %d\n" % self._cycle
        wait_until(lambda: settings in self.service.stdout_bytes, f"cycle {self._cycle}", PATIENCE,
                   LOOK)
        self.reloads += 1

    def _set_quiet(self, is_quiet):
        quiet = self._sandbox.path("/tmp/quiet")
        quiet.touch() if is_quiet else quiet.unlink(missing_ok=True)
        for writer in self._writers:
            writer.may_write.clear() if is_quiet else writer.may_write.set()

    def _rest(self):
        """Lets everything arrive, and waits until no descriptor, thread or child is left over.
        Returns the kilobytes of memory that the service has to itself."""
        self._change_mood(READS)
        self._reload(**RESTING)
        self._set_quiet(True)
        wait_until(lambda: all(client.is_idle for client in (*self._real, *self._writers)),
                   "every client to be idle", PATIENCE, LOOK)
        wait_until(lambda: not ServiceOutput(self.service.stdout_bytes).waiting,
                   "a line for each event", PATIENCE, 5 * LOOK)
        wait_until(lambda: not self.service.children and (
            self._descriptors, self.service.threads) == (SOCKETS, THREADS),
            lambda: f"{SOCKETS} descriptors and one a refusal, and {THREADS} threads; there are "
            f"{self._descriptors} and {self.service.threads}", PATIENCE)
        return sum(mapping.anonymous + mapping.swap
                   for mapping in self.service.facts.memory_maps()) >> 10

    @property
    def _descriptors(self):
        return len(self.service.descriptors) - self.refusals


def check(soak, first, last):
    """Checks the run, and prints what became of the events."""
    output = ServiceOutput(soak.service.stdout_bytes)
    received = soak.collector.received
    lost = lost_lines([output], [received])
    rows = {
        "events that clients were told to have sent": len(soak.sent),
        "events received": sum(output.records.values()),
        "lines": len(output.lines),
        "lines delivered, cut at line feeds": len(received),
        "lines lost, cut at line feeds": sum(lost.values()),
        "reloads": soak.reloads,
        "connections reset": soak.collector.resets,
        "connections refused": soak.refusals,
        "batches held up": soak.stalls,
        "kB of its own memory, first, last": f"{first} {last}",
    }
    for name, value in rows.items():
        print(f"{name:44}{value:>16}")
    if 0 in rows.values():
        raise Violation("the run met no failure of some kind, so it tells nothing of it")
    if output.records != collections.Counter(soak.sent):
        raise Violation("what was sent is not what was taken in")
    unexpected = lost - collections.Counter(
        piece for number, line in enumerate(output.lines) for piece in pieces_of(line)
        if any(number in failing for failing in soak.failing))
    if unexpected:
        raise Violation(f"lost while the collector read: {list(unexpected)[:5]}")
    if last - first > MOST_GROWTH:
        raise Violation(f"{last - first} kB more of its own memory than after one round")


def main():
    minutes = float(sys.argv[1])
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else int(time.time())
    print(f"{minutes:g} minutes, seed {seed}", flush=True)
    sandbox = Sandbox()
    try:
        soak = Soak(sandbox, minutes, seed)
        check(soak, *soak.work())
    except AssertionError as failure:
        sys.exit(f"The invariant did not hold: {str(failure)[:4000]}")
    finally:
        sandbox.end()
    print("The invariant held.")


main()
