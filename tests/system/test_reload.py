"""When the service takes up its settings anew, and that it loses nothing by it."""

import itertools
import os
import socket
import struct

import pytest

from support.polling import assert_within
from support.process import CLOCK_NANOSLEEP, FUTEX
from support.sandbox import SERVICE_SOCKET, SETTINGS as SETTINGS_PATH

ROW = "perf01,CPU,CPU usage is high,warn"
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": "[ID] [VAL]"}
STARTING = "Starting event server..."
SENDER_LOOP = """n=0
while [ -e /tmp/go ]; do
  n=$((n + 1))
  "$1" -e perf01 "$0.$n" >/dev/null && echo "perf01 $0.$n"
  sleep 0.05
done"""


def start_service(sandbox, env=None, **settings):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS, **settings)
    return sandbox.start_listening_service(env=env)


def start_eager_service(sandbox, **settings):
    """A service that has looked at the settings file's time, and does so all the time."""
    service = start_service(sandbox, env=sandbox.eager(), **settings)
    service.wait_for_pauses(50)
    return service


def rewrite_within_its_second(sandbox, before, after):
    """Changes the file's contents and size, but at no moment its time."""
    settings = sandbox.path(SETTINGS_PATH)
    moment = settings.stat().st_mtime
    content = settings.read_bytes()
    assert before in content
    rewritten = settings.with_suffix(".new")
    rewritten.write_bytes(content.replace(before, after))
    os.utime(rewritten, (moment, moment))
    rewritten.replace(settings)


def cycles_after_a_look(service):
    """How many cycles have started, once an eager service has looked at its settings again."""
    service.wait_for_pauses(50)
    return service.lines.count(STARTING)


def send_until_refused(sandbox, most):
    """Sends events without trying again; returns the values of those that were taken."""
    sent = []
    while len(sent) < most:
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            try:
                connection.connect(str(sandbox.path(SERVICE_SOCKET)))
            except (ConnectionRefusedError, FileNotFoundError):
                break
            connection.sendall(struct.pack("<8s128sq", b"perf01", b"%d" % len(sent), 0))
        sent.append(b"perf01 %d" % len(sent))
    return sent


# What starts a new cycle

@pytest.mark.parametrize("change", [
    {"facility": 4}, {"unknown": "a"}, {"%C3%A4": 1}, {"host": ""}],
    ids=["known-key", "unknown-key", "odd-key", "emptied-value"])
def test_changed_contents_start_a_new_cycle(sandbox, change):
    service = start_service(sandbox)
    sandbox.write_settings(**{**SETTINGS, **change})
    service.wait_for_cycle(2)


def test_removed_key_starts_a_new_cycle(sandbox):
    service = start_service(sandbox, facility=4)
    sandbox.write_settings(**SETTINGS)
    service.wait_for_cycle(2)


def test_change_is_taken_up_within_the_pauses_of_the_two_threads(sandbox):
    service = start_service(sandbox)
    cycles = itertools.count(2)

    def begin_cycle():
        cycle = next(cycles)
        sandbox.write_settings(**SETTINGS, cycle=cycle)
        service.wait_for_line(STARTING, cycle)
    assert_within(1 + 3 + 1, begin_cycle)


def test_change_to_an_earlier_time_starts_a_new_cycle(sandbox):
    service = start_service(sandbox)
    rewrite_within_its_second(sandbox, b"5514", b"551")
    os.utime(sandbox.path(SETTINGS_PATH), (1000, 1000))
    service.wait_for_cycle(2)


def test_touched_file_starts_no_cycle(sandbox):
    service = start_eager_service(sandbox)
    sandbox.write_settings(**SETTINGS)  # the same contents at another time
    assert cycles_after_a_look(service) == 1


def test_other_order_comments_and_blank_lines_start_no_cycle(sandbox):
    service = start_eager_service(sandbox)
    lines = [f"{key} = {value}\n" for key, value in reversed(SETTINGS.items())]
    sandbox.write_settings_bytes("\n; a comment\n".join(lines).encode())
    assert cycles_after_a_look(service) == 1


def test_second_change_within_a_second_is_seen_when_the_time_moves_on(sandbox):
    service = start_eager_service(sandbox)
    sandbox.write_settings(**SETTINGS, facility=4)
    service.wait_for_cycle(2)
    service.wait_for_line("facility: 4")
    rewrite_within_its_second(sandbox, b"facility=4", b"facility=16")
    assert cycles_after_a_look(service) == 2
    settings = sandbox.path(SETTINGS_PATH)
    os.utime(settings, (settings.stat().st_mtime + 1,) * 2)
    service.wait_for_cycle(3)
    assert "facility: 16" in service.lines


def test_change_in_the_second_of_a_touch_is_seen_when_the_time_moves_on(sandbox):
    service = start_eager_service(sandbox)
    sandbox.write_settings(**SETTINGS)
    assert cycles_after_a_look(service) == 1
    rewrite_within_its_second(sandbox, b"5514", b"551")
    assert cycles_after_a_look(service) == 1


