import pytest

from support.collectors import TcpCollector, UdpCollector
from support.monitors import Script
from support.sandbox import Sandbox


def pytest_configure(config):
    config.addinivalue_line("markers", "slow: takes ten seconds or more, whatever the machine")


def pytest_collection_modifyitems(items):
    """The slow ones first, so that the others run beside them."""
    items.sort(key=lambda item: item.get_closest_marker("slow") is None)


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
