"""Which events the service knows, by its definitions file."""

import pytest

from support.polling import wait_until
from support.sandbox import DEFINITIONS, FALLBACK_DEFINITIONS

SETTINGS = {"host": "127.0.0.1", "port": 5514, "facility": 0,
            "formatString": "[PRI]|[ID]|[DESC]|[SEV]"}
START = """Starting service...
loading Event definitions...
%sStarting event server...
listening...
Server is listening on /tmp/ov-events
Invalid IP address or hostname: Name or service not known
"""
CANNOT_OPEN = f"Unable to open file: {DEFINITIONS}\n"


def start_service(sandbox, *rows, allowed="perf01", **kwargs):
    sandbox.write_definitions(*rows)
    sandbox.write_settings(**SETTINGS, allowed=allowed)
    return sandbox.start_listening_service(**kwargs)


def warnings_of(sandbox, *rows, **kwargs):
    """What a service with these definitions prints on standard error."""
    service = start_service(sandbox, *rows, **kwargs)
    assert service.stdout.startswith(
        f"Starting service...\nloading Event definitions...\nloading {DEFINITIONS}\nStarting ")
    return service.stderr


def defined_events(sandbox, service, *events):
    """Those of the events that the service does not report as undefined."""
    for event in events:
        sandbox.send(event)
    service.wait_for_line("> Received event", len(events))
    sandbox.send("last")
    service.wait_for_line("Event last is not defined")
    return [event for event in events if f"Event {event} is not defined" not in service.lines]


# Which file

def test_system_file_hides_the_fallback(sandbox):
    sandbox.write_definitions("sys05,USB,USB device added,info", path=FALLBACK_DEFINITIONS)
    service = start_service(sandbox, "perf01,CPU,CPU usage is high,warn")
    assert [line for line in service.lines if line.startswith("loading /")] == \
        [f"loading {DEFINITIONS}"]
    assert defined_events(sandbox, service, "perf01", "sys05") == ["perf01"]


def test_fallback_is_read_when_there_is_no_system_file(sandbox):
    sandbox.write_definitions("sys05,USB,USB device added,info", path=FALLBACK_DEFINITIONS)
    service = sandbox.start_service()
    expected = START % f"loading {FALLBACK_DEFINITIONS}\n"
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert defined_events(sandbox, service, "perf01", "sys05") == ["sys05"]
    assert service.stderr == ""


def test_system_file_without_rows_hides_the_fallback(sandbox):
    sandbox.write_definitions("sys05,USB,USB device added,info", path=FALLBACK_DEFINITIONS)
    service = start_service(sandbox)
    assert defined_events(sandbox, service, "sys05") == []


def test_no_file_gives_no_message_and_no_definitions(sandbox):
    service = sandbox.start_service()
    wait_until(lambda: service.stdout == START % "", lambda: service.stdout)
    assert defined_events(sandbox, service, "perf01", "sys05") == []
    assert service.stderr == ""


@pytest.mark.parametrize("path", [DEFINITIONS, FALLBACK_DEFINITIONS], ids=["system", "fallback"])
def test_file_that_cannot_be_opened_gives_a_warning_that_names_the_system_file(sandbox, path):
    sandbox.path(path).mkdir()
    service = sandbox.start_service()
    expected = START % f"loading {path}\n"
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert defined_events(sandbox, service, "perf01") == []
    assert service.stderr == CANNOT_OPEN


def test_unreadable_system_file_is_not_replaced_by_the_fallback(sandbox):
    sandbox.write_definitions("sys05,USB,USB device added,info", path=FALLBACK_DEFINITIONS)
    sandbox.path(DEFINITIONS).mkdir()
    service = sandbox.start_listening_service()
    assert defined_events(sandbox, service, "sys05") == []
    assert service.stderr == CANNOT_OPEN


def test_file_that_cannot_be_read_gives_no_definitions(sandbox):
    sandbox.write_definitions("perf01,CPU,CPU usage is high,warn")
    service = sandbox.start_listening_service(env=sandbox.faulty(FAULTS="read:1:5"))
    sandbox.ledger.forget_definitions(service)
    assert service.stderr == ""
    assert defined_events(sandbox, service, "perf01") == []


