"""The first acts: events raised with -e, over each protocol."""

import subprocess

from stage import LOGGER, line_of, show, wait_until, write_settings

# Event, values, priority, and how its line goes on.
EVENTS = [
    ("perf01", "95,80", 28, "Processor use has reached its threshold - 95,80 (warn)"),
    ("sys01", None, 30, "System started -  (info)"),
    ("net03", "DISCONNECTED", 27, "Secure connection lost - DISCONNECTED (err)"),
]
CYCLES = {"UDP": 1, "TCP": 2}  # the service's cycle in which each is shown


def prepare(protocol):
    write_settings(allowed=" ".join(event[0] for event in EVENTS), protocol=protocol)


def raise_events():
    """Raises the events and returns the lines that must arrive."""
    expected = []
    for event, values, priority, rest in EVENTS:
        command = [LOGGER, "-e", event, *([values] if values is not None else [])]
        printed = subprocess.run(command, check=True, capture_output=True, text=True).stdout
        show("client", f"{' '.join(command[1:])}   ->   {printed.strip()}")
        expected.append(line_of(priority, int(printed.rsplit(" ", 1)[1]), event, rest))
    return expected


def demonstrate(service, collector, protocol):
    if not service.wait_for_cycle(CYCLES[protocol]):
        show("demo", f"FAILED: the service does not listen for {protocol}")
        return False
    start = len(collector.received)
    expected = [(protocol, line) for line in raise_events()]
    wait_until(lambda: len(collector.received) - start >= len(expected))
    arrived = collector.received[start:]
    if arrived == expected:
        show("demo", f"all {len(expected)} lines arrived exactly over {protocol}")
        return True
    show("demo", f"FAILED over {protocol}: expected {expected}, arrived {arrived}")
    return False
