"""The performance monitor: which output of its script raises an event, and with which values."""

import signal

import pytest

from support.monitors import arrived, begin_service, reload, start_monitors

THRESHOLDS = {"cpuThreshold": 80, "memThreshold": 80, "diskThreshold": 80}


def start(sandbox, **settings):
    return start_monitors(sandbox, "perfMon", **{**THRESHOLDS, **settings})


def events_of(sandbox, collector, script, *outputs, **settings):
    """All that is raised while the script prints these outputs in turn."""
    script.answer(*outputs)
    start(sandbox, **settings)
    script.wait_for_runs(len(outputs) + 2)
    return arrived(sandbox, collector)


# When an event is raised

def test_event_is_raised_once_per_crossing_and_also_at_the_threshold(
        sandbox, udp_collector, perf_script):
    outputs = [f"cpu={value}\n" for value in ("79.9", "80", "85", "90", "79", "81")]
    assert events_of(sandbox, udp_collector, perf_script, *outputs) == [
        b"perf01 80.00% > 80.00%", b"perf01 81.00% > 80.00%"]


@pytest.mark.parametrize("key, event", [("cpu", b"perf01"), ("mem", b"perf02"),
                                        ("disk", b"perf03")])
def test_each_resource_has_an_event_of_its_own(sandbox, udp_collector, perf_script, key, event):
    assert events_of(sandbox, udp_collector, perf_script, f"{key}=93.456\n") == [
        event + b" 93.46% > 80.00%"]


def test_each_resource_has_a_threshold_of_its_own(sandbox, udp_collector, perf_script):
    thresholds = {"cpuThreshold": 10, "memThreshold": 20, "diskThreshold": 30}
    assert events_of(sandbox, udp_collector, perf_script, "cpu=15\nmem=25\ndisk=35\n",
                     "cpu=9\nmem=19\ndisk=29\n", "cpu=10\nmem=20\ndisk=30\n", **thresholds) == [
        b"perf01 15.00% > 10.00%", b"perf02 25.00% > 20.00%", b"perf03 35.00% > 30.00%",
        b"perf01 10.00% > 10.00%", b"perf02 20.00% > 20.00%", b"perf03 30.00% > 30.00%"]


def test_events_of_one_check_come_in_the_order_of_the_resources(
        sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "disk=83\nmem=82\ncpu=81\n") == [
        b"perf01 81.00% > 80.00%", b"perf02 82.00% > 80.00%", b"perf03 83.00% > 80.00%"]


def test_resources_cross_their_thresholds_independently(sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "cpu=81\nmem=82\n", "cpu=1\nmem=83\n",
                     "cpu=84\nmem=1\n", "cpu=85\nmem=86\n") == [
        b"perf01 81.00% > 80.00%", b"perf02 82.00% > 80.00%", b"perf01 84.00% > 80.00%",
        b"perf02 86.00% > 80.00%"]


def test_threshold_is_80_when_the_settings_have_none(sandbox, udp_collector, perf_script):
    perf_script.answer("cpu=79.99\nmem=79.99\ndisk=79.99\n", "cpu=80\nmem=80\ndisk=80\n")
    start_monitors(sandbox, "perfMon")
    perf_script.wait_for_runs(4)
    assert arrived(sandbox, udp_collector) == [
        b"perf01 80.00% > 80.00%", b"perf02 80.00% > 80.00%", b"perf03 80.00% > 80.00%"]


@pytest.mark.parametrize("disallowed, expected", [
    ("perf01", [b"perf02 82.00% > 80.00%", b"perf03 83.00% > 80.00%"]),
    ("perf02", [b"perf01 81.00% > 80.00%", b"perf03 83.00% > 80.00%"]),
    ("perf03", [b"perf01 81.00% > 80.00%", b"perf02 82.00% > 80.00%"])])
def test_disallowed_event_is_never_raised(sandbox, udp_collector, perf_script, disallowed,
                                          expected):
    allowed = {"perf01", "perf02", "perf03", "end"} - {disallowed}
    assert events_of(sandbox, udp_collector, perf_script, "cpu=81\nmem=82\ndisk=83\n",
                     allowed=sorted(allowed)) == expected


def test_reading_above_its_threshold_is_reported_again_after_a_reload(
        sandbox, udp_collector, perf_script):
    perf_script.answer("cpu=81\n")
    service = start(sandbox)
    perf_script.wait_for_runs(3)
    reload(sandbox, service, 2, "perfMon", **THRESHOLDS)
    perf_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"perf01 81.00% > 80.00%"] * 2


def test_changed_threshold_counts_from_the_reload_on(sandbox, udp_collector, perf_script):
    perf_script.answer("cpu=81\n")
    service = start(sandbox, cpuThreshold=90)
    perf_script.wait_for_runs(3)
    reload(sandbox, service, 2, "perfMon", **{**THRESHOLDS, "cpuThreshold": 70})
    perf_script.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"perf01 81.00% > 70.00%"]


def test_script_is_run_without_arguments(sandbox, perf_script):
    perf_script.write_shell(f'echo "$#" >>{perf_script.log}')
    start(sandbox)
    perf_script.wait_for_runs(2)
    assert perf_script.runs[:2] == ["", "0"]


