import pytest

from support.answers import Check
from support.sandbox import Sandbox


@pytest.fixture
def sandbox():
    """One with ov-event-check in it."""
    box = Sandbox(keep=[Check.PROGRAM])
    box.has_invariant = False  # the files are such that lines are lost or changed
    yield box
    box.close()


@pytest.fixture
def check(sandbox):
    return Check(sandbox)