def test_changed_definitions_take_effect_at_the_next_start_only(sandbox):
    service = start_service(sandbox, "perf01,CPU,CPU usage is high,warn")
    sandbox.write_definitions("sys05,USB,USB device added,info")
    sandbox.write_settings(**SETTINGS, allowed="sys05")
    service.wait_for_cycle(2)
    assert defined_events(sandbox, service, "perf01", "sys05") == ["perf01"]
    service.kill()
    sandbox.sh("rm /tmp/ov-events")
    service = sandbox.start_listening_service()
    assert defined_events(sandbox, service, "perf01", "sys05") == ["sys05"]


# Rows

@pytest.mark.parametrize("rows, line", [
    (["perf01,CPU,CPU usage is high,warn"], "4|perf01|CPU usage is high|warn"),
    (["perf01, CPU, CPU usage is high, warn"], "4|perf01|CPU usage is high|warn"),
    (["\tperf01 ,\tCPU , CPU  usage\t, warn \t"], "4|perf01|CPU  usage|warn"),
    (["perf01,A,first,err", "perf01,B,second,info"], "6|perf01|second|info"),
    (["perf01,A,first,err", "sys05,B,other,info", "perf01,C,,debug"], "7|perf01||debug"),
    (["perf01,CPU,high,warn,more,and more"], "4|perf01|high|warn"),
    (['perf01,CPU,"high",warn'], '4|perf01|"high"|warn'),
    (["perf01,CPU,# high,warn"], "4|perf01|# high|warn"),
    (["perf01,CPU,Größe 超,warn"], "4|perf01|Größe 超|warn"),
    (["only one field", "", "perf01,,,crit", "a,b"], "2|perf01||crit"),
], ids=["plain", "blanks", "white-space", "last-row-wins", "every-field-is-replaced",
        "more-fields", "quotes", "hash-inside", "utf-8", "among-malformed"])
def test_row_gives_priority_description_and_severity(sandbox, udp_collector, rows, line):
    start_service(sandbox, *rows)
    sandbox.send("perf01")
    assert udp_collector.wait_for(1) == [line.encode()]


def test_eight_severity_names_give_the_numbers_0_to_7(sandbox, udp_collector):
    names = ["emerg", "alert", "crit", "err", "warn", "notice", "info", "debug"]
    ids = [f"sev{number}" for number in range(8)]
    service = start_service(sandbox, *(f"{id_},L,D,{name}" for id_, name in zip(ids, names)),
                            allowed=" ".join(ids))
    for id_ in ids:
        sandbox.send(id_)
    assert udp_collector.wait_for(8) == [
        f"{number}|sev{number}|D|{name}".encode() for number, name in enumerate(names)]
    assert service.stderr == ""


@pytest.mark.parametrize("name", ["warning", "error", "emergency", "Warn", "ERR", "war", "warn x",
                                  "4", "", "größe"])
def test_unknown_severity_name_is_reported_and_gives_minus_1(sandbox, udp_collector, name):
    service = start_service(sandbox, f"perf01,CPU,high,{name}")
    sandbox.send("perf01")
    assert udp_collector.wait_for(1) == [f"-1|perf01|high|{name}".encode()]
    assert service.stderr == f"Unknown syslog level: {name}\n"


def test_description_with_a_comma_is_cut_and_the_rest_is_the_severity(sandbox, udp_collector):
    service = start_service(sandbox, "net02,NET,Lost, reconnecting,err", allowed="net02")
    sandbox.send("net02")
    assert udp_collector.wait_for(1) == [b"-1|net02|Lost|reconnecting"]
    assert service.stderr == "Unknown syslog level: reconnecting\n"


def test_comment_lines_are_passed_over_without_a_word(sandbox):
    service = start_service(sandbox, "# id,label,description,severity", "#", "#sys05,a,b,info",
                            "perf01,CPU,high,warn")
    assert defined_events(sandbox, service, "perf01", "sys05", "#sys05") == ["perf01"]
    assert service.stderr == ""


def test_header_row_is_a_definition_like_any_other(sandbox):
    service = start_service(sandbox, "id,name,description,severity")
    assert defined_events(sandbox, service, "id", "name") == ["id"]
    assert service.stderr == "Unknown syslog level: severity\n"


