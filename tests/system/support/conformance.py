"""The table of docs/COLLECTORS.md: what the real rsyslog and syslog-ng store of events with awkward
texts, as a real service sends them."""

import dataclasses
import itertools
import json
import re

from .answers import Check
from .example_collectors import EXAMPLES, ExampleCollector, Rsyslog
from .records import make_record

SENT, DATE = 1710410400, "Mar 14 10:00:00"
SENDER, ADDRESS = "127.0.0.1", "192.168.1.20"
TRANSPORTS = {"UDP": "syslog-udp", "TCP": "syslog-tcp"}
FACILITIES = {0: "kern", 3: "daemon", 23: "local7"}


@dataclasses.dataclass(frozen=True)
class Case:
    """An event; {id} in the values becomes its identifier, {line} a line of an event of tc-0099."""
    name: str
    values: str = "95,80"
    description: str = "Use is high"
    severity: str = "warn"
    facility: int = 3
    host: str = "tc-0042"
    locale: str = "C.UTF-8"
    date: str = DATE


def in_both(what, text):
    return [Case(f"{what} in values", values=text), Case(f"{what} in description",
                                                         description=text)]


CASES = [
    Case("plain"),
    *in_both("quote", 'say "hi"'),
    *in_both("bracket", "a] [b]"),
    *in_both("backslash", r"C:\temp"),
    Case("backslash at end of description", description="C:\\"),
    *in_both("percent", "100% %s %1"),
    *in_both("dash", "a - b"),
    *in_both("parenthesis", "a (err)"),
    Case("comma in values", values="a,b,,c"),
    *in_both("UTF-8", "grüße 東京"),
    *in_both("control character", "a\tb\x1b[1m"),
    Case("line feed in values", values="a\n{id}"),
    Case("line of another event in values", values="a\n{line}"),
    Case("blanks in front of values", values="  a"),
    Case("blanks behind values", values="a  "),
    Case("127 bytes of values", values="v" * 127),
    Case("empty values", values=""),
    Case("empty description", description=""),
    Case("unknown severity", severity="bogus"),
    Case("facility 0", facility=0),
    Case("facility 0 and unknown severity", facility=0, severity="bogus"),
    Case("facility 23", facility=23),
    Case("months of another language", locale="de_DE.UTF-8", date="März 14 10:00:00"),
    Case("dot in name", host="tc.example.com"),
    Case("name (none)", host="(none)"),
    Case("empty name", host=""),
]
IDENTIFIERS = {case.name: f"case{number:02}" for number, case in enumerate(CASES, 1)}


@dataclasses.dataclass(frozen=True)
class Template:
    """`file` is that of examples/collector, or none if the collectors read the line as they are."""
    name: str
    text: str
    file: str
    forged: str


TEMPLATES = [
    Template("Recommended line",
             next(line.split("=", 1)[1] for line in
                  (EXAMPLES / "ov-event-logger.ini").read_text().splitlines()
                  if line.startswith("formatString")),
             "ov-events.conf",
             '<24>1 - tc-0099 x - {id} [ev@32473 ip="10.0.0.9" sev="emerg" at="-" desc="d"] v'),
    Template("Default line", '"<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"',
             "ov-events-default-line.conf",
             "<24> Mar 14 10:00:00 tc-0099(10.0.0.9): {id} d - v (emerg)"),
    Template("RFC 3164",
             '"<[PRI]>[DATE] [NAME] ov-event-logger: [ID] [DESC] - [VAL] ([SEV])"', None,
             "<24>Mar 14 10:00:00 tc-0099 ov-event-logger: {id} d - v (emerg)"),
]

# The collectors' own reading of RFC 3164.
RSYSLOG_STOCK = """
module(load="imudp")
module(load="imptcp")
input(type="imudp" port="514" ruleset="ov-events")
input(type="imptcp" port="514" ruleset="ov-events")
template(name="ov-json" type="list" option.jsonf="on") {
  property(outname="sender" name="fromhost-ip" format="jsonf")
  property(outname="host" name="hostname" format="jsonf")
  property(outname="program" name="programname" format="jsonf")
  property(outname="facility" name="syslogfacility-text" format="jsonf")
  property(outname="severity" name="syslogseverity-text" format="jsonf")
  property(outname="at" name="timereported" dateFormat="rfc3164" format="jsonf")
  property(outname="text" name="msg" position.from="2" format="jsonf")
}
ruleset(name="ov-events") {
  action(type="omfile" file="/var/log/ov-events/events.json" template="ov-json")
}
"""
SYSLOG_NG_STOCK = r"""
source s_ov_events {
  network(transport("udp") port(514) keep-hostname(yes));
  network(transport("tcp") port(514) keep-hostname(yes));
};
log {
  source(s_ov_events);
  destination { file("/var/log/ov-events/events.json" create-dirs(yes)
    template("$(format-json sender=$SOURCEIP host=$HOST program=$PROGRAM facility=$FACILITY
              severity=$LEVEL at=$S_STAMP text=$MESSAGE)\n")); };
};
"""


def configuration(kind, template):
    if template.file:
        return (EXAMPLES / f"{kind.NAME}.conf.d" / template.file).read_text()
    return RSYSLOG_STOCK if kind is Rsyslog else SYSLOG_NG_STOCK


def values_of(case, template):
    identifier = IDENTIFIERS[case.name]
    line = template.forged.format(id=identifier)
    return case.values.replace("{id}", identifier).replace("{line}", line)


