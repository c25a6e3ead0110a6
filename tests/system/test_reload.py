"""When the service takes up its settings anew, and that it loses nothing by it."""

import os
import time

import pytest

from support.polling import assert_within, wait_until
from support.sandbox import CYCLE, ROW, SETTINGS as SETTINGS_PATH, UDP

SENDER_LOOP = """n=0
while [ -e /tmp/go ]; do
  n=$((n + 1))
  "$1" -e perf01 "$0.$n" >/dev/null && echo "perf01 $0.$n"
  sleep 0.05
done"""


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
    """How many cycles have started, once the service has looked at its settings again."""
    service.wait_for_pauses(2)
    return service.lines.count(CYCLE)


def test_change_is_noticed_within_about_a_second(sandbox):
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses())
    cycles = iter(range(2, 10))
    assert_within(1 + 0.1 + 0.7, lambda: sandbox.reload(service, next(cycles)))


def test_idle_service_wakes_once_a_second_and_for_its_passes(sandbox):
    service = sandbox.start_forwarding_service(host="")
    service.wait_until_idle()
    began, before = time.monotonic(), service.pauses
    wait_until(lambda: time.monotonic() - began > 5.5, "some seconds")
    assert 4 <= service.pauses - before <= 9


def test_reload_waits_for_the_end_of_the_pause(sandbox):
    began = time.monotonic()
    service = sandbox.start_forwarding_service(env=sandbox.faulty(DELAYS="sleep:1:2000"))
    sandbox.reload(service, 2)
    assert time.monotonic() - began >= 2 + 3


@pytest.mark.parametrize("change", [
    lambda sandbox: sandbox.write_settings(**UDP),
    lambda sandbox: sandbox.path(SETTINGS_PATH).unlink()], ids=["touched", "removed"])
def test_settings_stay_in_force_without_a_new_cycle(sandbox, udp_collector, change):
    service = sandbox.start_forwarding_service()
    service.wait_until_idle()
    change(sandbox)
    assert cycles_after_a_look(service) == 1
    sandbox.raise_event("95")
    assert udp_collector.wait_for(1) == [b"perf01 95"]


def test_second_change_within_a_second_is_seen_when_the_time_moves_on(sandbox):
    service = sandbox.start_forwarding_service()
    sandbox.reload(service, 2, facility=4)
    service.wait_for_pauses(2)
    rewrite_within_its_second(sandbox, b"facility=4", b"facility=16")
    assert cycles_after_a_look(service) == 2
    settings = sandbox.path(SETTINGS_PATH)
    os.utime(settings, (settings.stat().st_mtime + 1,) * 2)
    service.wait_for_cycle(3)
    assert "facility: 16" in service.lines


def test_settings_that_appear_later_are_taken_up(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    service = sandbox.start_listening_service()
    service.wait_until_idle()
    sandbox.write_settings(**UDP)
    service.wait_for_cycle(2)
    sandbox.raise_event("95")
    assert udp_collector.wait_for(1) == [b"perf01 95"]


def test_change_before_the_processing_thread_runs_does_not_hang_the_cycle(sandbox):
    sandbox.write_settings(**UDP)
    service = sandbox.start_listening_service(env=sandbox.faulty(THREAD_START_DELAY_MS=1500))
    sandbox.reload(service, 2)


@pytest.mark.slow
def test_ten_reloads_lose_no_event_and_send_none_twice(sandbox, tcp_collector):
    service = sandbox.start_forwarding_service(protocol="syslog-tcp", env=sandbox.short_pauses())
    sandbox.path("/tmp/go").touch()
    senders = [sandbox.start("sh", "-c", SENDER_LOOP, str(number), sandbox.executable)
               for number in range(4)]
    for cycle in range(2, 12):
        sandbox.reload(service, cycle)
    sandbox.path("/tmp/go").unlink()
    assert [sender.wait() for sender in senders] == [0] * 4
    sent = sorted(line.encode() for sender in senders for line in sender.lines)
    assert len(sent) > 20
    assert sorted(tcp_collector.wait_for(len(sent))) == sent
    assert [sender.stderr for sender in senders] == [""] * 4
