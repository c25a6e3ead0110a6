"""What a user of ov-event-check meets: questions, output, statuses; and that its answers are those
of the real service."""

import json
import os
import pty
import random
import re

import pytest

from support.answers import NOBODY, PAGES, has_users
from support.collectors import TcpCollector, UdpCollector
from support.monitors import Script
from support.polling import wait_until
from support.sandbox import DEFINITIONS, REPOSITORY, ROW, SETTINGS, UDP

HEADER = "<[PRI]>1 - [NAME] - - [ID] -"  # of RFC 5424: there is nothing to say about it


# The command line

@pytest.mark.parametrize("arguments, complaint", [
    (["x"], 'there is no command "x"'), (["event"], "event takes an identifier and at most one"),
    (["event", "a", "b", "c"], "event takes an identifier and at most one"),
    (["settings", "hosts"], 'there is no key "hosts"; is it host?'),
    (["settings", "host", "port"], "settings takes at most one key"),
    (["script"], "script takes the name of a script"),
    (["script", "x.sh"], 'there is no script "x.sh" of a monitor; there are perf.sh, usb-'),
    (["--offline", "script", "perf.sh"], "script runs on this machine, and --offline asks"),
    (["--settings", "/missing"], "the file /missing cannot be read"),
    (["--definitions", "/tmp"], "the file /tmp cannot be read"),
    (["--explain", "no-hosts"], 'there is no cause "no-hosts"; is it no-host?'),
    (["--nonsense"], "unrecognized option '--nonsense'")], ids=str)
def test_wrong_usage_gives_a_complaint_and_status_2(check, arguments, complaint):
    process = check.run(*arguments)
    assert (process.status, process.stdout) == (2, "")
    assert complaint in process.stderr
    assert process.error_lines[-1] == "Try 'ov-event-check --help'."


def test_help_and_version_are_printed(check):
    assert check.run("--help").stdout.startswith("Usage: ov-event-check [OPTION]...")
    assert re.fullmatch(r"ov-event-check \d+\.\d+\.\d+\n", check.run("--version").stdout)


def test_finding_is_one_line_as_compilers_print_it(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**UDP, "allowed": "perf01,sys05", "formatString": HEADER})
    process = check.run("--offline")
    assert process.stdout == (
        f"{SETTINGS}:1: error: the service reads an empty text, since an unquoted comma makes a "
        "list: put the value in double quotes, with blanks between the identifiers [list-value]\n"
        "1 error, 0 warnings, 0 notes\n")
    assert (process.stderr, process.status) == ("", 1)


def test_terminal_gets_colours_and_a_caret_under_the_place(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**UDP, "allowed": "perf01,sys05", "formatString": HEADER})
    reader, writer = pty.openpty()
    check.run("--offline", stdout=writer)
    shown = os.read(reader, 4096).decode().replace("\r", "").split("\n")
    assert shown[0].startswith(f"\x1b[1m{SETTINGS}:1: \x1b[1;31merror: \x1b[0mthe service reads")
    assert shown[1:3] == ["    allowed=perf01,sys05", " " * 18 + "\x1b[1;31m^\x1b[0m"]
    check.run("--offline", stdout=writer, env={"NO_COLOR": "1"})
    assert "\x1b" not in os.read(reader, 4096).decode()


def test_place_of_an_identifier_is_that_of_the_whole_word(sandbox, check):
    sandbox.write_definitions(ROW.replace("perf01", "perf012"))
    sandbox.write_settings(**{**UDP, "allowed": "perf012 perf01"})
    [finding] = [finding for finding in check.json("--offline")["findings"]
                 if finding["cause"] == "allowed-not-defined"]
    assert (finding["line"], finding["column"]) == (1, len("allowed=perf012 ") + 1)


