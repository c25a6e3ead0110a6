"""Each allocation fails once: what docs/RELIABILITY.md says about memory comes of it."""

import json
import os

import pytest

from support.monitors import SETTINGS
from support.reliability import memory_outcomes
from support.sandbox import REPOSITORY, Sandbox

SWEEP = REPOSITORY / "tests/system/support/memory_sweep.py"
FROM_MAIN_ON = "malloc>fcntl"  # by which the event logger looks at its standard streams

pytestmark = [pytest.mark.skipif(bool(os.environ.get("OV_SANITIZER")),
                                 reason="a sanitizer has an allocator of its own"),
              pytest.mark.skipif("LLVM_PROFILE_FILE" in os.environ,
                                 reason="what counts the branches allocates memory too")]


@pytest.fixture
def machine():
    box = Sandbox(keep=[SWEEP])
    box.write_definitions("perf01,label,text,info")
    box.write_settings(**{
        **SETTINGS, "allowed": "perf01", "formatString": "[ID] [VAL] [DESC] [DATE]"})
    yield box
    box.close()


def sweep(machine, role, allocation, seconds):
    """What came of each failing allocation; there are some."""
    runner = machine.start("python3", f"/run/kept/{SWEEP.name}", role, machine.executable,
                           machine.faults, allocation, str(seconds))
    assert runner.wait(150) == 0, runner.stderr  # it begins no run after 120 seconds
    runs = [json.loads(line) for line in runner.lines]
    *failing, sound = runs
    assert failing and all(run["failed"] for run in failing)
    assert (sound["failed"], sound["end"], sound["errors"]) == (False, "goes on", [])
    return failing


def assert_documented(runs, role):
    """Every run ends as the document has it, and each end that it has is that of some run."""
    documented = memory_outcomes(role)
    seen = {(run["end"], (run["errors"] or ["nothing"])[0]) for run in runs}
    assert seen - {("goes on", "nothing")} == documented


@pytest.mark.parametrize("role", ["client", "service"])
def test_process_without_memory_works_or_ends_and_says_why(machine, role):
    assert_documented(sweep(machine, role, FROM_MAIN_ON, seconds=20), role)


def test_libraries_without_memory_end_the_process_or_hold_it_before_its_first_line(machine):
    """Those that hold it do so for ever: a second is enough to see that of the few that do."""
    runs = sweep(machine, "client", "malloc", seconds=1)
    ends = {run["end"] for run in runs}
    assert ends - {"goes on"} == {end for end, _ in memory_outcomes("libraries")}
