"""What the settings file says and how it shows: printed at each start of a cycle, and at the
collector."""

import pytest

from support.collectors import TcpCollector, UdpCollector
from support.polling import wait_until

ROWS = ["perf01,CPU,high,emerg", "sys05,USB,added,emerg", "sec03,SEC,in,emerg"]
TEMPLATE = "[PRI] [ID] [VAL]"
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": TEMPLATE}
LISTENING = "Server is listening on /tmp/ov-events"


def start_service(sandbox, content=None, **settings):
    sandbox.write_definitions(*ROWS)
    if content is None:
        sandbox.write_settings(**{**SETTINGS, **settings})
    else:
        sandbox.write_settings_bytes(content)
    return sandbox.start_listening_service(env=sandbox.eager())


def printed_settings(sandbox, content):
    """What a service prints about a settings file, in no particular order."""
    service = start_service(sandbox, b"host=127.0.0.1\n" + content)
    wait_until(lambda: "host: 127.0.0.1" in service.lines, lambda: service.stdout)
    service.wait_for_pauses(50)
    assert service.stderr == ""
    lines = service.lines[service.lines.index(LISTENING) + 1:]
    lines.remove("host: 127.0.0.1")
    return sorted(lines)


def reload(sandbox, service, cycle, **settings):
    sandbox.write_settings(**settings, cycle=cycle)
    service.wait_for_cycle(cycle)


# Defaults

def test_without_a_file_there_is_no_host_and_no_event_is_allowed(sandbox):
    sandbox.write_definitions(*ROWS)
    service = sandbox.start_listening_service(env=sandbox.eager())
    client = sandbox.send("perf01")
    service.wait_for_line(client.lines[0])
    service.wait_for_pauses(50)
    reload(sandbox, service, 2, **SETTINGS)
    assert service.lines[6] == "Invalid IP address or hostname: Name or service not known"
    assert not any(line.startswith(">>>") for line in service.lines)


def test_template_facility_protocol_and_port_have_defaults(sandbox):
    collector = UdpCollector(sandbox, port=514)
    start_service(sandbox, b"allowed=perf01\nhost=127.0.0.1\n")
    client = sandbox.send("perf01", "95")
    moment = int(client.lines[0].rsplit(" ", 1)[1])
    date = sandbox.run("date", "-d", f"@{moment}", "+%b %d %T").stdout.strip()
    assert collector.wait_for(1) == [
        f"<24> {date} tc-0042(127.0.0.1): perf01 high - 95 (emerg)".encode()]


def test_event_that_no_setting_allows_is_not_forwarded(sandbox, udp_collector):
    service = start_service(sandbox, b"host=127.0.0.1\nport=5514\nformatString=[VAL]\n")
    client = sandbox.send("perf01", "before")
    service.wait_for_line(client.lines[0])
    service.wait_for_pauses(50)
    reload(sandbox, service, 2, **SETTINGS)
    sandbox.send("perf01", "after")
    assert udp_collector.wait_for(1) == [b"24 perf01 after"]


# The file and its entries

@pytest.mark.parametrize("content, printed", [
    (b"", []),
    (b"facility=16\nport=5514\n", ["facility: 16", "port: 5514"]),
    (b"unknown=some text\nport=abc\n", ["port: abc", "unknown: some text"]),
    (b"  port =  5514  \n\n; a comment\n", ["port: 5514"]),
    (b"port=1\nport=2\n", ["port: 2"]),
    (b"[General]\nport=5514\n", ["port: 5514"]),
    (b"[net]\nport=5514\n", ["net/port: 5514"]),
    (b'formatString="<[PRI]>, [ID]"\n', ["formatString: <[PRI]>, [ID]"]),
    (b"formatString=[ID], [VAL]\n", ["formatString: "]),
    (b"formatString=[ID]\\t\\x41\n", ["formatString: [ID]\tA"]),
    (b"formatString=gr\\xf6\\xdf\\x8d85\n", ["formatString: größ超"]),
    (b"formatString=100%s%n\n", ["formatString: 100%s%n"]),
    (b"%E4=1\n", ["ä: 1"]),
    (b"allowed=\n", ["allowed: "]),
    (b"not an entry\n", []),
], ids=["empty", "known", "unknown-and-invalid", "white-space", "twice", "general-section",
        "other-section", "quoted", "unquoted-comma", "escapes", "unicode-escapes", "percent",
        "percent-key", "empty-value", "no-entry"])
def test_every_entry_is_printed_as_the_ini_reader_gives_it(sandbox, content, printed):
    assert printed_settings(sandbox, content) == printed


def test_entries_are_printed_after_the_service_listens(sandbox):
    service = start_service(sandbox, b"host=127.0.0.1\n")
    service.wait_for_line("host: 127.0.0.1")
    assert service.lines[-2:] == [LISTENING, "host: 127.0.0.1"]


# Which events are allowed

@pytest.mark.parametrize("allowed, forwarded", [
    ("perf01 sys05", ["perf01", "sys05"]),
    ("sec03", ["sec03"]),
    ("  perf01   sec03  ", ["perf01", "sec03"]),
    ("perf01 perf01", ["perf01"]),
    ('"\\tperf01 sys05\\t"', ["perf01", "sys05"]),
    ("perf01,sys05 sec03", []),
    ('"perf01,sys05 sec03"', ["sec03"]),
    ("PERF01 perf0 perf011 sys05", ["sys05"]),
    ("", []),
], ids=["two", "one", "several-blanks", "twice", "trimmed", "comma", "quoted-comma", "exact",
        "none"])