def test_findings_come_by_file_and_line_and_those_of_the_machine_last(sandbox, check):
    sandbox.write_definitions("perf01,CPU", "sys05,a,b,warning")
    sandbox.write_settings(x=1, facility="a", **{**UDP, "formatString": HEADER})
    found = [line.split(maxsplit=2) for line in check.findings()]
    places = [line[2] if len(line) > 2 else "" for line in found]
    assert places == [*(f"{SETTINGS}:{line}" for line in (1, 2, 3, 3)), f"{DEFINITIONS}:1",
                      f"{DEFINITIONS}:2", ""]


def test_what_a_file_lacks_comes_behind_its_lines(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(Host="h", allowed="perf01", formatString=HEADER)
    assert check.findings("--offline") == [
        f"warning unknown-key {SETTINGS}:1", f"note event-without-monitor {SETTINGS}:2",
        f"error no-host {SETTINGS}"]


@pytest.mark.parametrize("arguments", [[], ["event", "perf01"], ["settings"],
                                       ["script", "usb-devices.sh"]], ids=str)
def test_json_is_one_document(sandbox, check, usb_script, arguments):
    usb_script.answer("usb1\n")
    sandbox.write_settings(**UDP)
    assert isinstance(json.loads(check.run("--json", *arguments).stdout_bytes), dict)


def test_status_is_0_without_an_error_or_a_warning(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**UDP)  # a warning
    assert [check.run("--offline").status, check.run("--offline", "event", "perf01").status] == [
        1, 1]
    sandbox.write_settings(**{**UDP, "formatString": HEADER})
    assert [check.run("--offline").status, check.run("--offline", "event", "perf01").status,
            check.run("--offline", "event", "sys05").status] == [0, 0, 1]


def test_other_files_are_checked_where_they_are_named(sandbox, check):
    sandbox.path("/tmp/my settings").write_text("port=x\n")
    sandbox.path("/tmp/my.csv").write_text("a,b\n")
    found = check.findings("--offline", "--settings", "/tmp/my settings", "--definitions",
                           "/tmp/my.csv")
    assert {"error not-a-number /tmp/my settings:1", "error too-few-columns /tmp/my.csv:1"} <= set(
        found)


def test_key_can_neither_end_a_finding_nor_steer_the_terminal(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{"%0Aforged%1b[31m": "x", **UDP})
    assert check.run("--offline").lines[0].startswith(
        f"{SETTINGS}:1: warning: the service does not know the key `\\nforged\\x1b[31m`")


@pytest.mark.parametrize("row, columns", [
    ("perf01,e,error occurred,error", [25]), ("xsys,a,b,c, d", [13])], ids=["severity", "more"])
def test_column_of_a_definition_is_that_of_its_culprit(sandbox, check, row, columns):
    sandbox.write_definitions(row)
    sandbox.write_settings(**UDP)
    assert [finding["column"] for finding in check.json("--offline")["findings"]
            if finding.get("file") == DEFINITIONS] == columns


def test_place_in_a_value_of_several_lines_is_in_its_own_line(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings_bytes(b"host=h\nallowed=perf01 \\\n perf01,perf02\n")
    [finding] = [finding for finding in check.json("--offline")["findings"]
                 if finding["cause"] == "list-value"]
    assert (finding["line"], finding["column"]) == (3, 8)


def test_examples_lack_a_host_and_allowed_events_alone(sandbox, check):
    for name, path in (("ov-event-logger.ini", SETTINGS), ("ov-event-def.csv", DEFINITIONS)):
        sandbox.path(path).write_bytes((REPOSITORY / "examples" / name).read_bytes())
    assert [line.split()[1] for line in check.findings("--offline")] == [
        "nothing-allowed", "no-host"]


@pytest.mark.skipif("OV_SANITIZER" in os.environ and os.environ["OV_SANITIZER"] != "",
                    reason="a sanitizer makes the program slower")
@pytest.mark.parametrize("definitions, findings", [(10_000, 0), (10, 5_000)])
def test_answer_takes_less_than_three_tenths_of_a_second(sandbox, check, definitions, findings):
    sandbox.write_definitions(*(f"e{number:05},label,text,info" for number in range(definitions)))
    sandbox.write_settings(**{**UDP, "allowed": "e00001"},
                           **{f"#{number}": number for number in range(findings)})
    sandbox.start_listening_service()
    # Processor time, since other tests run at the same time; nothing here waits.
    process = sandbox.run("bash", "-c", 'TIMEFORMAT="%U %S"; time "$0" event e00001',
                          check.program)
    assert sum(float(seconds) for seconds in process.error_lines[-1].split()) < 0.3


# An event

@pytest.mark.parametrize("protocol", ["syslog-udp", "syslog-tcp"])
@pytest.mark.parametrize("event, values", [
    ("perf01", "95,80"), ("perf01", ""), ("perf01xyz", "v" * 126 + "ü"), ("sys05", " \ta\nb ")],
    ids=["usual", "no-values", "cut", "white-space"])
def test_line_of_an_event_is_the_one_that_the_collector_gets(
        sandbox, check, protocol, event, values):
    collector = {"syslog-udp": UdpCollector, "syslog-tcp": TcpCollector}[protocol](sandbox)
    sandbox.write_definitions(ROW, "sys05,label,größer,warning", "perf01x,l,d,info")
    sandbox.write_settings(**{
        **UDP, "protocol": protocol, "allowed": "perf01 sys05 perf01x",
        "formatString": '"<[PRI]> [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV]) "'})
    sandbox.start_listening_service(env={"TZ": "UTC"})
    line = check.json("event", event, values)["event"]["line"].encode()
    sandbox.send(event, values)
    wait_until(lambda: collector.received, "the line")
    received = (b"".join(collector.connections) if protocol == "syslog-tcp"
                else collector.messages[0])
    assert received == line


def test_event_is_answered_step_by_step(sandbox, check):
    sandbox.write_definitions("# comment", "app01,Application,It has failed,err")
    sandbox.write_settings(**{**UDP, "allowed": "app01",
                              "formatString": "<[PRI]>1 - [NAME] [IP] - [ID] -"})
    process = check.run("--offline", "event", "app01", "95")
    assert process.stdout == f"""\
record      identifier "app01", values "95"
definition  {DEFINITIONS}:2: app01,Application,It has failed,err
allowed     yes, {SETTINGS}:1
forwarded   yes
priority    27: daemon.err
length      35 bytes over UDP
line        <27>1 - tc-0042 192.0.2.1 - app01 -
collectors  no table tells what they store of this template
0 errors, 0 warnings, 0 notes
"""


def test_event_that_is_not_forwarded_has_no_line(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**UDP)
    process = check.run("--offline", "event", "sys05")
    assert process.lines[:4] == ['record      identifier "sys05", values ""',
                                 f"definition  none in {DEFINITIONS}",
                                 f"allowed     no, {SETTINGS}:1",
                                 "forwarded   no: define it, add it to `allowed`, and restart the "
                                 "service"]
    assert process.status == 1


def test_event_that_is_not_defined_is_told_the_one_that_was_meant(sandbox, check):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**UDP)
    assert [check.run("event", event).lines[1] for event in ("PERF01", "prf01", "perf02")] == [
        *[f"definition  none in {DEFINITIONS}; is it perf01?"] * 2,
        f"definition  none in {DEFINITIONS}"]


@pytest.mark.parametrize("protocol, is_found", [("syslog-tcp", True), ("syslog-udp", False)])
def test_line_feed_in_the_values_is_found_over_tcp(sandbox, check, protocol, is_found):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**{**UDP, "protocol": protocol})
    found = check.findings("--offline", "event", "perf01", "a\nb")
    assert (f"error line-break {SETTINGS}:{list(UDP | {'protocol': ''}).index('protocol') + 1}"
            in found) == is_found


