"""What ov-event-check says about the machine, and that it is so."""

import signal
import time

import pytest

from support.answers import NOBODY, has_users
from support.collectors import TcpCollector
from support.monitors import (
    PGREP, STATUS_FILE, arrived, own_pgrep, reload, settings, start_client, start_monitors,
    wait_until_checked, write_status)
from support.polling import wait_until
from support.records import make_record
from support.sandbox import DEFINITIONS, ROW, SERVICE_SOCKET, SETTINGS, TCP, UDP

with_users = pytest.mark.skipif(not has_users(), reason="there is no user but root")


def causes(check, *arguments, **kwargs):
    """The findings about this machine."""
    return {line for line in check.findings(*arguments, **kwargs) if ":" not in line}


def start(sandbox, env=None, **changes):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**UDP, **changes})
    return sandbox.start_listening_service(env=env)


# The service and its socket

def test_service_that_does_not_run_is_an_error(sandbox, check):
    assert "error not-running" in causes(check)
    service = start(sandbox)
    assert "error not-running" not in causes(check)
    service.kill()
    assert "error not-running" in causes(check)


def test_socket_of_a_killed_service_is_stale_and_keeps_the_next_from_starting(sandbox, check):
    service = start(sandbox)
    assert "error stale-socket" not in causes(check)
    service.facts.send_signal(signal.SIGKILL)
    service.wait()
    assert "error stale-socket" in causes(check)
    following = sandbox.run(sandbox.executable, "-s")
    assert (following.status, following.stderr) == (1, "bind: Address already in use\n")


def test_socket_that_is_gone_keeps_clients_from_the_service(sandbox, check):
    start(sandbox)
    sandbox.path(SERVICE_SOCKET).unlink()
    assert {"error stale-socket"} == {line for line in causes(check) if "error" in line}
    client = sandbox.start_client("perf01", env=sandbox.short_pauses())
    assert client.wait() == 1
    assert client.stderr.startswith("connect: No such file or directory")


@with_users
def test_user_who_may_not_write_to_the_socket_is_told_and_cannot_raise_events(sandbox, check):
    start(sandbox)
    socket = sandbox.path(SERVICE_SOCKET)
    socket.chmod(0o755)
    assert "error socket-denied" in causes(check, user=NOBODY)
    client = sandbox.start(*NOBODY, sandbox.executable, "-e", "perf01",
                           env=sandbox.faulty(DELAYS="sleep:1+:20"))
    assert "error socket-denied" not in causes(check)  # root may
    socket.chmod(0o666)
    assert "error socket-denied" not in causes(check, user=NOBODY)
    assert client.wait() == 0


@with_users
def test_settings_that_the_user_of_the_service_may_not_read_do_not_take_effect(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**UDP)
    sandbox.path(SETTINGS).chmod(0o600)
    sandbox.path("/tmp").chmod(0o1777)
    service = sandbox.start(*NOBODY, sandbox.executable, "-s")
    service.wait_for_cycle(1)
    assert "host: 127.0.0.1" not in service.lines
    assert "error settings-not-readable-by-service" in causes(check)
    assert "error unreadable-settings /tmp/ov-event-logger.ini" in check.findings(
        "--offline", user=NOBODY)
    sandbox.path(SETTINGS).chmod(0o644)
    assert "error settings-not-readable-by-service" not in causes(check)
    assert "unreadable-settings" not in "".join(check.findings("--offline", user=NOBODY))


@with_users
def test_definitions_that_the_user_of_the_service_may_not_read_define_nothing(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**UDP)
    sandbox.path("/tmp").chmod(0o1777)
    service = sandbox.start(*NOBODY, sandbox.executable, "-s")
    service.wait_for_cycle(1)
    assert "unreadable-definitions" not in "".join(check.findings())
    sandbox.path(DEFINITIONS).chmod(0o600)
    assert f"error unreadable-definitions {DEFINITIONS}" in check.findings()
    service.kill()
    sandbox.sh("rm -f /tmp/ov-events")
    service = sandbox.start(*NOBODY, sandbox.executable, "-s")
    service.wait_for_error_line(f'Unable to open file: {DEFINITIONS}')


