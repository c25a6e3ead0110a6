"""The law of conservation, which every system test is held to when its sandbox closes.

What a service took in and queued, it makes into lines: each event into one, in the order in which
the events were taken in, none twice; events of its monitors come between. What it made into lines
arrives at the collector that the settings name: each line once, in order, byte for byte. Between
the two ends something is lost only as follows, and is counted under the name of its rule.

- not defined, not allowed: dropped as it came in
- not sent: a line for which the service said "Error sending message", with a reason: no
  collector was ever resolved, there was no socket, the call that sends was made to fail, the line
  is longer than a datagram, the TCP collector cut the connection, or the socket was closed beside
  a processing thread that could not be joined or, over TCP, that a failed accept left
- to nobody: a datagram while no collector was there
- cut: what a TCP collector did not read of a connection, or did not accept, before it closed
- ended: what waited, or was on its way, when the service ended
- held: what waits for an address, or for a TCP collector that refuses, when the test ends

A client that ended with status 0 had its event taken in.
"""

import collections
import itertools
import math
import re
import time

from .polling import DEADLINE, INTERVAL
from .service_output import RECORD, TCP, UDP, ServiceOutput, Violation
from .witness import ANY

LONGEST_DATAGRAM = 65507  # bytes
SENDING_CALLS = {UDP: "sendto", TCP: "send"}
LONGEST_INTERVAL = 0.5  # seconds between two looks, each of which is at everything
WHITE_SPACE = "\t\n\v\f\r \x85\xa0\u1680\u2028\u2029\u202f\u205f\u3000" + "".join(
    map(chr, range(0x2000, 0x200b)))


class Ledger:
    """What is known of a sandbox: the programs that ran in it, and what its collectors received."""

    def __init__(self):
        self.receivers = []
        self.clients_have_a_service = True  # unless a test stands in for it
        self.address_may_be_missing = True  # unless a test has just given it back
        self._programs = []

    def add(self, process, definitions, faults=""):
        """`definitions` are the bytes of the definitions file that the program found, or None;
        `faults` are the calls that are made to fail (OV_FAULTS, see faults.c)."""
        self._programs.append((process, definitions, faults))

    def forget_definitions(self, process):
        """For a service that could not read the definitions that are there: what it calls not
        defined is taken for that."""
        self._programs = [(other, None if other is process else definitions, faults)
                          for other, definitions, faults in self._programs]

    def mark(self):
        """How much each service has printed so far."""
        return {process: len(process.stdout_bytes) for process, *_ in self._programs
                if is_service(process)}

    def services(self):
        return [Service(*program) for program in self._programs if is_service(program[0])]

    def sent_records(self):
        """The records that clients were told to have been sent, as they printed them."""
        if not self.clients_have_a_service:
            return []
        return [process.stdout_bytes for process, *_ in self._programs
                if RECORD.fullmatch(process.stdout_bytes) and process.status == 0]


def is_service(process):
    return process.stdout_bytes.startswith(b"Starting service...\n")


class Service:
    """What one service did, and whether it may go on."""

    def __init__(self, process, definitions, faults):
        self.process = process
        self.is_running = process.is_running()
        self.output = ServiceOutput(process.stdout_bytes, definitions)
        self._faults = faults
        unjoined = has_unjoined_thread(process.stderr_bytes)
        self._may_lose_its_socket = {
            UDP: unjoined, TCP: unjoined or b"accept: " in process.stderr_bytes}

    def printed(self, mark):
        return mark.get(self.process, 0)

    def is_over(self, batch):
        """Whether the service has done all that it ever will for a batch that it may not have
        come to the end of."""
        return batch.is_last and not self.is_running

    def explains_failures(self, batch):
        """Whether there is a reason, other than the collector, for all lines of a batch that were
        reported as not sent."""
        protocol, _ = batch.collector
        too_long = sum(protocol == UDP and len(line) > LONGEST_DATAGRAM for line in batch.lines)
        return (self._may_lose_its_socket[protocol]
                or batch.failed <= too_long + injected(self._faults, SENDING_CALLS[protocol]))


def has_unjoined_thread(errors):
    """Whether a join failed, other than that of a monitor, which is told by a line of its own."""
    lines = errors.split(b"\n")
    return any(line.startswith(b"pthread_join: ")
               and not before.startswith(b"Error stopping monitor: ")
               for before, line in zip([b"", *lines], lines))