def test_event_shows_only_the_findings_that_touch_it(sandbox, check):
    sandbox.write_definitions(ROW, "sys05,label,text,warning")
    sandbox.write_settings(**{**UDP, "formatString": HEADER, "usbDevMon": "x",
                              "allowed": "perf01 sys09"})
    assert check.findings("--offline", "event", "perf01") == [
        f"note event-without-monitor {SETTINGS}:1"]


# The settings

def test_settings_show_each_key_with_its_origin_and_a_digest(sandbox, check):
    sandbox.write_settings(host="192.0.2.1", facility="x", allowed="sys05 perf01", perfMon=7)
    lines = check.run("settings").lines
    assert [line.split() for line in lines[:-1]] == [
        ["default", "facility", "3"],
        ["default", "formatString", '"<[PRI]>', "[DATE]", "[NAME]([IP]):", "[ID]", "[DESC]", "-",
         "[VAL]", '([SEV])"'],
        [f"{SETTINGS}:3", "allowed", '"perf01', 'sys05"'],
        ["default", "protocol", '"syslog-udp"'], [f"{SETTINGS}:1", "host", '"192.0.2.1"'],
        ["default", "port", "514"], ["default", "usbDevMon", "0"],
        ["default", "vmwSigninMon", "0"], ["default", "agentConnMon", "0"],
        [f"{SETTINGS}:4", "perfMon", "1"], ["default", "cpuThreshold", "80"],
        ["default", "memThreshold", "80"], ["default", "diskThreshold", "80"]]
    assert re.fullmatch("SHA-256  [0-9a-f]{64}", lines[-1])


