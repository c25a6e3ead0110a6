"""What ov-event-check says about the collectors, and that the real rsyslog and syslog-ng do it."""

import dataclasses
import datetime

import pytest

from support import real_collectors
from support.answers import Check
from support.records import make_record
from support.sandbox import ROW, SETTINGS, UDP, Sandbox

COLLECTORS = {
    "rsyslog": ("rsyslog", real_collectors.start_rsyslog, real_collectors.RSYSLOG_PARSING),
    "syslog_ng": ("syslog-ng-core", real_collectors.start_syslog_ng,
                  real_collectors.SYSLOG_NG_PARSING)}
SENT = 1709287200  # 1 March 2024, 10:00
RFC_5424 = {"port": real_collectors.RFC_5424_PORT}
TCP = {"protocol": "syslog-tcp"}


@dataclasses.dataclass
class Case:
    """A template, whether the cause is found in it, and what the collectors read in the line of an
    event "perf01 95": host|program|priority|time|message."""
    template: str
    is_found: bool
    rsyslog: list
    syslog_ng: list = None  # the same
    settings: dict = dataclasses.field(default_factory=dict)

    def stored(self, collector):
        is_same = collector == "rsyslog" or self.syslog_ng is None
        return self.rsyslog if is_same else self.syslog_ng


CAUSES = {
    "warning no-header": [
        Case("<[PRI]>[ID] [VAL]", True, ["perf01|95|daemon.warning|received|"],
             ["127.0.0.1|perf01|daemon.warning|received|95"]),
        Case("<[PRI]>[DATE], [ID]", True, ["Mar|01|daemon.warning|received|10:00:00, perf01"],
             ["127.0.0.1|perf01|daemon.warning|sent|"]),
        Case("<[PRI]>  [DATE] [ID]: x", True,
             ["127.0.0.1||daemon.warning|received|Mar 01 10:00:00 perf01: x"],
             ["127.0.0.1|perf01|daemon.warning|sent|x"]),
        Case("<[PRI]>1 [ID]", True, ["127.0.0.1||daemon.warning|received|perf01"],
             ["127.0.0.1|1|daemon.warning|received|perf01"]),
        Case("<[PRI]>1 [DATE] [NAME] x - [ID] -", True,
             ["127.0.0.1||daemon.warning|received|Mar 01 10:00:00 tc-0042 x - perf01 -"],
             ["127.0.0.1|syslog-ng|syslog.err|received|Error processing log message: "
              "<28>1>@< Mar 01 10:00:00 tc-0042 x - perf01 -"], RFC_5424),
        Case("<[PRI]>1 - [NAME] x [DESC] [ID] - y", True,
             ["tc-0042|x|daemon.warning|received|is high perf01 - y"],
             ["127.0.0.1|syslog-ng|syslog.err|received|Error processing log message: "
              "<28>1 - tc-0042 x CPU usage>@< is high perf01 - y"], RFC_5424),
        Case("<[PRI]>[DATE] [NAME] ov-event-logger: [ID] [VAL]", False,
             ["tc-0042|ov-event-logger|daemon.warning|sent|perf01 95"]),
        Case("<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])", False,  # the default
             ["127.0.0.1|tc-0042(127.0.0.1)|daemon.warning|sent|"
              "perf01 CPU usage is high - 95 (warn)"]),
        Case("<[PRI]>[DATE]: [NAME] x: [ID]", False, ["tc-0042|x|daemon.warning|sent|perf01"]),
        Case("<[PRI]>1 - [NAME] ov-event-logger - [ID] - [VAL]", False,
             ["tc-0042|ov-event-logger|daemon.warning|received|95"], settings=RFC_5424),
        Case(r"<[PRI]>1 - [NAME] x - - [ov@1 id=\"[ID]\"] [VAL]", False,
             ["tc-0042|x|daemon.warning|received|95"], settings=RFC_5424)],
    "warning no-priority": [
        Case("[DATE] [NAME] x: [ID]", True, ["tc-0042|x|user.notice|sent|perf01"]),
        Case("[DATE] [NAME] x: <[PRI]> [ID]", True, ["tc-0042|x|user.notice|sent|<28> perf01"]),
        Case("<14>[DATE] [NAME] x: [ID]", True, ["tc-0042|x|user.info|sent|perf01"]),
        Case("<[PRI]>[DATE] [NAME] x: [ID]", False, ["tc-0042|x|daemon.warning|sent|perf01"])],
    "error starts-with-digit": [
        Case("[PRI] [ID] [VAL]", True, [], ["127.0.0.1|28|user.notice|received|perf01 95"], TCP),
        Case("5[ID] [VAL]", True,
             ["erf01||user.notice|received|", "127.0.0.1||user.notice|received|95"],
             ["127.0.0.1|5perf01|user.notice|received|95"], TCP),
        Case("<[PRI]>[ID]: [VAL]", False, ["127.0.0.1|perf01|daemon.warning|received|95"], [],
             {**TCP, **RFC_5424}),  # syslog() takes no line without its length
        Case("x[ID] [VAL]", False, ["xperf01|95|user.notice|received|"],
             ["127.0.0.1|xperf01|user.notice|received|95"], TCP),
        Case("5[ID] [VAL]", False, ["5perf01|95|user.notice|received|"],
             ["127.0.0.1|5perf01|user.notice|received|95"])],
    "error line-break": [
        Case(r"<[PRI]>[ID]: one\ntwo: [VAL]", True,
             ["127.0.0.1|perf01|daemon.warning|received|one",
              "127.0.0.1|two|user.notice|received|95"], settings=TCP),
        Case(r"<[PRI]>[ID]: one\rtwo: [VAL]", True,
             ["127.0.0.1|perf01|daemon.warning|received|one#015two: 95"],
             ["127.0.0.1|perf01|daemon.warning|received|one\rtwo: 95"], TCP),
        Case("<[PRI]>[ID]: one two: [VAL]", False,
             ["127.0.0.1|perf01|daemon.warning|received|one two: 95"], settings=TCP)]}


