"""The faults that a run can have, by name. Each has a beginning and an end, says afterwards which
lines may be lost or doubled by which sentence, and whether it was to be seen at all."""

import signal
import time

from clients import PASS_PAUSE
from conservation import DOUBLED, LOST, Allowance, Rule
from machines import paused

UNREAD = Rule(LOST, "docs/RELIABILITY.md",
              "the connection breaks before the collector has read the line")
RELAY_MEMORY = Rule(LOST, "docs/FLEET.md", "TODO relay memory")
RESENT = Rule(DOUBLED, "docs/FLEET.md", "TODO resent")
COMMITTED = Rule(DOUBLED, "docs/FLEET.md", "TODO committed")

# Seconds. A line is sent a little after it was printed, and its print is noted a little late.
SLACK = 0.5
MOST_IN_MEMORY = 3  # seconds for which the relay holds a line while the centre is there
RESTART = 0.5  # seconds until a killed program is started again
AT_ONCE = 5  # events of each client


class Fault:
    """`begin` and `end` are called with some time between them if the fault `lasts`."""
    name = ""
    lasts = True

    def __init__(self, fleet):
        self.fleet = fleet
        self.began = self.ended = None

    def begin(self):
        self.began = time.time()
        self.break_it()

    def end(self):
        self.mend_it()
        self.ended = time.time()

    def break_it(self):
        raise NotImplementedError

    def mend_it(self):
        pass

    def allowances(self):
        return []

    def nothing_was_stored(self, hosts=None):
        """Whether no line of these hosts, or of any, was stored while the fault lasted."""
        return not any(self.began + 2 * SLACK < row.committed < self.ended - 2 * SLACK
                       and (hosts is None or row.line.host in hosts)
                       for row in self.fleet.stored)

    def was_seen(self):
        raise NotImplementedError


class CentreAway(Fault):
    name = "centre-away"

    def break_it(self):
        self.fleet.centre.end()

    def mend_it(self):
        self.fleet.centre.start()

    def allowances(self):
        return [Allowance(RESENT, self.began - SLACK - MOST_IN_MEMORY, self.began + SLACK)]

    def was_seen(self):
        return self.nothing_was_stored()


class DatabaseStopped(Fault):
    name = "database-stopped"

    def break_it(self):
        self.fleet.database.end(signal.SIGINT)  # a fast stop: sessions are ended

    def mend_it(self):
        self.fleet.database.start()

    def allowances(self):
        return [Allowance(COMMITTED, self.began - SLACK - MOST_IN_MEMORY, self.began + SLACK)]

    def was_seen(self):
        return self.nothing_was_stored()


class RelayKilled(Fault):
    name = "relay-killed"
    lasts = False

    def break_it(self):
        self.status = self.fleet.relay.end(signal.SIGKILL)
        self.killed = time.time()
        time.sleep(RESTART)
        self.fleet.relay.start()

    def allowances(self):
        begin, end = self.began - MOST_IN_MEMORY - SLACK, self.killed + SLACK
        return [Allowance(rule, begin, end) for rule in (UNREAD, RELAY_MEMORY, RESENT)]

    def was_seen(self):
        return self.status == -signal.SIGKILL


class RelayAway(Fault):
    name = "relay-away"

    def break_it(self):
        self.fleet.relay.end()
        self.stopped = time.time()

    def mend_it(self):
        self.fleet.relay.start()

    def allowances(self):
        return [Allowance(UNREAD, self.began - SLACK, self.stopped + SLACK),
                Allowance(RESENT, self.began - SLACK - MOST_IN_MEMORY, self.stopped + SLACK)]

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
        return self.nothing_was_stored({client.name for client in self.cut})


class AllAtOnce(Fault):
    """Every client sends at the same moment, as after a power cut: the services are held until the
    pause between two passes is over for each of them."""
    name = "all-at-once"
    lasts = False

    def break_it(self):
        with paused([client.process for client in self.fleet.clients]):
            time.sleep(PASS_PAUSE + SLACK)
        self.released = time.time()
        for client in self.fleet.clients:
            self.fleet.raiser.raise_records(client, AT_ONCE)

    def was_seen(self):
        """Whether nine of ten clients sent within one second."""
        sent = sorted((one.at, client.name) for client in self.fleet.clients for one in client.sent
                      if one.at > self.released)
        return any(len({name for at, name in sent if begin <= at <= begin + 1})
                   >= 0.9 * len(self.fleet.clients) for begin, _ in sent)


ALL = {fault.name: fault for fault in (CentreAway, DatabaseStopped, RelayKilled, RelayAway,
                                       NetworkCut, AllAtOnce)}
