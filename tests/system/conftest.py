import pytest

from support.collectors import TcpCollector, UdpCollector
from support.monitors import Script
from support.sandbox import Sandbox


@pytest.fixture
def sandbox():
    box = Sandbox()
    yield box
    box.close()


@pytest.fixture
def udp_collector(sandbox):
    return UdpCollector(sandbox)


@pytest.fixture
def tcp_collector(sandbox):
    return TcpCollector(sandbox)


@pytest.fixture
def perf_script(sandbox):
    return Script(sandbox, "perf.sh")


@pytest.fixture
def usb_script(sandbox):
    return Script(sandbox, "usb-devices.sh")


@pytest.fixture
def signin_script(sandbox):
    return Script(sandbox, "vmw-signin-status.sh")
