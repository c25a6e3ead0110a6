"""What ov-event-check says about the two files, and that the real service does what it says."""

import dataclasses

import pytest

from support.answers import Check
from support.collectors import TcpCollector, UdpCollector
from support.polling import wait_until
from support.sandbox import DEFINITIONS, FALLBACK_DEFINITIONS, SETTINGS

BASE = {"host": "127.0.0.1", "port": "5514", "formatString": '"<[PRI]>[ID] [VAL]"',
        "allowed": "perf01"}
ROW = "perf01,CPU,CPU usage is high,warn"
LINE = b"<28>perf01 95"


def settings(culprit, is_last=False):
    """The lines of `culprit`, which are bytes or text, and those of BASE whose keys it lacks."""
    culprit = culprit if isinstance(culprit, bytes) else culprit.encode()
    base = "".join(f"{key}={value}\n" for key, value in BASE.items()
                   if is_last or f"{key}=".encode() not in culprit).encode()
    return base + culprit + b"\n" if is_last else culprit + b"\n" + base


@dataclasses.dataclass
class Case:
    """Settings with one cause in them, and settings near them without it."""
    cause: str
    culprit: object
    arrives: list  # what a client's event "perf01 95" becomes
    near: object
    near_arrives: list = dataclasses.field(default_factory=lambda: [LINE])
    level: str = "error"
    line: int = 1
    is_last: bool = False
    rows: tuple = (ROW,)
    collector: type = UdpCollector
    event: str = None  # if it is not perf01

    def __str__(self):
        return self.cause