def injected(faults, call):
    """How many calls of a function are made to fail."""
    entries = re.findall(rf"(?:^|,){call}(?:[@>][^:]*)?:\d+(\+?):", faults)
    return sum(math.inf if and_later else 1 for and_later in entries)


def check(ledger, settling=DEADLINE):
    """Returns the account of a sandbox in which the law holds. Gives what is on its way the time
    to arrive, and then fails with a Violation."""
    end = time.monotonic() + settling
    pause = INTERVAL
    while True:
        is_last = time.monotonic() >= end
        try:
            return account(ledger)
        except Violation:
            if is_last:
                raise
        time.sleep(pause)
        pause = min(2 * pause, LONGEST_INTERVAL)


def account(ledger):
    """How many events and lines went which way so far, if the law holds so far."""
    services = ledger.services()
    for receiver in ledger.receivers:
        receiver.drain()
    counts = collections.Counter()
    for service in services:
        counts.update(service.output.counts)
    for collector in collectors_of(services, ledger.receivers):
        batches = [(service, batch) for service in services for batch in service.output.batches
                   if batch.collector == collector]
        receivers = [receiver for receiver in ledger.receivers
                     if receiver.collector in (collector, ANY)]
        counts.update(follow(collector)(batches, receivers))
    for service in services:
        counts.update(waiting(service, ledger))
    expect_taken_in(ledger.sent_records(), services)
    return counts


def collectors_of(services, receivers):
    named = [batch.collector for service in services for batch in service.output.batches]
    return dict.fromkeys(named + [receiver.collector for receiver in receivers
                                  if receiver.collector is not ANY])


def follow(collector):
    if collector is None:
        return follow_to_nowhere
    return follow_datagrams if collector[0] == UDP else follow_connections


def waiting(service, ledger):
    """The events that have not been made into lines, by the rule that lets them wait."""
    count = len(service.output.waiting)
    if count == 0 or not service.is_running:
        return {"ended": count}
    output = service.output
    if (output.is_held and ledger.address_may_be_missing
            or is_refused(output.batches, ledger.receivers)):
        return {"held": count}
    raise Violation(f"{count} events wait for nothing, the first is {service.output.waiting[0]}")


def is_refused(batches, receivers):
    """Whether the latest batch is for a TCP collector that nobody is."""
    collector = batches[-1].collector if batches else None
    return collector is not None and collector[0] == TCP and not any(
        receiver.closing is None for receiver in receivers
        if receiver.collector in (collector, ANY))


def expect_taken_in(sent_records, services):
    """What clients were told to have been sent has been taken in by a service that still runs."""
    if not any(service.is_running for service in services):
        return
    taken_in = sum((service.output.records for service in services), collections.Counter())
    lost = collections.Counter(sent_records) - taken_in
    if lost:
        raise Violation(f"{next(iter(lost))!r} was sent and never taken in")


# ---- from the lines to the collectors

def follow_to_nowhere(batches, _):
    """Without any collector, each line must be reported as not sent."""
    for service, batch in batches:
        if batch.failed != len(batch.lines) and not service.is_over(batch):
            raise Violation(f"{batch.failed} of {batch.lines} reported as not sent, and no "
                            "collector was ever resolved")
    return {}


def expect_reasons(batches):
    for service, batch in batches:
        if not service.explains_failures(batch):
            raise Violation(f"{batch.failed} of {batch.lines} were reported as not sent, for no "
                            "reason")


def follow_datagrams(batches, receivers):
    expect_reasons(batches)
    messages = [message for receiver in receivers for message in receiver.messages]
    reached = {0}  # how many messages may be those of the batches so far
    for service, batch in batches:
        certain = any(receives_all(receiver, service, batch) for receiver in receivers)
        reached = after_batch(batch, batch.lines, messages, reached, certain)
    if len(messages) not in reached:
        raise Violation(f"arrived twice, or never sent: {messages[max(reached)]!r}")
    lines = sum(len(batch.lines) - batch.failed for _, batch in batches)
    return {"delivered": len(messages), "to nobody": max(0, lines - len(messages))}


def receives_all(receiver, service, batch):
    """Whether no datagram of a batch can miss a receiver: it was there before the first and after
    the last."""
    is_there = service.printed(receiver.opened) <= batch.start and (
        receiver.closing is None or
        batch.next_start is not None and service.printed(receiver.closing) >= batch.next_start)
    return is_there and not service.is_over(batch)