def test_identifiers_are_matched_with_their_case(sandbox):
    service = start_service(sandbox, "PERF01,CPU,high,warn", "Sys05,USB,added,info")
    assert defined_events(sandbox, service, "perf01", "PERF01", "sys05", "Sys05") == \
        ["PERF01", "Sys05"]


def test_indented_hash_with_three_commas_is_a_definition(sandbox):
    service = start_service(sandbox, " #a,CPU,high,warn")
    assert defined_events(sandbox, service, "#a", "a") == ["#a"]
    assert service.stderr == ""


@pytest.mark.parametrize("content", [b"perf01,CPU,high,warn", b"perf01,CPU,high,warn\r\n",
                                     b"#\r\nperf01,CPU,high,warn\r\n# end"])
def test_any_line_end_ends_a_row(sandbox, udp_collector, content):
    service = start_service(sandbox, content)
    sandbox.send("perf01")
    assert udp_collector.wait_for(1) == [b"4|perf01|high|warn"]
    assert service.stderr == ""


# Warnings

@pytest.mark.parametrize("row, quoted", [
    ("", '""'),
    ("perf01", '"perf01"'),
    ("perf01,CPU,CPU usage is high", '"perf01,CPU,CPU usage is high"'),
    ("  # indented", '"  # indented"'),
    ("two,  fields ", '"two,  fields "'),
    ('a "quoted" \\ word', '"a \\"quoted\\" \\\\ word"'),
    ("Größe, 超", '"Größe, 超"'),
], ids=["empty", "one-field", "three-fields", "indented-comment", "blanks", "quotes", "utf-8"])
@pytest.mark.parametrize("locale", ["C", "C.UTF-8"])
def test_row_with_fewer_than_four_fields_gives_a_warning(sandbox, row, quoted, locale):
    warnings = warnings_of(sandbox, row, env={"LC_ALL": locale})
    assert warnings == f"Invalid line format: {quoted}\n"


@pytest.mark.parametrize("variable, value", [
    ("QT_LOGGING_RULES", "*=false"), ("QT_FATAL_WARNINGS", "1"), ("QT_MESSAGE_PATTERN", "x")])
def test_warnings_do_not_follow_the_environment(sandbox, variable, value):
    assert warnings_of(sandbox, "perf01", env={variable: value}) == (
        'Invalid line format: "perf01"\n')


def test_warning_shows_a_line_without_its_line_end(sandbox):
    assert warnings_of(sandbox, b"one\r\ntwo\r\nthree") == (
        'Invalid line format: "one"\nInvalid line format: "two"\nInvalid line format: "three"\n')


def test_row_with_too_few_fields_defines_nothing(sandbox):
    service = start_service(sandbox, "perf01,CPU,high", "sys05", "sec03,A,B,info")
    assert defined_events(sandbox, service, "perf01", "sys05", "sec03") == ["sec03"]


def test_warnings_come_in_the_order_of_the_rows(sandbox):
    assert warnings_of(sandbox, "first", "a,b,c,fatal", "c,d,e,info", "", "d,e,f,warning") == (
        'Invalid line format: "first"\n'
        "Unknown syslog level: fatal\n"
        'Invalid line format: ""\n'
        "Unknown syslog level: warning\n")


def test_description_is_sent_as_utf_8_in_the_c_locale(sandbox, udp_collector):
    service = start_service(sandbox, "perf01,CPU,Größe 超,nötig", env={"LC_ALL": "C"})
    sandbox.send("perf01")
    assert udp_collector.wait_for(1) == ["-1|perf01|Größe 超|nötig".encode()]
    assert service.stderr == "Unknown syslog level: nötig\n"
    assert service.lines[-1] == ">>> -1|perf01|Größe 超|nötig"


def test_ten_thousand_rows_are_all_defined(sandbox):
    service = start_service(sandbox, *(f"e{number},L,D,info" for number in range(10000)))
    events = ["e0", "e4999", "e9999", "e10000"]
    assert defined_events(sandbox, service, *events) == events[:3]
    assert service.stderr == ""
