import pytest

from support.collectors import TcpCollector, UdpCollector
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
