"""What the template makes of an event, byte for byte at the collector: the texts that come from the
environment. What a template may look like is a matter of the unit tests."""

import pytest

from support.records import make_record
from support.sandbox import ROW

SECONDS = 1700000000  # 14 November 2023, 22:13:20 UTC
MARCH = 1709287200  # 1 March 2024, 10:00:00 UTC


def deliver(sandbox, collector, template, record=make_record("perf01", "95,80", SECONDS), row=ROW,
            env=None, **settings):
    """The line that one event becomes."""
    sandbox.start_forwarding_service(
        row, formatString=template, env={"TZ": "UTC", **(env or {})}, facility=16, **settings)
    sandbox.send_bytes(record)
    return collector.wait_for(1)[0]


def test_default_template_gives_priority_date_host_and_event(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    line = deliver(
        sandbox, udp_collector, "<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])")
    assert line == (b"<132> Nov 14 22:13:20 tc-0042(192.168.1.20): perf01 CPU usage is high - "
                    b"95,80 (warn)")


def test_event_without_values_may_be_an_empty_line(sandbox, udp_collector):
    assert deliver(sandbox, udp_collector, "[VAL]", make_record("perf01")) == b""


@pytest.mark.parametrize("locale, month", [
    ("", "Mar"), ("C", "Mar"), ("de_DE.UTF-8", "März"), ("de_DE.ISO-8859-1", "März")])
def test_month_follows_the_locale(sandbox, udp_collector, locale, month):
    line = deliver(sandbox, udp_collector, "[DATE]", make_record("perf01", "", MARCH),
                   env={"LC_ALL": locale})
    assert line == f"{month} 01 10:00:00".encode()


def test_date_is_in_the_zone_of_the_environment(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[DATE]", env={"TZ": "Asia/Kolkata"})
    assert line == b"Nov 15 03:43:20"


def test_changed_time_zone_shows_without_a_restart(sandbox, udp_collector):
    sandbox.sh("ln -sf /usr/share/zoneinfo/Etc/UTC /etc/localtime")
    sandbox.start_forwarding_service(formatString="[DATE]", env=sandbox.short_pauses())
    sandbox.send_bytes(make_record("perf01", "", SECONDS))
    udp_collector.wait_for(1)
    sandbox.sh("ln -sf /usr/share/zoneinfo/Asia/Kolkata /etc/localtime")
    sandbox.send_bytes(make_record("perf01", "", SECONDS))
    assert udp_collector.wait_for(2) == [b"Nov 14 22:13:20", b"Nov 15 03:43:20"]


@pytest.mark.parametrize("locale", ["", "C", "de_DE.ISO-8859-1", "ja_JP.eucJP"])
def test_texts_are_utf8_whatever_the_locale(sandbox, udp_collector, locale):
    service = sandbox.start_forwarding_service(
        "perf01,CPU,Überlast 東京 🙂,ébène", formatString="[DESC] - [VAL] ([SEV])",
        env={"LC_ALL": locale})
    sandbox.send_bytes(make_record("perf01", b"gr\xc3\xbc\xc3\x9fe \xff"))
    line = "Überlast 東京 🙂 - grüße \ufffd (ébène)".encode()
    assert udp_collector.wait_for(1) == [line]
    assert service.stdout_bytes.endswith(b"\n>>> " + line + b"\n")


def test_identifier_above_ascii_is_one_event_for_the_intake_and_for_a_pass(sandbox, udp_collector):
    # Both look the two bytes up as two characters, and the settings name these.
    line = deliver(sandbox, udp_collector, "[DESC]", make_record("perf\u00e4"),
                   row="perfÃ¤,CPU,two characters,info", allowed=r"perf\xc3\xa4")
    assert line == b"two characters"
