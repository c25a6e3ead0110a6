"""The faults that a run can have, by name. Each has a beginning and an end, says afterwards which
lines may be lost or doubled by which sentence, and whether it was to be seen at all."""

import math
import signal
import time

from clients import PASS_PAUSE
from conservation import LOST, Allowance, Rule
from machines import paused, wait_until

UNREAD = Rule(LOST, "docs/RELIABILITY.md",
              "the connection breaks before the collector has read the line")
KILLED = Rule(LOST, "docs/FLEET.md",
              "A relay that is killed loses what it has in memory, and what it has not read yet")

# Seconds. A line is sent a little after it was printed, and its print is noted a little late.
SLACK = 0.5
MOST_UNREAD = 10  # seconds that a line may wait in a storm until the relay has read it
RESTART = 0.5  # seconds until a killed program is started again
AT_ONCE = 5  # events of each client


def send_at_once(fleet):
    """Holds the services until the pause between two passes is over for each of them, so that all
    of them make their next passes at the same moments. Each has some events to send then. Returns
    the time from which on that is so."""
    with paused([client.process for client in fleet.clients]):
        time.sleep(PASS_PAUSE + SLACK)
    for client in fleet.clients:
        fleet.raiser.raise_records(client, AT_ONCE)
    return time.time()


class Fault:
    """`begin` and `end` are called with some time between them if the fault `lasts`."""
    name = ""
    lasts = True

    def __init__(self, fleet):
        self.fleet = fleet
        self.began = self.broken = self.mended = self.ended = None

    def begin(self):
        self.began = time.time()
        self.break_it()
        self.broken = time.time()

    def end(self):
        self.mended = time.time()
        self.mend_it()
        self.ended = time.time()

    def break_it(self):
        raise NotImplementedError

    def mend_it(self):
        pass

    def allowances(self):
        return []

    def lines_had_to_wait(self, clients):
        """Whether some lines of these clients were sent while the fault lasted, and each of them
        was stored after it."""
        committed = {row.line: row.committed for row in self.fleet.stored}
        sent = [one.line for client in clients for one in client.sent
                if self.broken + SLACK < one.at < self.mended]
        return sent and all(committed.get(line, math.inf) > self.mended for line in sent)

    def was_seen(self):
        raise NotImplementedError


class CentreAway(Fault):
    name = "centre-away"

    def break_it(self):
        self.fleet.centre.end()

    def mend_it(self):
        self.fleet.centre.start()

    def was_seen(self):
        return self.lines_had_to_wait(self.fleet.clients)


class DatabaseStopped(Fault):
    name = "database-stopped"

    def break_it(self):
        self.fleet.database.end(signal.SIGINT)  # a fast stop: sessions are ended

    def mend_it(self):
        self.fleet.database.start()

    def was_seen(self):
        return self.lines_had_to_wait(self.fleet.clients)


class RelayKilled(Fault):
    """The relay is killed in the midst of lines from every client."""
    name = "relay-killed"
    lasts = False

    def break_it(self):
        self.began = send_at_once(self.fleet)
        wait_until(lambda: any(client.sent and client.sent[-1].at > self.began
                               for client in self.fleet.clients), "a line", interval=0.001)
        self.status = self.fleet.relay.kill()
        self.killed = time.time()
        time.sleep(RESTART)
        self.fleet.relay.start()

    def allowances(self):
        return [Allowance(KILLED, self.killed - MOST_UNREAD, self.killed + SLACK)]

    def was_seen(self):
        return self.status == -signal.SIGKILL


class RelayAway(Fault):
    name = "relay-away"

    def break_it(self):
        self.fleet.relay.end()

    def mend_it(self):
        self.fleet.relay.start()

    def allowances(self):
        return [Allowance(UNREAD, self.began - MOST_UNREAD, self.broken + SLACK)]

    def was_seen(self):
        return any("Connection refused" in line and self.began < at < self.ended + SLACK
                   for client in self.fleet.clients for at, line in client.complaints)


class NetworkCut(Fault):
    """Every fifth client loses its network."""
    name = "network-cut"

    def break_it(self):
        self.cut = self.fleet.clients[::5]
        for client in self.cut:
            client.set_link("down")

    def mend_it(self):
        for client in self.cut:
            client.set_link("up")

    def was_seen(self):
        return self.lines_had_to_wait(self.cut)


class AllAtOnce(Fault):
    """Every client sends at the same moment, as after a power cut."""
    name = "all-at-once"
    lasts = False

    def break_it(self):
        self.released = send_at_once(self.fleet)

    def was_seen(self):
        """Whether nine of ten clients sent within one second."""
        sent = sorted((one.at, client.name) for client in self.fleet.clients for one in client.sent
                      if one.at > self.released)
        return any(len({name for at, name in sent if begin <= at <= begin + 1})
                   >= 0.9 * len(self.fleet.clients) for begin, _ in sent)


ALL = {fault.name: fault for fault in (CentreAway, DatabaseStopped, RelayKilled, RelayAway,
                                       NetworkCut, AllAtOnce)}
