"""What the build with the address sanitizer adds to the service: a look for leaks at its end."""

import os

import pytest

pytestmark = pytest.mark.skipif(os.environ.get("OV_SANITIZER") != "address",
                                reason="only this build looks for leaks")


def test_service_that_is_ended_looks_for_leaks_and_finds_none(sandbox):
    service = sandbox.start_listening_service()
    service.kill()
    assert service.status == 0
