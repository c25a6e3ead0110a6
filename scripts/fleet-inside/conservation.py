"""Whether each event became a line, and each line was stored once. A line may be lost or doubled
only where a rule of a document says so, and only if it was sent in the time of the fault."""

import collections
import dataclasses

from lines import Line

LOST, DOUBLED = "lost", "doubled"


@dataclasses.dataclass(frozen=True, slots=True)
class Rule:
    """A sentence of a document by which lines may be lost or stored twice."""
    effect: str
    document: str
    sentence: str


@dataclasses.dataclass(frozen=True, slots=True)
class Allowance:
    """A rule that holds for the lines sent in this time (seconds since the epoch)."""
    rule: Rule
    begin: float
    end: float


@dataclasses.dataclass(frozen=True, slots=True)
class Raised:
    """An event that a client handed to its service."""
    host: str
    id: str
    values: str
    at: float

    @property
    def event(self):
        return self.host, self.id, self.values


@dataclasses.dataclass(frozen=True, slots=True)
class Sent:
    """A line that a service printed as it sent it."""
    line: Line
    at: float


@dataclasses.dataclass(frozen=True, slots=True)
class Stored:
    line: Line
    sender: str
    committed: float


@dataclasses.dataclass
class Account:
    raised: int
    sent: int
    stored: int
    by_rule: dict  # a list of lines for each rule
    violations: list

    def count(self, effect):
        return sum(len(lines) for rule, lines in self.by_rule.items() if rule.effect == effect)


def judge(raised, sent, stored, allowances, senders):
    """`senders` has the address of each host."""
    violations = []
    by_rule = collections.defaultdict(list)
    copies = collections.Counter(row.line for row in stored)

    def account_for(effect, line, at, number):
        rule = next((one.rule for one in allowances
                     if one.rule.effect == effect and one.begin <= at <= one.end), None)
        if rule is None:
            violations.append(f"{effect} without a rule, sent at {at:.3f}, {number} times: {line}")
        else:
            by_rule[rule] += [line] * number

    violations += differences(raised, sent)
    for one in sent:
        number = copies.pop(one.line, 0)
        if number == 0:
            account_for(LOST, one.line, one.at, 1)
        elif number > 1:
            account_for(DOUBLED, one.line, one.at, number - 1)
    violations += [f"stored, but not sent like this: {line}" for line in copies]
    violations += [f"stored with the sender {row.sender}: {row.line}" for row in stored
                   if row.sender != senders.get(row.line.host)]
    return Account(len(raised), len(sent), len(stored), dict(by_rule), violations)


def differences(raised, sent):
    """Each event must have been sent once. No rule says otherwise while its service runs."""
    events = collections.Counter(one.event for one in raised)
    lines = collections.Counter(one.line.event for one in sent)
    return [f"raised {events[event]} times, sent {lines[event]} times: {event}"
            for event in events | lines if events[event] != lines[event]]