@pytest.fixture(params=COLLECTORS)
def collector(request):
    return request.param


@pytest.fixture
def sandbox(collector):
    """One in which the collector runs, with ov-event-check."""
    package, start, configuration = COLLECTORS[collector]
    box = Sandbox(keep=[Check.PROGRAM, real_collectors.unpacked(package)])
    box.has_invariant = False  # lines are cut and changed
    real_collectors.wait_until_listening(box, start(box, configuration), 4)
    yield box
    box.close()


def read(line):
    """What the collector has stored, with the time as the one that it took."""
    host, program, priority, time, message = line.decode(errors="replace").split("|", 4)
    if time[5:19] == "03-01T10:00:00":
        time = "sent"
    else:
        now = datetime.datetime.now(datetime.timezone.utc)
        if abs(now - datetime.datetime.fromisoformat(time)) < datetime.timedelta(hours=1):
            time = "received"
    return "|".join((host, program, priority, time, message.strip()))


def send_and_read(sandbox, stored):
    """Sends an event, of which all that is stored then are these lines, below those of before."""
    sandbox.send_bytes(make_record("perf01", "95", SENT))
    return [read(line) for line in real_collectors.wait_for_stored(sandbox, len(stored))]


@pytest.mark.parametrize("finding", CAUSES)
def test_collector_reads_the_lines_of_a_template_as_it_is_said(sandbox, collector, finding):
    check = Check(sandbox)
    service = sandbox.start_forwarding_service(env={"TZ": "UTC", **sandbox.short_pauses()})
    stored = []
    for cycle, case in enumerate(CAUSES[finding], 2):
        sandbox.reload(service, cycle, **{
            **UDP, "protocol": "syslog-udp", "formatString": f'"{case.template}"',
            **case.settings})
        found = [line for line in check.findings("--offline") if finding in line]
        assert found == [f"{finding} {SETTINGS}:4"] * case.is_found, case
        stored += case.stored(collector)
        assert send_and_read(sandbox, stored) == stored


def test_collector_knows_english_months_alone(sandbox, collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**UDP, "formatString": "<[PRI]>[DATE] [NAME] x: [ID]"})
    stored = []
    for locale, time in ("de_DE.UTF-8", "received"), ("C.UTF-8", "sent"):
        service = sandbox.start_listening_service(env={
            "LC_ALL": locale, "TZ": "UTC", **sandbox.short_pauses()})
        is_found = "warning month-names" in Check(sandbox).findings()
        assert is_found == (time == "received")
        stored.append(time)
        assert [line.split("|")[3] for line in send_and_read(sandbox, stored)] == stored
        service.kill()
        sandbox.sh("rm /tmp/ov-events")