# What the script prints

@pytest.mark.parametrize("lines", [
    "cpu = 90", "\t cpu\t= \t90 ", "cpu=90\r", "cpu=90.0", "\n\ncpu=90\n\n", "cpu=1\ncpu=90",
    "cpu=90\ncpu=1=2", "cpu=90\nCPU=1", "cpu=90\ncpu", "cpu=90\n=1", "cpu=90\ncpus=1",
    "cpu=90\n1=cpu"])
def test_reading_is_taken_from_the_last_line_of_its_key(sandbox, udp_collector, perf_script,
                                                        lines):
    assert events_of(sandbox, udp_collector, perf_script, lines + "\n") == [
        b"perf01 90.00% > 80.00%"]


def test_last_line_needs_no_line_feed(sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "mem=1\ncpu=90") == [
        b"perf01 90.00% > 80.00%"]


@pytest.mark.parametrize("line", ["CPU=90", "cpu=90=", "=cpu=90", "cpu90", "cpu==90", "c pu=90",
                                  "cpu=90,5", "cpu=90 %", "cpu=nan"])
def test_line_of_another_form_raises_nothing(sandbox, udp_collector, perf_script, line):
    assert events_of(sandbox, udp_collector, perf_script, line + "\n") == []


def test_key_that_is_missing_keeps_the_reading_before(sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "cpu=90\n", "", "mem=1\n", "cpu=95\n",
                     "cpu=70\n", "cpu=91\n") == [
        b"perf01 90.00% > 80.00%", b"perf01 91.00% > 80.00%"]


@pytest.mark.parametrize("value", ["much", "", "nan", "90,5"])
def test_reading_that_is_no_number_counts_as_below_the_threshold(
        sandbox, udp_collector, perf_script, value):
    assert events_of(sandbox, udp_collector, perf_script, "cpu=90\n", f"cpu={value}\n",
                     "cpu=95\n") == [b"perf01 90.00% > 80.00%", b"perf01 95.00% > 80.00%"]


def test_reading_that_is_no_number_reaches_a_threshold_of_0_as_0(
        sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "cpu=much\nmem=nan\n", cpuThreshold=0,
                     memThreshold=0) == [b"perf01 0.00% > 0.00%"]


def test_threshold_of_0_is_reached_by_a_script_that_prints_nothing(
        sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "", cpuThreshold=0) == [
        b"perf01 0.00% > 0.00%"]


def test_threshold_of_0_is_reached_without_a_script(sandbox, udp_collector):
    start(sandbox, cpuThreshold=0, memThreshold=-5, diskThreshold=0)
    assert udp_collector.wait_for(3) == [
        b"perf01 0.00% > 0.00%", b"perf02 0.00% > -5.00%", b"perf03 0.00% > 0.00%"]


# How long the values may be

@pytest.mark.parametrize("reading, threshold, values", [
    ("99.99", 90, b"99.99% > 90.00%"), ("99.994", 90, b"99.99% > 90.00%"),
    ("100", 9, b"100.00% > 9.00%"), ("9.99", -10, b"9.99% > -10.00%"),
    ("inf", 80, b"inf% > 80.00%")])
def test_values_of_15_characters_at_most_are_sent(sandbox, udp_collector, perf_script, reading,
                                                  threshold, values):
    assert events_of(sandbox, udp_collector, perf_script, f"cpu={reading}\n",
                     cpuThreshold=threshold) == [b"perf01 " + values]


@pytest.mark.parametrize("key, reading, threshold, values", [
    ("cpu", "100", 90, "100.00% > 90.00%"), ("mem", "99.996", 10, "100.00% > 10.00%"),
    ("disk", "100", 100, "100.00% > 100.00%"), ("cpu", "50", -100, "50.00% > -100.00%"),
    ("cpu", "1e30", 1, "1000000015047466219876688855040.00% > 1.00%")])
def test_values_longer_than_15_characters_abort_the_service(
        sandbox, udp_collector, perf_script, key, reading, threshold, values):
    perf_script.answer(f"{key}={reading}\n")
    service = begin_service(sandbox, "perfMon", **{f"{key}Threshold": threshold})
    service.wait()
    assert service.ended_by == signal.SIGABRT
    assert service.stderr == f"Performance values do not fit 15 characters: {values}\n"
    assert udp_collector.messages == []


def test_long_values_of_an_event_that_is_not_raised_do_not_abort_the_service(
        sandbox, udp_collector, perf_script):
    assert events_of(sandbox, udp_collector, perf_script, "cpu=95\nmem=100\n",
                     "cpu=100\nmem=100\n", allowed=["perf01", "end"]) == [
        b"perf01 95.00% > 80.00%"]


def test_monitor_prints_nothing_of_its_own(sandbox, udp_collector, perf_script):
    perf_script.answer("cpu=81\nmem=82\n")
    service = start(sandbox)
    before = service.lines.index("Starting monitor: Performance Monitor")
    udp_collector.wait_for(2)
    perf_script.wait_for_more_runs(2)
    assert [line for line in service.lines[before + 1:] if line != "> Process events"] == [
        ">>> perf01 81.00% > 80.00%", ">>> perf02 82.00% > 80.00%"]
    assert service.stderr == ""