def test_fraction_of_a_second_is_no_other_time(sandbox):
    service = start_eager_service(sandbox)
    settings = sandbox.path(SETTINGS_PATH)
    moment = int(settings.stat().st_mtime) + 10
    os.utime(settings, (moment, moment))
    assert cycles_after_a_look(service) == 1
    rewrite_within_its_second(sandbox, b"5514", b"551")
    os.utime(settings, (moment + 0.75, moment + 0.75))
    assert cycles_after_a_look(service) == 1


def test_file_that_appears_starts_a_new_cycle_with_it(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    service = sandbox.start_listening_service(env=sandbox.eager())
    service.wait_for_pauses(50)
    sandbox.write_settings(**SETTINGS)
    service.wait_for_cycle(2)
    sandbox.send("perf01", "95")
    assert udp_collector.wait_for(1) == [b"perf01 95"]


def test_empty_file_that_appears_starts_no_cycle(sandbox):
    service = sandbox.start_listening_service(env=sandbox.eager())
    service.wait_for_pauses(50)
    sandbox.write_settings()
    assert cycles_after_a_look(service) == 1


def test_settings_stay_in_force_when_their_file_disappears(sandbox, udp_collector):
    service = start_eager_service(sandbox)
    sandbox.path(SETTINGS_PATH).unlink()
    assert cycles_after_a_look(service) == 1
    sandbox.send("perf01", "95")
    assert udp_collector.wait_for(1) == [b"perf01 95"]


@pytest.mark.parametrize("change, cycles", [({}, 1), ({"facility": 4}, 2)],
                         ids=["same-contents", "other-contents"])
def test_file_that_comes_back_starts_a_cycle_only_if_changed(sandbox, change, cycles):
    service = start_eager_service(sandbox)
    moment = sandbox.path(SETTINGS_PATH).stat().st_mtime + 10
    sandbox.path(SETTINGS_PATH).unlink()
    service.wait_for_pauses(50)
    sandbox.write_settings(**SETTINGS, **change)
    os.utime(sandbox.path(SETTINGS_PATH), (moment, moment))
    service.wait_for_cycle(cycles)
    assert cycles_after_a_look(service) == cycles


def test_change_before_the_processing_thread_runs_does_not_hang_the_cycle(sandbox):
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service(env=sandbox.faulty(THREAD_START_DELAY_MS=3000))
    sandbox.write_settings(**SETTINGS, facility=4)
    service.wait_for_cycle(2)


# Nothing is lost

def start_service_whose_cycle_ends(sandbox, delays=""):
    """Its first thread waits for the end of the processing thread, which pauses for long."""
    service = start_service(sandbox, env=sandbox.faulty(DELAYS=f"sleep:1:5000,{delays}"))
    service.wait_for_call(CLOCK_NANOSLEEP)  # at the start it waits for that thread, too
    sandbox.write_settings(**SETTINGS, facility=4)
    service.wait_for_call(FUTEX)
    return service


def test_clients_that_come_while_a_cycle_ends_are_taken_in(sandbox, udp_collector):
    service = start_service_whose_cycle_ends(sandbox)
    for number in range(10):
        sandbox.send("perf01", str(number))
    assert udp_collector.wait_for(10) == [f"perf01 {number}".encode() for number in range(10)]
    assert service.stderr == ""


def test_cycle_that_ends_refuses_the_clients_that_come_too_late(sandbox, udp_collector):
    start_service_whose_cycle_ends(sandbox, delays="close:1+:50")
    sent = send_until_refused(sandbox, most=100)
    assert 0 < len(sent) < 100  # otherwise it would go on for as long as clients come
    assert udp_collector.wait_for(len(sent)) == sent


def test_silent_client_that_waits_while_a_cycle_ends_does_not_stop_the_next(sandbox):
    service = start_service_whose_cycle_ends(sandbox)
    with sandbox.connect():
        service.wait_for_cycle(2)
    assert service.stderr == "read: Connection timed out\n"


@pytest.mark.slow
def test_ten_reloads_lose_no_event_and_send_none_twice(sandbox, tcp_collector):
    service = start_service(sandbox, protocol="syslog-tcp")
    sandbox.path("/tmp/go").touch()
    senders = [sandbox.start("sh", "-c", SENDER_LOOP, str(number), sandbox.executable)
               for number in range(4)]
    for cycle in range(2, 12):
        sandbox.write_settings(**SETTINGS, protocol="syslog-tcp", cycle=cycle)
        service.wait_for_cycle(cycle)
    sandbox.path("/tmp/go").unlink()
    assert [sender.wait() for sender in senders] == [0] * 4
    sent = sorted(line.encode() for sender in senders for line in sender.lines)
    assert len(sent) > 100
    assert sorted(tcp_collector.wait_for(len(sent))) == sent
    assert [sender.stderr for sender in senders] == [""] * 4
