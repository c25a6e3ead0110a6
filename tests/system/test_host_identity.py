"""How lines name the machine: by its name and by an address of its interfaces."""

from support.records import make_record

SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": "[NAME] [IP]"}
UNKNOWN = "> Client address is unknown"


def start(sandbox, **kwargs):
    sandbox.write_definitions("perf01,CPU,CPU usage is high,warn")
    sandbox.write_settings(**SETTINGS)
    return sandbox.start_listening_service(**kwargs)


def deliver(sandbox, collector):
    """The line of one more event."""
    sandbox.send_bytes(make_record("perf01"))
    return collector.wait_for(len(collector.messages) + 1)[-1]


def test_loopback_address_is_used_when_there_is_no_other(sandbox, udp_collector):
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 127.0.0.1"


def test_network_interface_wins_over_loopback(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 192.168.1.20"


def test_later_of_two_running_interfaces_wins(sandbox, udp_collector):
    sandbox.add_interface("eth1", "192.168.1.20/24")
    sandbox.add_interface("eth0", "10.9.8.7/24")
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 10.9.8.7"


def test_interface_without_carrier_is_skipped(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    sandbox.add_interface("eth1", "10.9.8.7/24", carrier=False)
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 192.168.1.20"


def test_interface_that_is_down_is_skipped(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    sandbox.add_interface("eth1", "10.9.8.7/24")
    sandbox.sh("ip link set eth1 down")
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 192.168.1.20"


def test_interface_with_ipv6_only_is_skipped(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    sandbox.add_interface("eth1", "2001:db8::7/64")
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 192.168.1.20"


def test_address_is_unknown_with_every_interface_down(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    sandbox.sh("ip link set eth0 down; ip link set lo down")
    service = start(sandbox)
    sandbox.send_bytes(make_record("perf01"))
    service.wait_for_line(UNKNOWN, count=3)
    assert (service.stdout.count(">>> "), service.stderr) == (0, "")
    assert udp_collector.messages == []


def test_address_is_unknown_with_ipv6_only(sandbox):
    sandbox.add_interface("eth0", "2001:db8::7/64")
    sandbox.hold_events()
    service = start(sandbox)
    service.wait_for_line(UNKNOWN, count=2)
    assert service.stderr == ""


def test_changed_address_shows_in_the_next_line(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    service = start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 192.168.1.20"
    sandbox.sh("ip address flush dev eth0; ip address add 10.9.8.7/24 dev eth0")
    service.wait_until_idle()  # a pass that may have looked before is over
    assert deliver(sandbox, udp_collector) == b"tc-0042 10.9.8.7"


def test_changed_host_name_shows_in_the_next_line(sandbox, udp_collector):
    service = start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 127.0.0.1"
    sandbox.sh("hostname tc-4711.example.com")
    service.wait_until_idle()
    assert deliver(sandbox, udp_collector) == b"tc-4711.example.com 127.0.0.1"


def test_host_name_is_utf8_whatever_the_locale(sandbox, udp_collector):
    sandbox.run("python3", "-c", "import socket; socket.sethostname('tc-münchen')")
    start(sandbox, env={"LC_ALL": "C"})
    assert deliver(sandbox, udp_collector) == "tc-münchen 127.0.0.1".encode()


def test_failure_to_list_the_interfaces_is_reported_and_holds_events(sandbox, udp_collector):
    service = start(sandbox, env=sandbox.faulty(FAULTS="getifaddrs:1:24,getifaddrs:2:12"))
    sandbox.send_bytes(make_record("perf01"))
    assert udp_collector.wait_for(1) == [b"tc-0042 127.0.0.1"]
    assert service.stderr == "getifaddrs: Too many open files\ngetifaddrs: Cannot allocate memory\n"
    spoken = [line for line in service.lines if line[0] == ">" and line != "> Received event"]
    assert spoken == [UNKNOWN, UNKNOWN, "> Process events", ">>> tc-0042 127.0.0.1"]
