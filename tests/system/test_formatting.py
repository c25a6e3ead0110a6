"""What the template makes of an event, byte for byte at the collector."""

import pytest

from support.records import make_record

ROW = "perf01,CPU,CPU usage is high,warn"
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "facility": 16}
SECONDS = 1700000000  # 14 November 2023, 22:13:20 UTC
MARCH = 1709287200  # 1 March 2024, 10:00:00 UTC


def deliver(sandbox, collector, template, record=make_record("perf01", "95,80", SECONDS), row=ROW,
            env=None, **settings):
    """The line that one event becomes."""
    sandbox.write_definitions(row)
    sandbox.write_settings(**{**SETTINGS, "formatString": template, **settings})
    sandbox.start_listening_service(env={"TZ": "UTC", **(env or {})})
    sandbox.send_bytes(record)
    return collector.wait_for(1)[0]


def test_default_template_gives_priority_date_host_and_event(sandbox, udp_collector):
    sandbox.add_interface("eth0", "192.168.1.20/24")
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service(env={"TZ": "UTC"})
    sandbox.send_bytes(make_record("perf01", "95,80", SECONDS))
    line = ("<132> Nov 14 22:13:20 tc-0042(192.168.1.20): perf01 CPU usage is high - 95,80 (warn)")
    assert udp_collector.wait_for(1) == [line.encode()]
    assert service.lines[-1] == f">>> {line}"


def test_template_without_tokens_is_sent_as_it_is(sandbox, udp_collector):
    assert deliver(sandbox, udp_collector, "something happened") == b"something happened"


def test_token_may_occur_twice_with_nothing_between(sandbox, udp_collector):
    assert deliver(sandbox, udp_collector, "[PRI][PRI]") == b"132132"