def test_settings_that_are_missing_are_a_finding_beside_the_defaults(sandbox, check):
    process = check.run("settings")
    assert process.status == 1
    assert process.lines[-2].startswith(f"{SETTINGS}: error: there is no such file")
    assert check.json("settings")["findings"][0]["cause"] == "no-settings"


def test_value_of_one_key_stands_alone(sandbox, check):
    sandbox.write_settings(host="collector.example", port="x")
    process = check.run("settings", "host")
    assert (process.status, process.stdout, process.stderr) == (0, "collector.example\n", "")
    assert check.run("settings", "port").stdout == "514\n"


def test_value_of_one_key_has_no_findings_beside_it(sandbox, check):
    process = check.run("settings", "host")
    assert (process.status, process.stdout) == (1, "\n")
    assert process.stderr.startswith(f"{SETTINGS}: error: there is no such file")


def test_settings_that_cannot_be_read_have_no_values(sandbox, check):
    sandbox.write_settings(**UDP)
    sandbox.path(SETTINGS).chmod(0o600)
    assert "settings" in check.json("settings")
    if has_users():
        assert "settings" not in check.json("settings", user=NOBODY)
        assert check.run("settings", user=NOBODY).lines[0].startswith(f"{SETTINGS}: error: ")


def test_digest_is_that_of_the_settings_and_not_of_the_file(sandbox, check):
    def digest(text):
        sandbox.write_settings_bytes(text.encode())
        return check.json("settings")["sha256"]
    one = digest("host=192.0.2.1\nallowed=perf01 sys05\nperfMon=1\n")
    assert digest('; x\n[General]\nperfMon = 2\nallowed="sys05  perf01"\nhost=1\n'
                  "host=192.0.2.1\nfacility=3\n") == one
    assert digest("host=192.0.2.2\nallowed=perf01 sys05\nperfMon=1\n") != one


def test_script_shows_each_line_and_what_the_monitor_makes_of_it(sandbox, check, perf_script):
    perf_script.write("#!/bin/sh\nprintf 'cpu=95\\nwhat\\nmem=3\\ndisk=80\\n'\nexit 7\n")
    sandbox.write_settings(perfMon=1, allowed="perf01 perf03")
    lines = check.run("script", "perf.sh").lines
    assert re.fullmatch(r"/usr/lib/orvan/ov-event-logger/perf.sh: status 7, \d+ ms", lines[0])
    assert lines[1:7] == [
        '  "cpu=95"  cpu is 95.00 %, which reaches the threshold of 80 %', '  "what"  passed over',
        '  "mem=3"  mem is 3.00 %, below the threshold of 80 %',
        '  "disk=80"  disk is 80.00 %, which reaches the threshold of 80 %',
        "raises perf01 95.00% > 80.00%", "raises perf03 80.00% > 80.00%"]


