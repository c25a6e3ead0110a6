import pytest

from support.collectors import TcpCollector, UdpCollector
from support.monitors import Script
from support.sandbox import Sandbox


def pytest_configure(config):
    config.addinivalue_line("markers", "slow: takes ten seconds or more, whatever the machine")


def pytest_collection_modifyitems(items):
    """The slow ones evenly among the first quarter: each worker begins with a stretch of that."""
    slow = [item for item in items if item.get_closest_marker("slow")]
    items[:] = [item for item in items if item not in slow]
    distance = (len(items) + len(slow)) // 4 // len(slow) if slow else 1
    for number, item in enumerate(slow):
        items.insert(number * distance, item)


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