SETTINGS_CASES = [
    Case("list-value", "allowed=perf01,sys05", [], "allowed=perf01"),
    Case("list-value", "formatString=[ID],[VAL]", [b""], 'formatString="[ID],[VAL]"',
         [b"perf01,95"]),
    Case("list-value", "port=5514,5515", [], "port=5514"),
    Case("cut-at-semicolon", 'allowed=; perf01', [], 'allowed="perf01" ; sys05'),
    Case("cut-at-semicolon", "formatString=[ID];[VAL]", [b"perf01"], 'formatString="[ID];[VAL]"',
         [b"perf01;95"]),
    Case("cut-at-semicolon", "host=127.0.0.1;x", [LINE], "host=localhost ; x"),
    Case("changed-by-escape", r"formatString=[ID]\[[VAL]", [b"perf0195"],
         r"formatString=[ID]\\\"\x5b[VAL]", [b'perf01\\"[95']),
    Case("changed-by-escape", r'formatString="Stra\xdfe[ID]"', ["Stra\u0dfeperf01".encode()],
         r'formatString="Stra\xdf""e[ID]"', ["Straßeperf01".encode()]),
    Case("changed-by-escape", "protocol=syslog-udp\\\nallowed=perf01", [],
         "protocol=syslog-udp\nallowed=perf01 \\\nsys05"),
    Case("changed-by-escape", 'formatString=x="[ID]" [VAL]', [b"x=perf0195"],
         r'formatString="x=\"[ID]\" [VAL]"', [b'x="perf01" 95']),
    Case("special-value", "formatString=@Invalid()", [b""], "formatString=@Size([ID])",
         [b"@Size(perf01)"]),
    Case("special-value", "formatString=@@[ID]", [b"@perf01"], "formatString=@-[ID]",
         [b"@-perf01"]),
    Case("special-value", "formatString=@ByteArray([ID])", [b"perf01"],
         "formatString=@Bytes([ID])", [b"@Bytes(perf01)"]),
    Case("not-latin1", "formatString=ü[ID]", ["Ã¼perf01".encode()], r"formatString=\xfc[ID]",
         ["üperf01".encode()]),
    Case("byte-order-mark", "\ufeffallowed=perf01", [], "allowed=perf01"),
    Case("byte-order-mark", "\ufeffallowed=perf01", [], "\ufeff; comment\nallowed=perf01"),
    Case("key-in-section", "\ufeff[Network]\nallowed=perf01", [], "\ufeff[General]\nallowed=perf01",
         line=2),
    Case("key-in-section", "[Network]\nformatString=[ID]", [LINE], "[General]\nformatString=[ID]",
         [b"perf01"], line=6, is_last=True),
    Case("unknown-key", "Allowed=perf01\nallowed=", [], "allowed=perf01", level="warning"),
    Case("unknown-key", "a line\nallowed=perf01", [LINE], "; a line\nallowed=perf01 sys05",
         level="warning"),
    Case("hash-comment", '# say "no', [], '; say "no', level="warning"),
    Case("repeated-key", "formatString=[VAL]\nformatString=[ID]", [b"perf01"],
         "formatString=[VAL]", [b"95"], level="warning"),
    Case("not-a-number", "facility=1x", [LINE], "facility=1", [b"<12>perf01 95"]),
    Case("out-of-range", "facility=24", [b"<196>perf01 95"], "facility=23", [b"<188>perf01 95"]),
    Case("out-of-range", f"port={65536 + 5514}", [LINE], "port=5514"),
    Case("unknown-protocol", "protocol=SYSLOG-TCP", [LINE], "protocol=syslog-udp"),
    Case("no-host", "host=", [], "host=127.0.0.1"),
    Case("host-not-ipv4", "host=127.0.0.1:5514", [], "host=127.0.0.1"),
    Case("host-not-ipv4", "host=127.0.0.300", [], "host=localhost"),
    Case("host-not-ipv4", "host='127.0.0.1'", [], "host=127.1"),
    Case("nothing-allowed", "allowed=", [], "allowed=perf01"),
    Case("allowed-separator", 'allowed="perf01,sys05"', [], "allowed=perf01"),
    Case("allowed-case", "allowed=PERF01", [], "allowed=perf01"),
    Case("unknown-token", "formatString=[pri] [ID]", [b"[pri] perf01"], "formatString=[PRI] [ID]",
         [b"28 perf01"], level="warning"),
    Case("no-priority", "formatString=[ID]", [b"perf01"], "formatString=<[PRI]>[ID]",
         [b"<28>perf01"], level="warning"),
    Case("no-header", "formatString=<[PRI]>[ID]", [b"<28>perf01"],
         "formatString=<[PRI]>1 - - - - [ID] -", [b"<28>1 - - - - perf01 -"], level="warning"),
    Case("unknown-token", "formatString={ID} [HOST-NAME]", [b"{ID} [HOST-NAME]"],
         "formatString=[ID] 100%", [b"perf01 100%"], level="warning"),
    Case("starts-with-digit", "formatString=[VAL][ID]\nprotocol=syslog-tcp", [b"95perf01"],
         "formatString=[SEV][ID]\nprotocol=syslog-tcp", [b"warnperf01"], collector=TcpCollector),
    Case("starts-with-digit", "formatString=5[ID]\nprotocol=syslog-tcp", [b"5perf01"],
         "formatString=x[ID]\nprotocol=syslog-tcp", [b"xperf01"], collector=TcpCollector),
    Case("line-break", r"formatString=[ID]\n[VAL]", [b"perf01\n95"], r"formatString=[ID] [VAL]",
         [b"perf01 95"]),
    Case("no-event-id", "formatString=<[PRI]>", [b"<28>"], "formatString=[ID]", [b"perf01"],
         level="warning"),
]


def arrived(collector):
    return collector.lines if isinstance(collector, TcpCollector) else collector.messages


def raise_and_see(sandbox, service, collector, lines):
    """Raises one event, of which all that has arrived then are these lines."""
    taken_in = service.lines.count("> Received event")
    sandbox.send("perf01", "95")
    service.wait_for_line("> Received event", taken_in + 1)
    service.wait_for_pauses(1)
    wait_until(lambda: len(arrived(collector)) >= len(lines), lambda: arrived(collector))
    assert arrived(collector) == lines


@pytest.mark.parametrize("case", SETTINGS_CASES, ids=str)
def test_cause_in_the_settings_is_found_with_its_line_and_does_what_it_says(sandbox, case):
    check = Check(sandbox)
    collector = case.collector(sandbox)
    sandbox.write_definitions(*case.rows)

    sandbox.write_settings_bytes(settings(case.culprit, case.is_last))
    assert f"{case.level} {case.cause} {SETTINGS}:{case.line}" in check.findings("--offline")
    service = sandbox.start_listening_service(env=sandbox.short_pauses())
    raise_and_see(sandbox, service, collector, case.arrives)

    sandbox.write_settings_bytes(settings(case.near, case.is_last))
    assert [line for line in check.findings("--offline") if case.cause in line] == []
    service.wait_for_cycle(2)
    raise_and_see(sandbox, service, collector, case.arrives + case.near_arrives)


