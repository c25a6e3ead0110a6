"""The phases of a run. Between two of them nothing is raised until all that was sent is stored, so
that each loss belongs to one phase."""

import dataclasses
import time

AWAY = 60  # seconds of a fault at the most
BEFORE = 2  # seconds from the beginning of a phase to that of its fault: in the midst of a storm
# Seconds without a new row after which no more are expected: a client tries again after ten. After
# a fault TCP may wait once more as long as the fault lasted.
PATIENCE = 14
LOOK = 0.5
STEADY, STORM = "steady", "storm"  # the first phases


@dataclasses.dataclass
class Phase:
    name: str
    begin: float
    end: float = 0  # of the raising
    settled: float = 0  # when all was stored
    stored: int = 0  # lines
    seconds: dict = None  # of processor time of each part


def away(seconds):
    """The seconds of a fault in a phase of so many."""
    return min(AWAY, 0.8 * seconds)


class Director:
    """Leads the fleet through the phases and tells of each step."""

    def __init__(self, fleet, storm, tell):
        self.phases = []
        self._fleet = fleet
        self._storm = storm
        self._tell = tell
        self._rows = 0
        self._difference = 0  # lines lost less doubles, so far

    def run(self, name, seconds, fault=None, storms=True):
        self._tell(f"{name} begins")
        used = self._fleet.usage.seconds()
        phase = Phase(name, time.time())
        self.phases.append(phase)
        self._fleet.raiser.resume()
        patience = PATIENCE + (away(seconds) if fault and fault.lasts else 0)
        if storms:
            self._raise_storm()
        if fault:
            self._let_fail(phase, seconds, fault)
        time.sleep(max(0, phase.begin + seconds - time.time()))
        self._fleet.raiser.rest()
        phase.end = time.time()
        before, self._rows = self._rows, self._settle(patience)
        phase.stored = self._rows - before
        phase.settled = time.time()
        phase.seconds = self._fleet.usage.seconds() - used

    def _let_fail(self, phase, seconds, fault):
        time.sleep(BEFORE)
        end = time.time() + (away(seconds) if fault.lasts else 0)
        fault.begin()
        self._raise_storm()
        time.sleep(max(0, end - time.time()))
        fault.end()

    def _raise_storm(self):
        self._fleet.raiser.storm(self._fleet.clients, self._storm)

    def _settle(self, patience):
        """Waits until all that was raised was sent and stored. What is missing after a while counts
        as lost from then on. Returns the number of rows."""
        rows, since = -1, time.monotonic()
        while time.monotonic() < since + patience:
            time.sleep(LOOK)
            before, rows = rows, self._fleet.number_of_rows()
            if rows != before:
                since = time.monotonic()
            raised, sent = len(self._fleet.raiser.raised), len(self._fleet.sent)
            if raised == sent and sent - rows == self._difference:
                break
        self._difference = sent - rows
        self._tell(f"{raised:,} raised, {sent:,} sent, {rows:,} stored")
        return rows
