"""How lines name the machine: by its name and by an address of its interfaces."""

import pytest

UNKNOWN = "> Client address is unknown"


def start(sandbox, env=None, **kwargs):
    return sandbox.start_forwarding_service(
        formatString="[NAME] [IP]", env=env or sandbox.short_pauses(), **kwargs)


def deliver(sandbox, collector):
    """The line of one more event."""
    sandbox.raise_event("")
    return collector.wait_for(len(collector.messages) + 1)[-1]


def test_later_of_two_running_interfaces_wins(sandbox, udp_collector):
    sandbox.add_interface("eth1", "192.168.1.20/24")
    sandbox.add_interface("eth0", "10.9.8.7/24")
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 10.9.8.7"


@pytest.mark.parametrize("address, carrier, after", [
    ("10.9.8.7/24", False, "true"), ("10.9.8.7/24", True, "ip link set eth1 down"),
    ("2001:db8::7/64", True, "true")], ids=["no-carrier", "down", "ipv6"])
def test_interface_that_does_not_qualify_is_skipped(
        sandbox, udp_collector, address, carrier, after):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    sandbox.add_interface("eth1", address, carrier)
    sandbox.sh(after)
    start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 192.168.1.20"


def test_address_is_unknown_with_every_interface_down_and_events_are_held_back(
        sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    sandbox.sh("ip link set eth0 down")
    service = start(sandbox, held=True)
    sandbox.raise_event("")
    service.wait_for_line(UNKNOWN, count=3)
    assert (service.stdout.count(">>> "), service.stderr) == (0, "")
    sandbox.sh("ip link set lo up; ip link set eth0 up")
    udp_collector.wait_for(1)


def test_changed_address_and_name_show_in_the_next_line(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    service = start(sandbox)
    assert deliver(sandbox, udp_collector) == b"tc-0042 192.168.1.20"
    sandbox.sh("ip address flush dev eth0; ip address add 10.9.8.7/24 dev eth0; "
               "hostname tc-4711.example.com")
    service.wait_until_idle()  # a pass that may have looked before is over
    assert deliver(sandbox, udp_collector) == b"tc-4711.example.com 10.9.8.7"


def test_host_name_is_utf8_whatever_the_locale(sandbox, udp_collector):
    sandbox.run("python3", "-c", "import socket; socket.sethostname('tc-münchen')")
    start(sandbox, env={"LC_ALL": "C"})
    assert deliver(sandbox, udp_collector) == "tc-münchen 127.0.0.1".encode()