def test_script_of_a_monitor_that_is_off_raises_nothing_yet(sandbox, check, usb_script):
    usb_script.answer("v" * 200 + "\n")
    sandbox.write_settings(allowed="sys05")
    assert check.run("script", "usb-devices.sh").lines[-2:] == [
        f"would raise sys05 {'v' * 127}, but `usbDevMon` is off", "0 errors, 0 warnings, 0 notes"]


@pytest.mark.parametrize("name, ends", [
    ("usb-devices.sh", "kill -9 $$"), ("vmw-signin-status.sh", "exit 1")])
def test_script_that_fails_and_prints_nothing_is_unusable(sandbox, check, name, ends):
    Script(sandbox, name).write_shell(ends)
    assert "error script-unusable" in check.findings("script", name)


def test_only_the_last_reading_of_a_resource_counts(sandbox, check, perf_script):
    perf_script.answer("cpu=100\ncpu=5\nmem=1\ndisk=1\n")
    sandbox.write_settings(perfMon=1, allowed="perf01")
    assert check.findings("script", "perf.sh") == []


# Causes, pages and tests

def causes():
    source = (REPOSITORY / "src/check/finding.cpp").read_text()
    return re.findall(r'^    \{"([a-z0-9-]+)", Level::k(\w+)\}', source, re.M)


def test_every_cause_has_a_page_and_a_test():
    pages = re.findall(r"^### (\S+)\n\n(Error|Warning|Note)\. ", PAGES.read_text(), re.M)
    assert pages == causes()
    tests = "".join(path.read_text() for path in
                    (REPOSITORY / "tests/system/answers").glob("test_*.py"))
    assert [cause for cause, _ in causes() if not re.search(rf'\b{cause}\b', tests)] == []


def test_explain_prints_the_page_of_a_cause(check):
    text = PAGES.read_text()
    for cause in ("no-settings", "event-without-monitor", "few-descriptors"):  # first, last, other
        page = check.run("--explain", cause).stdout
        assert page.startswith(f"### {cause}\n\n") and page.strip() in text
        assert page.count("\n#") == 0


def test_example_of_the_document_is_what_is_printed(sandbox, check):
    ini, csv, shown = re.findall(r"^```\w*\n(.*?)^```", PAGES.read_text(), re.M | re.S)[:3]
    sandbox.path("/tmp/example.ini").write_text(ini)
    sandbox.path("/tmp/example.csv").write_text(csv)
    command, expected = shown.split("\n", 1)
    process = sandbox.run("sh", "-c", f'cd /tmp; "$0" {command.split(maxsplit=2)[2]}',
                          check.program)
    assert (process.stdout, process.stderr) == (expected, "")


# Random files

def random_settings(chance):
    ids = [f"{chance.choice(['perf', 'sys', 'x'])}{number:02}" for number in range(8)]
    allowed = chance.sample(ids, chance.randint(1, 8))
    tokens = ["[PRI]", "[DATE]", "[ID]", "[DESC]", "[VAL]", "[SEV]", "[NAME]", "[IP]"]
    words = [*tokens, "text", ":", "-", "(", ")", " ", r"\xfc", r"\"", r"\\"]
    template = "<[PRI]>[ID]" + "".join(chance.choices(words, k=10))
    lines = [f'allowed={" ".join(allowed)}', f'formatString="{template}"', "host=127.0.0.1",
             f"port={chance.randint(1, 65535)}", f"facility={chance.randint(0, 23)}",
             f"protocol={chance.choice(['syslog-udp', 'syslog-tcp'])}",
             f"cpuThreshold={chance.randint(0, 99)}", "; a comment, with; all \"sorts\""]
    chance.shuffle(lines)
    severities = "emerg alert crit err warn notice info debug".split()
    rows = [f"{event},label,a text of {chance.randint(1, 99)} words,{chance.choice(severities)}"
            for event in ids]
    return "\n".join(lines) + "\n", "\n".join(["# comment", *rows]) + "\n"


