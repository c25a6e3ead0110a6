"""The performance monitor: which output of its script raises an event, and with which values."""

import signal

import pytest

from support.monitors import arrived, begin_service, reload, start_monitors


def events_of(sandbox, collector, script, *outputs, **settings):
    """All that is raised while the script prints these outputs in turn."""
    script.answer(*outputs)
    start_monitors(sandbox, "perfMon", **settings)
    script.wait_for_runs(len(outputs) + 2)
    return arrived(sandbox, collector)


def test_event_is_raised_once_per_crossing_and_also_at_the_threshold(
        sandbox, udp_collector, perf_script):
    outputs = [f"cpu={value}\n" for value in ("79.9", "80", "85", "90", "79", "81")]
    assert events_of(sandbox, udp_collector, perf_script, *outputs) == [
        b"perf01 80.00% > 80.00%", b"perf01 81.00% > 80.00%"]


def test_each_resource_has_an_event_and_a_threshold_of_its_own(
        sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "disk = 35\nmem=25\ncpu=15\nCPU=50\n",
                     "cpu=9\n", "cpu=10\nmem=19\n", "mem=20\ndisk=\n", cpuThreshold=10,
                     memThreshold=20, diskThreshold=30) == [
        b"perf01 15.00% > 10.00%", b"perf02 25.00% > 20.00%", b"perf03 35.00% > 30.00%",
        b"perf01 10.00% > 10.00%", b"perf02 20.00% > 20.00%"]


@pytest.mark.parametrize("disallowed", ["perf01", "perf02", "perf03"])
def test_disallowed_event_is_never_raised(sandbox, udp_collector, perf_script, disallowed):
    events = ("perf01", "perf02", "perf03")
    assert events_of(
        sandbox, udp_collector, perf_script, "cpu=81\nmem=81\ndisk=81\n",
        allowed=[*(event for event in events if event != disallowed), "end"]) == [
        f"{event} 81.00% > 80.00%".encode() for event in events if event != disallowed]


def test_reading_above_its_threshold_is_reported_again_after_a_reload(
        sandbox, udp_collector, perf_script):
    perf_script.answer("cpu=81\n")
    service = start_monitors(sandbox, "perfMon")
    perf_script.wait_for_runs(3)
    reload(sandbox, service, 2, "perfMon", cpuThreshold=70)
    perf_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [
        b"perf01 81.00% > 80.00%", b"perf01 81.00% > 70.00%"]


def test_threshold_of_0_is_reached_without_a_script(sandbox, udp_collector):
    start_monitors(sandbox, "perfMon", cpuThreshold=0, memThreshold=-5)
    assert udp_collector.wait_for(2) == [b"perf01 0.00% > 0.00%", b"perf02 0.00% > -5.00%"]


def test_values_of_15_characters_are_sent_and_longer_ones_abort_the_service(
        sandbox, udp_collector, perf_script):
    perf_script.answer("cpu=99.99\n", "cpu=0\n", "cpu=0\n", "cpu=100\n")
    service = begin_service(sandbox, "perfMon", cpuThreshold=90)
    assert udp_collector.wait_for(1) == [b"perf01 99.99% > 90.00%"]
    assert service.wait() == 128 + signal.SIGABRT
    assert service.stderr == (
        "Performance values do not fit 15 characters: 100.00% > 90.00%\n")
    assert len(udp_collector.messages) == 1