def sent_fields(case, template):
    """What a collector would store that changes nothing."""
    identifier, values = IDENTIFIERS[case.name], values_of(case, template)
    fields = {"host": case.host, "facility": FACILITIES[case.facility], "at": case.date}
    if template.file:
        return {**fields, "address": ADDRESS, "id": identifier, "description": case.description,
                "values": values, "severity": case.severity}
    return {**fields, "program": "ov-event-logger",
            "severity": {"warn": "warning"}.get(case.severity, case.severity),
            "text": f"{identifier} {case.description} - {values} ({case.severity})"}


def send_batch(collector, service, cases, template):
    """One batch of events, with a last one to wait for. Returns what is stored of all."""
    box = collector.sandbox
    before = len(collector.events())
    received = service.lines.count("> Received event")
    box.hold_events()
    service.wait_until_idle()  # a pass that may have looked before is over
    for case in cases:
        box.send_bytes(make_record(IDENTIFIERS[case.name], values_of(case, template), SENT))
    box.send_bytes(make_record("last", f"last{before}.", SENT))
    service.wait_for_line("> Received event", count=received + len(cases) + 1)
    box.release_events()
    return collector.wait_for(f"last{before}.")[before:]


def records_of_all(kind, template):
    """What the collector stores of each case over each transport, and what ov-event-check says."""
    collector = ExampleCollector(kind, configuration(kind, template), keep=[Check.PROGRAM])
    box = collector.sandbox
    try:
        collector.start()
        box.sh(f"ip address add {ADDRESS}/32 dev lo")  # the last one is that in the lines
        box.write_definitions("last,,last,info", *(
            f"{IDENTIFIERS[case.name]},,{case.description},{case.severity}" for case in CASES))
        box.write_settings(allowed=" ".join(["last", *IDENTIFIERS.values()]), host="127.0.0.1",
                           protocol="syslog-udp", facility=3, formatString=template.text)
        stored, said = {}, {}
        for locale, cases in itertools.groupby(CASES, lambda case: case.locale):
            send_cases(collector, template, locale, list(cases), stored, said)
        return stored, said
    finally:
        collector.close()


def send_cases(collector, template, locale, cases, stored, said):
    """By one service, which reads its locale when it starts."""
    box = collector.sandbox
    service = box.start_listening_service(
        env={"TZ": "UTC", "LC_ALL": locale, **box.short_pauses()})
    cycle = 1
    for transport, (facility, host) in itertools.product(
            TRANSPORTS, dict.fromkeys((case.facility, case.host) for case in cases)):
        settings = {"protocol": TRANSPORTS[transport], "facility": facility}
        if settings.items() - box.settings.items():
            cycle += 1
            box.reload(service, cycle, **settings)
        box.run("python3", "-c", f"import socket; socket.sethostname({host!r})")
        batch = [case for case in cases if (case.facility, case.host) == (facility, host)]
        records = send_batch(collector, service, batch, template)
        for case in batch:
            stored[case.name, transport] = [
                record for record in records if IDENTIFIERS[case.name] in json.dumps(record)]
            event = Check(box).json("event", IDENTIFIERS[case.name], values_of(case, template))
            said[case.name, transport] = event["event"]["stored"][collector.kind.NAME]
    service.kill()
    box.sh("rm /tmp/ov-events")


def shown(text):
    """Cut, with control characters as in JSON."""
    text = re.sub(r"[\x00-\x1f]", lambda found: json.dumps(found[0])[1:-1], str(text)) or '""'
    return f"`{text if len(text) < 50 else text[:47] + '...'}`"


def outcome(case, template, records):
    """The cell of the table."""
    if not records:
        return "**lost**"
    assert {record["sender"] for record in records} == {SENDER}
    sent = sent_fields(case, template)
    first, *others = records
    if "line" in first:
        found = [f"**changed**: {'begin' if others else 'all'} in `line`"]
    else:
        found = [difference(name, sent[name], first.get(name, "")) for name in sent
                 if first.get(name, "") != sent[name]]
    for other in others:
        is_event = other.get("host") == "tc-0099"
        found.append("**forged**: event of `tc-0099`" if is_event else
                     "**changed**: rest in `line`" if "line" in other else
                     f"**forged**: line of host {shown(other['host'])}")
    return "; ".join(found) or "as sent"


def difference(name, sent, stored):
    if not stored:
        return f"**lost**: {name}"
    if name == "at":
        return "**changed**: at is the time of receipt"
    return f"**changed**: {name} is {shown(stored)}"


def table_of_cases():
    """What each case sends otherwise than the first."""
    rows = ["| case | sent |", "|---|---|"]
    for case in CASES:
        changes = [f"{name} {shown(value)}" for name, value in vars(case).items()
                   if name not in ("name", "date") and value != getattr(CASES[0], name)]
        rows.append(f"| {case.name} | {', '.join(changes) or 'values `95,80`'} |")
    return rows


def expected_answer(name, cell):
    """What ov-event-check is to say of a case with this cell."""
    [sent] = [row.split(" | ")[1][:-2] for row in table_of_cases() if row.startswith(f"| {name} |")]
    return [] if cell == "as sent" else [f"{name}, such as {sent}: {cell.replace('**', '')}"]


def table_of(template, *stored):
    """From what rsyslog and syslog-ng have stored."""
    rows = ["| case | over | rsyslog | syslog-ng |", "|---|---|---|---|"]
    for case in CASES:
        cells = {over: " | ".join(outcome(case, template, records[case.name, over])
                                  for records in stored) for over in TRANSPORTS}
        if len(set(cells.values())) == 1:
            cells = {"both": cells["UDP"]}
        rows += [f"| {case.name} | {over} | {cell} |" for over, cell in cells.items()]
    return rows