def test_valid_random_files_have_no_error(sandbox, check):
    chance = random.Random(1)
    sandbox.path("/tmp/files").mkdir()
    for number in range(200):
        settings, definitions = random_settings(chance)
        sandbox.path(f"/tmp/files/{number}.ini").write_text(settings)
        sandbox.path(f"/tmp/files/{number}.csv").write_text(definitions)
    process = sandbox.run("sh", "-c", 'cd /tmp/files; for file in *.ini; do "$0" --offline '
                          '--settings $file --definitions ${file%.ini}.csv; done | grep error:',
                          check.program)
    assert process.stdout == ""


def mutated(text, chance):
    """With a few bytes replaced by such as have a meaning in one of the files."""
    content = bytearray(text.encode())
    for _ in range(chance.randint(1, 6)):
        place = chance.randrange(len(content))
        content[place:place + chance.randint(0, 2)] = chance.choice(
            [b",", b";", b'"', b"\\", b"=", b"#", b"\n", b"[", b"@", b" ", b"\t", b"x", b"\xc3",
             b"%41", b"\\x41", b""])
    return bytes(content)


def in_force(**printed):
    """What the values that a service printed mean."""
    def number(key):
        return printed[key] if re.fullmatch(r"[+-]?\d+", printed[key]) else None
    allowed = {event.strip() for event in printed.get("allowed", "").split(" ")} - {""}
    tcp = printed.get("protocol") == "syslog-tcp"
    return {**{key: str(int(number(key))) for key in printed if number(key)}, **{
        key: printed[key] for key in ("formatString", "host") if key in printed},
        "allowed": " ".join(sorted(allowed)), "protocol": f"syslog-{'tcp' if tcp else 'udp'}"}


@pytest.mark.slow
def test_answers_about_random_files_are_those_of_the_service(sandbox, check):
    collector = UdpCollector(sandbox)
    chance = random.Random(2)
    for _ in range(15):
        settings, definitions = (mutated(text, chance) for text in random_settings(chance))
        settings += b"\nport=5514\nhost=127.0.0.1\nprotocol=syslog-udp\n"
        sandbox.write_settings_bytes(settings)
        sandbox.write_definitions(definitions)
        sandbox.sh("rm -f /tmp/ov-events")
        service = sandbox.start_service(env=sandbox.short_pauses())
        service.wait_for_cycle(1)

        printed = dict(re.findall(r"^(\w+): (.*)$", service.stdout, re.M))
        for setting in check.json("settings")["settings"]:
            if "line" in setting:
                assert setting["value"] == in_force(**printed)[setting["key"]], settings

        arrived = len(collector.messages)
        expected = []
        for number in range(8):
            event = f"perf{number:02}"
            # The second of the time may change between the two.
            answer = check.json("event", event, "a,b")["event"]
            sandbox.send(event, "a,b")
            if answer["forwarded"]:
                expected.append(answer["line"].encode())
        service.wait_for_line("> Received event", 8)
        service.wait_for_pauses(1)
        wait_until(lambda: len(collector.messages) >= arrived + len(expected),
                   lambda: (settings, definitions, expected, collector.messages[arrived:]))
        without_seconds = [[re.sub(rb"\d\d:\d\d:\d\d", b"", line) for line in lines]
                           for lines in (collector.messages[arrived:], expected)]
        assert without_seconds[0] == without_seconds[1], (settings, definitions)
        service.kill()