DEFINITIONS_CASES = [
    Case("too-few-columns", ["perf01,CPU,warn"], [], [ROW]),
    Case("too-many-columns", ["perf01,CPU,high, very,warn"], [b"perf01 high very <23>"],
         ["perf01,CPU,high very,warn"], [b"perf01 high very warn <28>"], level="warning"),
    Case("unknown-severity", ["perf01,CPU,high,warning"], [b"perf01 high warning <23>"],
         ["perf01,CPU,high,warn"], [b"perf01 high warn <28>"]),
    Case("bad-id", ["perf0123,CPU,high,warn"], [], [ROW], event="perf0123"),
    Case("bad-id", ['"prf01",CPU,high,warn'], [], [ROW], event="prf01"),
    Case("bad-id", [",CPU,high,warn"], [], [ROW], event=""),
    Case("bad-id", ["perf 1,CPU,high,warn"], [], [ROW], event="perf 1"),
    Case("bad-id", ["p\u00e4rf1,CPU,high,warn"], [], [ROW], event="p\u00e4rf1"),
    Case("repeated-id", ["perf01,CPU,first,warn", "perf01,CPU,second,info"],
         [b"perf01 second info <30>"], ["perf01,CPU,first,warn"], [b"perf01 first warn <28>"],
         level="warning"),
    Case("indented-comment", [" # perf01,CPU,high,warn"], [], [ROW]),
    Case("indented-comment", ["; perf01,CPU,high,warn"], [], [ROW]),
    Case("header-row", ["id,label,description,severity"], [b"id description severity <23>"],
         ["# id,label,description,severity", ROW], level="warning", event="id"),
    Case("line-too-long", ["perf01,CPU," + "x" * 1010 + ",warn"],
         [b"perf01 " + b"x" * 1010 + b" warn <28>"], [ROW], level="warning"),
]


@pytest.mark.parametrize("case", DEFINITIONS_CASES, ids=str)
def test_cause_in_the_definitions_is_found_with_its_line_and_does_what_it_says(
        sandbox, udp_collector, case):
    check = Check(sandbox)
    sandbox.write_settings(**{**BASE, "allowed": f'"perf01 {case.event or "perf01"}"',
                              "formatString": "[ID] [DESC] [SEV] <[PRI]>"})
    sandbox.write_definitions("# a comment", *case.culprit)
    assert f"{case.level} {case.cause} {DEFINITIONS}:2" in check.findings("--offline")
    service = sandbox.start_listening_service(env=sandbox.short_pauses())
    sandbox.send("perf01" if case.event is None else case.event, "95")
    service.wait_for_line("> Received event")
    service.wait_for_pauses(1)
    assert udp_collector.wait_for(len(case.arrives)) == case.arrives

    sandbox.write_definitions("# a comment", *case.near)
    assert [line for line in check.findings("--offline") if case.cause in line] == []
    service.kill()
    sandbox.sh("rm -f /tmp/ov-events")
    if case.near_arrives != [LINE]:
        sandbox.start_listening_service(env=sandbox.short_pauses())
        sandbox.send("perf01", "95")
        udp_collector.wait_for(len(case.arrives + case.near_arrives))
        assert udp_collector.messages == case.arrives + case.near_arrives


def test_missing_definitions_are_an_error_and_every_event_is_dropped(sandbox):
    sandbox.write_settings(**BASE)
    check = Check(sandbox)
    assert f"error no-definitions {DEFINITIONS}" in check.findings("--offline")
    service = sandbox.start_listening_service()
    sandbox.send("perf01", "95")
    service.wait_for_line("Event perf01 is not defined")
    sandbox.write_definitions(ROW, path=FALLBACK_DEFINITIONS)
    assert "no-definitions" not in "".join(check.findings("--offline"))