@with_users
def test_script_runs_with_the_rights_of_the_service(sandbox, check, usb_script):
    usb_script.answer("usb1\n")
    sandbox.write_settings(**settings("usbDevMon", allowed=["sys05"]))
    sandbox.path("/tmp").chmod(0o1777)
    service = sandbox.start(*NOBODY, sandbox.executable, "-s")
    service.wait_for_cycle(1)
    assert "script" not in "".join(causes(check))
    sandbox.sh(f"chmod 0700 {usb_script.inside}")
    assert "error script-not-executable" in causes(check)
    assert "raises nothing" in check.run("script", "usb-devices.sh").stdout


@with_users
def test_what_a_user_may_not_see_is_a_note(sandbox, check):
    start(sandbox, formatString="[DATE]")
    unseen = {"note month-names", "note settings-not-readable-by-service"}
    assert unseen <= causes(check, user=NOBODY)
    assert not unseen & causes(check)


def test_definitions_that_changed_since_the_start_are_old(sandbox, check):
    service = start(sandbox)
    assert "warning old-definitions" not in causes(check)

    def changes():
        sandbox.write_definitions("sys05,label,text,info", path=DEFINITIONS + ".new")
        sandbox.sh(f"touch -d 2020-01-01 {DEFINITIONS}.new; mv {DEFINITIONS}.new {DEFINITIONS}")
        return "warning old-definitions" in causes(check)
    wait_until(changes, "a change that is later than the start by more than the clocks' ticks")
    sandbox.send("sys05")
    service.wait_for_line("Event sys05 is not defined")


@pytest.mark.parametrize("protocol, is_found", [("syslog-tcp", True), ("syslog-udp", False)])
def test_descriptors_are_used_up_over_tcp_alone(sandbox, check, protocol, is_found):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**UDP, "protocol": protocol})
    service = sandbox.start_service(prelude="ulimit -n 32", env=sandbox.short_pauses())
    service.wait_for_cycle(1)
    assert ("warning few-descriptors" in causes(check)) == is_found
    sandbox.raise_event("1")
    service.wait_for_line("> Received event")
    if is_found:
        assert service.wait() == 1
        assert "accept: Too many open files" in service.error_lines


# The network and the collector

def test_machine_without_an_address_holds_events_back(sandbox, check):
    service = start(sandbox)
    assert "error no-address" not in causes(check)
    sandbox.hold_events()
    assert "error no-address" in causes(check)
    service.wait_for_line("> Client address is unknown")


@pytest.mark.parametrize("address, is_found", [("127.0.0.1", True), ("192.168.1.20", False)])
def test_lines_name_the_loopback_while_there_is_nothing_else(
        sandbox, udp_collector, check, address, is_found):
    if not is_found:
        sandbox.add_interface("eth0", f"{address}/24")
    service = start(sandbox, env=sandbox.short_pauses(), formatString="[IP]")
    assert "warning loopback-only" not in causes(check)  # the collector is here
    sandbox.send("perf01")
    assert udp_collector.wait_for(1) == [address.encode()]
    sandbox.reload(service, 2, host="192.168.1.99")  # a collector elsewhere
    assert ("warning loopback-only" in causes(check)) == is_found
    sandbox.send("perf01")
    service.wait_for_line(">>> " + address, 2)
    service.wait_until_idle()
    assert ("Error sending message" in service.lines) == is_found


def test_name_that_does_not_resolve_is_an_error(sandbox, check):
    sandbox.set_host_names("127.0.0.1 known.example")
    service = start(sandbox, host="gone.example")
    assert "error unresolved-host" in causes(check)
    assert "Invalid IP address or hostname: Name or service not known" in service.lines
    sandbox.write_settings(**{**UDP, "host": "known.example"})
    assert "error unresolved-host" not in causes(check)


def test_tcp_collector_that_refuses_is_an_error(sandbox, check):
    service = start(sandbox, **TCP)
    assert "error collector-refuses" in causes(check)
    sandbox.send("perf01")
    service.wait_for_error_line("connect: Connection refused")
    TcpCollector(sandbox)
    assert "error collector-refuses" not in causes(check)


