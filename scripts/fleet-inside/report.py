"""The tables of a run, in Markdown."""

import collections
import math

from conservation import DOUBLED, LOST
from phases import STORM

MEGABYTE = 1 << 20


def write_report(fleet, phases, account, size):
    """`size` is the DatabaseSize."""
    tables = [table_of_phases(fleet, phases, account), table_of_rules(account),
              table_of_parts(fleet.usage, phases, len(fleet.clients)),
              table_of_database(fleet, size)]
    return "\n".join(table for table in tables if table)


def table(head, rows):
    """The first column is text, the others are numbers."""
    lines = [head, ["---", *["---:"] * (len(head) - 1)], *rows]
    return "".join(f"| {' | '.join(map(str, line))} |\n" for line in lines)


def table_of_phases(fleet, phases, account):
    phase_of = {one.event: number for number, phase in enumerate(phases)
                for one in fleet.raiser.raised if phase.begin <= one.at <= phase.settled}
    counts = [collections.Counter(phase_of.get(event) for event in events) for events in (
        (one.event for one in fleet.raiser.raised),
        (one.line.event for one in fleet.sent),
        (row.line.event for row in fleet.stored),
        *((line.event for rule, lines in account.by_rule.items() if rule.effect == effect
           for line in lines) for effect in (LOST, DOUBLED)))]
    latencies = latencies_of(fleet, phase_of)
    rows = [[phase.name, f"{phase.end - phase.begin:.0f} s",
             *(f"{count[number]:,}" for count in counts), *shown(latencies[number])]
            for number, phase in enumerate(phases)]
    rows.append(["all", f"{sum(phase.end - phase.begin for phase in phases):.0f} s",
                 *(f"{count.total():,}" for count in counts), *shown(sum(latencies.values(), []))])
    return table(["phase", "raising", "raised", "sent", "stored", "lost by rule", "doubles by rule",
                  "latency, median", "latency, 99 %"], rows)


def shown(latencies):
    return [f"{quantile(latencies, share):.1f} s" for share in (0.5, 0.99)]


def latencies_of(fleet, phase_of):
    """From the moment before an event was raised to the commit of its first row."""
    committed = {}
    for row in fleet.stored:
        committed[row.line.event] = min(row.committed, committed.get(row.line.event, math.inf))
    latencies = collections.defaultdict(list)
    for one in fleet.raiser.raised:
        if one.event in committed:
            latencies[phase_of.get(one.event)].append(committed[one.event] - one.at)
    return latencies


def quantile(values, share):
    """The smallest value that this share of all does not exceed."""
    return sorted(values)[math.ceil(share * len(values)) - 1] if values else math.nan


def table_of_rules(account):
    rows = [[f"{rule.effect}: {rule.sentence} ({rule.document})", len(lines)]
            for rule, lines in account.by_rule.items()]
    return table(["rule", "lines"], rows) if rows else ""


def table_of_parts(usage, phases, clients):
    """The storm shows what a line costs when many come."""
    duration = phases[-1].settled - phases[0].begin
    [storm] = [phase for phase in phases if phase.name == STORM]
    rows = []
    for part in usage.memory:
        seconds = sum(phase.seconds[part] for phase in phases)
        memory = usage.memory[part] / MEGABYTE
        resident = f"{usage.resident[part] / MEGABYTE:.0f} MB"
        rows.append([part, f"{seconds:.1f} s", f"{100 * seconds / duration:.1f} %",
                     f"{1e6 * storm.seconds[part] / storm.stored:.0f} us", f"{memory:.0f} MB",
                     resident])
        if part == "services":
            rows.append([f"one of {clients} services", f"{seconds / clients:.2f} s",
                         f"{100 * seconds / clients / duration:.2f} %", "",
                         f"{memory / clients:.1f} MB", resident])
    return table(["part", "processor time", "of a core", "for a line of the storm", "memory",
                  "largest process, resident"], rows)


def table_of_database(fleet, size):
    rates = collections.Counter(int(row.committed) for row in fleet.stored)
    return table(["database", ""], [
        ["rows", f"{size.rows:,}"],
        ["most rows in a second", f"{max(rates.values(), default=0):,}"],
        ["table with its indexes", f"{size.table:,} bytes"],
        ["for a row", f"{size.table / max(size.rows, 1):.0f} bytes"],
        ["write-ahead log for a row", f"{size.log / max(size.rows, 1):.0f} bytes"]])