def test_allowed_events_are_those_between_blanks(sandbox, udp_collector, allowed, forwarded):
    service = start_service(sandbox, allowed=allowed)
    for event in "perf01", "sys05", "sec03":
        sandbox.send(event, "a")
    service.wait_for_line("> Received event", 3)
    service.wait_for_pauses(50)
    reload(sandbox, service, 2, **{**SETTINGS, "allowed": "sec03"})
    sandbox.send("sec03", "end")
    arrived = udp_collector.wait_for(len(forwarded) + 1)
    assert arrived == [f"24 {event} a".encode() for event in forwarded] + [b"24 sec03 end"]


# Numbers

@pytest.mark.parametrize("text, facility", [
    ("16", 16), ("0", 0), ("-1", -1), ("+4", 4), ("007", 7), ("1000", 1000),
    ("8o", 3), ("true", 3), ("0x10", 3), ("", 3), ("4.0", 3), ("99999999999", 3)])
def test_facility_is_a_decimal_integer_or_stays_3(sandbox, udp_collector, text, facility):
    start_service(sandbox, facility=text)
    sandbox.send("perf01", "a")
    assert udp_collector.wait_for(1) == [f"{facility * 8} perf01 a".encode()]


@pytest.mark.parametrize("text", ["0x10", "abc", "", "5514.0", "2147483648"])
def test_port_that_is_no_decimal_integer_stays_514(sandbox, text):
    collector = UdpCollector(sandbox, port=514)
    start_service(sandbox, port=text)
    sandbox.send("perf01", "a")
    assert collector.wait_for(1) == [b"24 perf01 a"]


def test_number_that_becomes_invalid_keeps_its_last_value(sandbox, udp_collector):
    service = start_service(sandbox, facility=16)
    reload(sandbox, service, 2, **{**SETTINGS, "facility": "many", "port": "none"})
    sandbox.send("perf01", "a")
    assert udp_collector.wait_for(1) == [b"128 perf01 a"]


# Protocol

@pytest.mark.parametrize("protocol", ["syslog-udp", "tcp", "SYSLOG-TCP", "syslog-tcp2", "1", ""])
def test_any_protocol_but_syslog_tcp_is_udp(sandbox, udp_collector, protocol):
    start_service(sandbox, protocol=protocol)
    sandbox.send("perf01", "a")
    assert udp_collector.wait_for(1) == [b"24 perf01 a"]


def test_protocol_syslog_tcp_is_tcp(sandbox, tcp_collector):
    start_service(sandbox, protocol="syslog-tcp")
    sandbox.send("perf01", "a")
    assert tcp_collector.wait_for(1) == [b"24 perf01 a"]


def test_unknown_protocol_in_place_of_tcp_goes_back_to_udp(sandbox, udp_collector):
    service = start_service(sandbox, protocol="syslog-tcp")
    reload(sandbox, service, 2, **SETTINGS, protocol="other")
    sandbox.send("perf01", "a")
    assert udp_collector.wait_for(1) == [b"24 perf01 a"]


# Keys

def test_keys_are_matched_with_their_case(sandbox, udp_collector):
    service = start_service(sandbox, Facility=16, FORMATSTRING="x", Allowed="sys05")
    sandbox.send("perf01", "a")
    assert udp_collector.wait_for(1) == [b"24 perf01 a"]
    assert {"Facility: 16", "FORMATSTRING: x", "Allowed: sys05"} <= set(service.lines)


def test_key_in_a_named_section_has_no_effect(sandbox, udp_collector):
    content = "".join(f"{key}={value}\n" for key, value in SETTINGS.items())
    start_service(sandbox, content.encode() + b"[more]\nfacility=16\nformatString=x\nport=9\n")
    sandbox.send("perf01", "a")
    assert udp_collector.wait_for(1) == [b"24 perf01 a"]


def test_key_in_the_general_section_counts(sandbox, udp_collector):
    content = "".join(f"{key}={value}\n" for key, value in SETTINGS.items())
    start_service(sandbox, b"[General]\nfacility=16\n" + content.encode())
    sandbox.send("perf01", "a")
    assert udp_collector.wait_for(1) == [b"128 perf01 a"]


def test_removed_keys_keep_their_last_values(sandbox, udp_collector):
    service = start_service(sandbox, facility=16)
    reload(sandbox, service, 2)
    sandbox.send("perf01", "a")
    sandbox.send("sys05", "b")
    sandbox.send("perf01", "c")
    assert udp_collector.wait_for(2) == [b"128 perf01 a", b"128 perf01 c"]


def test_removed_protocol_keeps_its_last_value(sandbox):
    collector = TcpCollector(sandbox)
    service = start_service(sandbox, protocol="syslog-tcp")
    reload(sandbox, service, 2)
    sandbox.send("perf01", "a")
    assert collector.wait_for(1) == [b"24 perf01 a"]


def test_changed_values_hold_from_the_next_cycle_on(sandbox):
    first, second = UdpCollector(sandbox), UdpCollector(sandbox, address="127.0.0.2", port=5515)
    service = start_service(sandbox)
    sandbox.send("perf01", "a")
    assert first.wait_for(1) == [b"24 perf01 a"]
    reload(sandbox, service, 2, host="127.0.0.2", port=5515, facility=1, allowed="sys05",
           formatString="new [PRI] [ID]")
    sandbox.send("perf01")
    sandbox.send("sys05")
    assert second.wait_for(1) == [b"new 8 sys05"]
    assert first.messages == [b"24 perf01 a"]