def test_tcp_collector_that_does_not_answer_remains_unknown(sandbox, check):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    start(sandbox, host="192.168.1.99", **TCP)  # nobody answers for it
    assert "note collector-refuses" in causes(check)


# Dates

@pytest.mark.parametrize("locale, is_found", [("de_DE.UTF-8", True), ("C.UTF-8", False)])
def test_months_of_the_locale_of_the_service_are_found(
        sandbox, udp_collector, check, locale, is_found):
    start(sandbox, env={"LC_ALL": locale}, formatString="[DATE]")
    assert ("warning month-names" in causes(check)) == is_found
    sandbox.send_bytes(make_record("perf01", "", 1709287200))
    [line] = udp_collector.wait_for(1)
    assert line.startswith(b"Mar ") != is_found


@pytest.mark.parametrize("zone, is_found", [("Asia/Kolkata", True), ("UTC", False)])
def test_zone_of_the_service_is_found(sandbox, udp_collector, check, zone, is_found):
    start(sandbox, env={"TZ": zone}, formatString="[DATE]")
    assert ("note time-zone" in causes(check)) == is_found
    sandbox.send_bytes(make_record("perf01", "", 1700000000))
    assert (udp_collector.wait_for(1) == [b"Nov 14 22:13:20"]) != is_found


# Scripts of the monitors

def start_usb(sandbox):
    sandbox.write_definitions("sys05,label,text,info", "end,label,text,info")
    sandbox.write_settings(**settings("usbDevMon", allowed=["sys05", "end"]))
    return sandbox.start_listening_service(env=sandbox.short_pauses())


def arrives_before_the_end(sandbox, service, collector):
    service.wait_for_pauses(2)
    sandbox.send("end", "x")
    wait_until(lambda: b"end x" in collector.messages, lambda: collector.messages)
    return collector.messages[:-1]


@pytest.mark.parametrize("cause, make", [
    ("no-script", "true"), ("script-not-executable", "echo 'echo usb1' >{}"),
    ("script-not-executable", "echo '#!/nowhere' >{0}; chmod +x {0}"),
    ("script-unusable", "echo '#!/bin/sh\nexit 3' >{0}; chmod +x {0}"),
    ("", "echo '#!/bin/sh\necho usb1' >{0}; chmod +x {0}")],
    ids=["missing", "not-executable", "no-interpreter", "fails", "usable"])
def test_script_that_gives_nothing_is_an_error(
        sandbox, udp_collector, check, usb_script, cause, make):
    sandbox.sh(make.format(usb_script.inside))
    service = start_usb(sandbox)
    found = {line for line in causes(check) if "script" in line}
    assert found == ({f"error {cause}"} if cause else set())
    assert arrives_before_the_end(sandbox, service, udp_collector) == (
        [] if cause else [b"sys05 usb1"])


@pytest.mark.parametrize("seconds, is_slow", [
    pytest.param(1000, True, marks=pytest.mark.slow), (1, False)], ids=["slow", "in-time"])
def test_slow_script_is_killed_and_what_it_printed_until_then_is_used(
        sandbox, udp_collector, check, usb_script, seconds, is_slow):
    usb_script.write_shell(f"echo usb1; echo $$ >>/tmp/numbers; exec sleep {seconds}")
    began = time.monotonic()
    start_usb(sandbox)
    wait_until(sandbox.path("/tmp/numbers").exists, "the first run")
    answer = sandbox.start(check.program)  # beside the service
    assert udp_collector.wait_for(1, deadline=60) == [b"sys05 usb1"]
    assert (time.monotonic() - began >= 30) == is_slow
    sandbox.sh('read -r first </tmp/numbers; [ ! -e "/proc/$first" ]')
    answer.wait()
    assert ("[script-slow]" in answer.stdout) == is_slow