def after_batch(batch, lines, messages, reached, certain):
    """How many messages may be those of the batches up to this one. When it is certain that they
    arrive, all but those that were reported as not sent must be there."""
    states = {(position, 0) for position in reached}
    most = batch.failed if certain else len(lines)
    for line in lines:
        following = {(position, missed + 1) for position, missed in states if missed < most}
        following.update((position + 1, missed) for position, missed in states
                         if position < len(messages) and messages[position] == line)
        if not following:
            position = max(states)[0]
            came = repr(messages[position]) if position < len(messages) else "nothing"
            raise Violation(f"{line!r} did not arrive; where it was due, {came} did")
        states = following
    after = {position for position, missed in states if missed >= batch.failed}
    if not after:
        raise Violation(f"{batch.failed} of {lines} were reported as not sent, and more arrived")
    return after


def follow_connections(batches, receivers):
    if any(receiver.collector is ANY for receiver in receivers):
        return follow_lines(batches, receivers)
    connections = [connection for receiver in receivers for connection in receiver.connections]
    reached = {0: 0}  # how many connections may be those so far, and how many lines they carried
    for service, batch in batches:
        chunks = [over_tcp(line) for line in batch.lines]
        after = {}
        for position, delivered in reached.items():
            carried = None if position == len(connections) else carried_lines(
                connections[position], chunks, service, batch)
            if carried is not None:
                after[position + 1] = delivered + carried
            if may_lack_a_connection(service, batch, receivers):
                after.setdefault(position, delivered)
        if not after:
            came = [bytes(connection.content) for connection in connections[min(reached):][:1]]
            raise Violation(f"{batch.lines} ({batch.failed} not sent) did not arrive over one "
                            f"connection; where they were due, {came} did")
        reached = after
    if len(connections) not in reached:
        raise Violation("arrived twice, or never sent: "
                        f"{bytes(connections[max(reached)].content)!r}")
    lines = sum(len(batch.lines) - batch.failed for _, batch in batches)
    delivered = reached[len(connections)]
    return {"delivered": delivered, "cut": lines - delivered}


def follow_lines(batches, stores):
    """To a collector that stores lines, whatever connections they came over."""
    expect_reasons(batches)
    messages = [message for store in stores for message in store.messages]
    reached = {0}
    for service, batch in batches:
        lines = [over_tcp(line)[:-1] for line in batch.lines]
        reached = after_batch(batch, lines, messages, reached, not service.is_over(batch))
    if len(messages) not in reached:
        raise Violation(f"arrived twice, or never sent: {messages[max(reached)]!r}")
    return {"delivered": len(messages)}


def over_tcp(line):
    return line.decode().strip(WHITE_SPACE).encode() + b"\n"


def carried_lines(connection, chunks, service, batch):
    """How many lines of a batch a connection carried: all but those that were reported as not
    sent, or the beginning, where the collector or the service ended before. None if it cannot be
    that batch's."""
    content = bytes(connection.content)
    failed = batch.failed
    was_cut = not connection.is_complete and not connection.is_open
    if not was_cut and not service.explains_failures(batch):
        return None
    if was_cut or service.is_over(batch):
        whole = lines_within(chunks, content)
        fits = b"".join(chunks).startswith(content) and whole + failed <= len(chunks)
        return whole if fits else None
    offsets = {(0, 0)}
    for chunk in chunks:
        offsets = ({(offset, missed + 1) for offset, missed in offsets if missed < failed} |
                   {(offset + len(chunk), missed) for offset, missed in offsets
                    if content.startswith(chunk, offset)})
    fits = connection.is_complete and (len(content), failed) in offsets
    return len(chunks) - failed if fits else None


def lines_within(chunks, beginning):
    """How many of the lines the beginning of a batch holds whole."""
    ends = itertools.accumulate(map(len, chunks))
    return sum(end <= len(beginning) for end in ends)


def may_lack_a_connection(service, batch, listeners):
    """Whether a batch may be on no connection that was accepted: the listener closed while the
    connection waited to be accepted, the service ended, or the batch is held."""
    if any(batch.start < service.printed(listener.closed) and (
            batch.next_start is None or service.printed(listener.closing) <= batch.next_start)
            for listener in listeners if listener.closed is not None):
        return True
    is_unconnected = service.is_over(batch) or is_refused([batch], listeners) and batch.is_last
    return is_unconnected and service.explains_failures(batch)
