"""What the build with the address sanitizer adds to the service: a look for leaks at its end."""

import os

import pytest

from support.polling import DEADLINE
from support.sandbox import Sandbox

pytestmark = pytest.mark.skipif(os.environ.get("OV_SANITIZER") != "address",
                                reason="only this build looks for leaks")


def test_service_that_is_ended_looks_for_leaks_and_finds_none(sandbox):
    service = sandbox.start_listening_service()
    service.kill(patience=DEADLINE)
    assert service.status == 0


def test_leak_of_a_service_with_monitors_is_reported_as_it_is_ended():
    sandbox = Sandbox()
    try:
        service = sandbox.start_forwarding_service(
            env=sandbox.faulty(LEAK=33), usbDevMon=1, agentConnMon=1)
        service.kill(patience=DEADLINE)
        assert "LeakSanitizer: detected memory leaks" in service.stderr
        assert "33 byte(s)" in service.stderr
        with pytest.raises(AssertionError):
            sandbox.expect_no_sanitizer_report()
    finally:
        sandbox.end()