def test_all_tokens_in_any_order_are_replaced(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[IP]|[NAME]|[SEV]|[VAL]|[DESC]|[ID]|[DATE]|[PRI]")
    assert line == (b"127.0.0.1|tc-0042|warn|95,80|CPU usage is high|perf01|"
                    b"Nov 14 22:13:20|132")


def test_what_merely_resembles_a_token_stays(sandbox, udp_collector):
    assert deliver(sandbox, udp_collector, "[pri] [FOO] [ID") == b"[pri] [FOO] [ID"


def test_brackets_around_a_token_stay(sandbox, udp_collector):
    assert deliver(sandbox, udp_collector, "[[ID]] [PRI [VAL]]") == b"[perf01] [PRI 95,80]"


def test_event_without_values_may_be_an_empty_datagram(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[VAL]", make_record("perf01", "", SECONDS))
    assert line == b""


def test_event_without_values_may_be_an_empty_line_over_tcp(sandbox, tcp_collector):
    deliver(sandbox, tcp_collector, "[VAL]", make_record("perf01", "", SECONDS),
            protocol="syslog-tcp")
    assert tcp_collector.connections == [b"\n"]


def test_empty_template_gives_an_empty_datagram(sandbox, udp_collector):
    assert deliver(sandbox, udp_collector, "") == b""


def test_lowest_facility_and_severity_give_priority_zero(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "<[PRI]>[SEV]", row="perf01,CPU,high,emerg", facility=0)
    assert line == b"<0>emerg"


@pytest.mark.parametrize("facility, priority", [(16, b"127"), (0, b"-1")])
def test_unknown_severity_is_one_below_the_lowest(sandbox, udp_collector, facility, priority):
    line = deliver(sandbox, udp_collector, "<[PRI]>[SEV]", row="perf01,CPU,high,warning",
                   facility=facility)
    assert line == b"<" + priority + b">warning"


@pytest.mark.parametrize("severity, number", [
    ("emerg", 0), ("alert", 1), ("crit", 2), ("err", 3), ("warn", 4), ("notice", 5), ("info", 6),
    ("debug", 7)])
def test_priority_of_each_severity_is_that_of_syslog(sandbox, udp_collector, severity, number):
    line = deliver(sandbox, udp_collector, "[PRI]", row=f"perf01,CPU,high,{severity}", facility=1)
    assert line == str(8 + number).encode()


def test_priority_beyond_32_bits_wraps(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[PRI]", facility=268435456)  # times 8 is 2^31
    assert line == b"-2147483644"


def test_token_in_a_description_is_not_replaced(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[DESC]", row="perf01,CPU,since [DATE] at [IP],warn")
    assert line == b"since [DATE] at [IP]"


def test_token_in_values_is_not_replaced(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[VAL]", make_record("perf01", "[PRI],[DESC]"))
    assert line == b"[PRI],[DESC]"


def test_day_below_ten_has_a_leading_zero(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[DATE]", make_record("perf01", "", 1704431045))
    assert line == b"Jan 05 05:04:05"


def test_time_before_the_epoch_is_a_date_too(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[DATE]", make_record("perf01", "", -1))
    assert line == b"Dec 31 23:59:59"


def test_month_is_english_without_a_locale(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[DATE]", make_record("perf01", "", MARCH))
    assert line == b"Mar 01 10:00:00"


def test_month_follows_the_locale(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[DATE]", make_record("perf01", "", MARCH),
                   env={"LC_ALL": "de_DE.UTF-8"})
    assert line == "März 01 10:00:00".encode()


def test_date_is_in_the_zone_of_the_environment(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[DATE]", env={"TZ": "Asia/Kolkata"})
    assert line == b"Nov 15 03:43:20"


def test_changed_time_zone_shows_without_a_restart(sandbox, udp_collector):
    sandbox.sh("ln -sf /usr/share/zoneinfo/Etc/UTC /etc/localtime")
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS, formatString="[DATE]")
    sandbox.start_listening_service()
    sandbox.send_bytes(make_record("perf01", "", SECONDS))
    udp_collector.wait_for(1)
    sandbox.sh("ln -sf /usr/share/zoneinfo/Asia/Kolkata /etc/localtime")
    sandbox.send_bytes(make_record("perf01", "", SECONDS))
    assert udp_collector.wait_for(2) == [b"Nov 14 22:13:20", b"Nov 15 03:43:20"]


@pytest.mark.parametrize("locale", ["", "C", "de_DE.UTF-8", "de_DE.ISO-8859-1", "ja_JP.eucJP"])
def test_texts_are_utf8_whatever_the_locale(sandbox, udp_collector, locale):
    text = "grüße,東京,🙂"
    sandbox.write_definitions("perf01,CPU,Überlast 東京 🙂,ébène")
    sandbox.write_settings(**SETTINGS, formatString="[DESC] - [VAL] ([SEV])")
    service = sandbox.start_listening_service(env={"LC_ALL": locale})
    sandbox.send_bytes(make_record("perf01", text))
    line = f"Überlast 東京 🙂 - {text} (ébène)".encode()
    assert udp_collector.wait_for(1) == [line]
    assert service.stdout_bytes.endswith(b"\n>>> " + line + b"\n")


def test_bytes_that_are_no_utf8_become_replacement_characters(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[VAL]", make_record("perf01", b"a\xffb\xc3"))
    assert line == "a\ufffdb\ufffd".encode()


def test_identifier_without_an_end_runs_on_into_the_values(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[ID]|[VAL]", make_record("longcode", "more"),
                   row="longcodemore,LONG,Eight and more,info", allowed="longcodemore")
    assert line == b"longcodemore|more"


def test_values_without_an_end_run_on_into_the_time_only(sandbox, udp_collector):
    seconds = int.from_bytes(b"ABCDEFGH", "little")
    line = deliver(sandbox, udp_collector, "[VAL]", make_record("perf01", "v" * 128, seconds))
    assert line == b"v" * 128 + b"ABCDEFGH"


def test_values_of_full_length_are_whole(sandbox, udp_collector):
    line = deliver(sandbox, udp_collector, "[VAL]", make_record("perf01", "v" * 127, SECONDS))
    assert line == b"v" * 127
