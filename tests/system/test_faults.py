"""Every call that can fail does so once, with every error: what docs/RELIABILITY.md says is printed
and comes of it. Its table says what there is to test."""

import pytest

from support.fault_outcomes import outcome_of
from support.fault_run import Collectors, FaultRun
from support.fault_situations import SITUATIONS
from support.reliability import fallible_calls


@pytest.mark.parametrize("row", fallible_calls(), ids=str)
def test_call_that_fails_has_the_documented_outcome(sandbox, row):
    situation, outcome = SITUATIONS[row.situation], outcome_of(row)
    collectors = Collectors(sandbox)
    for error in row.errors:
        run = FaultRun(sandbox, collectors, row, error)
        try:
            situation(run)
            outcome(run)
            run.wait_until_printed()
            run.wait_until_failed()
        finally:
            run.end()