def test_fallback_beside_the_definitions_adds_nothing(sandbox):
    sandbox.write_settings(**BASE)
    sandbox.write_definitions("sys05,label,text,info")
    check = Check(sandbox)
    assert "fallback-unused" not in "".join(check.findings("--offline"))
    sandbox.write_definitions(ROW, path=FALLBACK_DEFINITIONS)
    assert f"note fallback-unused {FALLBACK_DEFINITIONS}" in check.findings("--offline")
    sandbox.sh(f"ln -sf {DEFINITIONS} {FALLBACK_DEFINITIONS}")
    assert "fallback-unused" not in "".join(check.findings("--offline"))
    service = sandbox.start_listening_service()
    sandbox.send("perf01", "95")
    service.wait_for_line("Event perf01 is not defined")


def test_unreadable_definitions_are_an_error_and_every_event_is_dropped(sandbox):
    sandbox.write_settings(**BASE)
    sandbox.sh(f"mkfifo {DEFINITIONS}")
    assert f"error unreadable-definitions {DEFINITIONS}" in Check(sandbox).findings("--offline")
    sandbox.sh(f"rm {DEFINITIONS}; mkdir {DEFINITIONS}")
    assert f"error unreadable-definitions {DEFINITIONS}" in Check(sandbox).findings("--offline")
    service = sandbox.start_listening_service()
    sandbox.send("perf01", "95")
    service.wait_for_line("Event perf01 is not defined")


def test_missing_settings_are_an_error_and_every_event_is_dropped(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    check = Check(sandbox)
    assert f"error no-settings {SETTINGS}" in check.findings("--offline")
    service = sandbox.start_listening_service(env=sandbox.short_pauses())
    raise_and_see(sandbox, service, udp_collector, [])
    sandbox.write_settings(**BASE)
    assert "no-settings" not in "".join(check.findings("--offline"))


@pytest.mark.parametrize("defined", [False, True])
def test_event_that_is_allowed_and_not_defined_is_dropped(sandbox, udp_collector, defined):
    sandbox.write_settings(**{**BASE, "allowed": "perf01 perf09"})
    sandbox.write_definitions(ROW, *["perf09,label,text,info"] * defined)
    findings = Check(sandbox).findings("--offline")
    assert (f"error allowed-not-defined {SETTINGS}:4" in findings) == (not defined)
    service = sandbox.start_listening_service(env=sandbox.short_pauses())
    sandbox.send("perf09", "1")
    sandbox.send("perf01", "2")
    expected = [b"<30>perf09 1"] * defined + [b"<28>perf01 2"]
    assert udp_collector.wait_for(len(expected)) == expected
    assert ("Event perf09 is not defined" in service.lines) == (not defined)


@pytest.mark.parametrize("allowed, arrives", [
    ("perf01", []), ("perf01 sys05", [b"<30>sys05 usb1"])], ids=["none", "one"])
def test_monitor_raises_only_what_is_allowed(sandbox, udp_collector, usb_script, allowed, arrives):
    usb_script.answer("usb1\n")
    sandbox.write_definitions(ROW, "sys05,label,text,info")
    sandbox.write_settings(**{**BASE, "allowed": allowed, "usbDevMon": 1})
    findings = Check(sandbox).findings("--offline")
    assert (f"warning monitor-without-event {SETTINGS}:5" in findings) == (arrives == [])
    sandbox.start_listening_service(env=sandbox.short_pauses())
    usb_script.wait_for_runs(2)
    sandbox.send("perf01", "95")
    assert udp_collector.wait_for(len(arrives) + 1) == [*arrives, LINE]


@pytest.mark.parametrize("is_on", [False, True])
def test_event_whose_monitor_is_off_comes_from_a_client_alone(
        sandbox, udp_collector, usb_script, is_on):
    usb_script.answer("usb1\n")
    sandbox.write_definitions("sys05,label,text,info")
    sandbox.write_settings(**{**BASE, "allowed": "sys05", "usbDevMon": int(is_on)})
    findings = Check(sandbox).findings("--offline")
    assert (f"note event-without-monitor {SETTINGS}:4" in findings) == (not is_on)
    sandbox.start_listening_service(env=sandbox.short_pauses())
    if is_on:
        usb_script.wait_for_runs(2)
    sandbox.send("sys05", "x")
    expected = [b"<30>sys05 usb1"] * is_on + [b"<30>sys05 x"]
    assert udp_collector.wait_for(len(expected)) == expected