@pytest.mark.parametrize("output, is_unusable", [
    ("cpu=12\nmem=3\n", True), ("cpu=x\nmem=3\ndisk=1\n", True),
    ("cpu=12.5\nmem=3\ndisk=1\n", False)], ids=["missing", "no-number", "complete"])
def test_reading_that_never_came_counts_as_0(
        sandbox, udp_collector, check, perf_script, output, is_unusable):
    perf_script.answer(output)
    rows = ["perf01,label,text,info", "perf03,label,text,info"]
    sandbox.write_definitions(*rows)
    sandbox.write_settings(**settings("perfMon", allowed=["perf01", "perf03"], cpuThreshold=0,
                                      diskThreshold=0))
    assert ("error script-unusable" in causes(check)) == is_unusable
    sandbox.start_listening_service(env=sandbox.short_pauses())
    lines = udp_collector.wait_for(2)
    assert any(line.endswith(b" 0.00% > 0.00%") for line in lines) == is_unusable


@pytest.mark.parametrize("cpu, ends", [("100", True), ("99.99", False)])
def test_reading_that_is_too_long_ends_the_service(sandbox, check, perf_script, cpu, ends):
    perf_script.answer(f"cpu={cpu}\nmem=1\ndisk=1\n")
    sandbox.write_settings(**settings("perfMon", allowed=["perf01"]))
    assert ("error reading-too-long" in causes(check)) == ends
    service = sandbox.start_service(env=sandbox.short_pauses())
    if ends:
        assert service.wait() == 128 + signal.SIGABRT
    else:
        perf_script.wait_for_more_runs(2)
        assert service.is_running()


@pytest.mark.parametrize("commands, events", [
    ("echo me", [b"sec03 me\n", b"sec04 me\n"]),
    ("[ $1 = error ] || echo 'signin:me: :ok'", [b"sec03 me"])], ids=["same", "different"])
def test_same_answer_for_success_and_error_raises_both_events(
        sandbox, udp_collector, check, signin_script, commands, events):
    signin_script.write_shell(commands)
    pgrep, env = own_pgrep(sandbox)
    start_client(sandbox)
    start_monitors(sandbox, "vmwSigninMon", env=env)
    pgrep.wait_for_runs(3)  # twice after the sign-in was looked at
    assert arrived(sandbox, udp_collector) == events
    assert ("error script-unusable" in causes(check)) == (len(events) == 2)


def test_without_pgrep_in_the_path_of_the_service_no_sign_in_arrives(
        sandbox, udp_collector, check, signin_script):
    signin_script.write_shell("[ $1 = error ] || echo me")
    pgrep, env = own_pgrep(sandbox)
    pgrep.path.unlink()
    start_client(sandbox)
    service = start_monitors(sandbox, "vmwSigninMon", env=env)
    assert "error no-pgrep" in causes(check)
    service.wait_for_pauses(3)
    assert arrived(sandbox, udp_collector) == []
    pgrep.write_shell(PGREP)
    assert "error no-pgrep" not in causes(check)
    pgrep.wait_for_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sec03 me\n"]


def status_note(check):
    return [finding["sentence"] for finding in check.json()["findings"]
            if finding["cause"] == "status-file"]


def test_status_of_the_agent_is_a_note_and_raises_what_it_says(sandbox, udp_collector, check):
    service = start_monitors(sandbox, "agentConnMon")
    nothing = (f"{STATUS_FILE} has no third line to read: the connection counts as not yet tried, "
               "or, after a status, as failed")
    for lines, note, events in [
            ([], nothing, []), (["1", "2", "CONNECTED"], "CONNECTED", [b"net02 "]),
            (["1", "2", "LOST", "4"], "LOST", [b"net03 LOST"]), (["1", "2"], nothing, [b"net03 "]),
            (["1", "2", "CONNECTING..."], "CONNECTING...", [])]:
        before = arrived(sandbox, udp_collector)
        write_status(sandbox, *lines)
        wait_until_checked(service)
        assert status_note(check) == [
            note if note == nothing else f'{STATUS_FILE} says "{note}"']
        assert arrived(sandbox, udp_collector) == before + events
    reload(sandbox, service, 2)
    assert status_note(check) == []
