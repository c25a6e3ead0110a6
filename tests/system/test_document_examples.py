"""That docs/COMMAND.md, docs/SETTINGS.md and docs/DEFINITIONS.md are true: their tables against the
programs, their examples in ov-event-check and in the real service."""

import re
import shlex
import time

import pytest

from support.answers import Check
from support.collectors import TcpCollector, UdpCollector
from support.monitors import Script
from support.sandbox import REPOSITORY, SETTINGS, Sandbox

COMMAND, SETTINGS_PAGE, DEFINITIONS_PAGE = (
    (REPOSITORY / "docs" / name).read_text()
    for name in ("COMMAND.md", "SETTINGS.md", "DEFINITIONS.md"))
DEFINITIONS = (REPOSITORY / "examples/ov-event-def.csv").read_text()
SECONDS, DATE = "1700000000", "Nov 14 22:13:20"  # in the documents, of every event


def table(page, first):
    """The rows of the table whose first column has this name, without marks of code and link."""
    [rows] = re.findall(rf"^\| {first} \|.*\n\|[-|]+\|\n((?:\|.*\n)+)", page, re.MULTILINE)
    rows = re.sub(r"\[(`[^`]*`)\]\(\w+\.md[^)]*\)", r"\1", rows)
    return [[re.sub(r"^`([^`]*)`$", r"\1", cell) for cell in row.strip("| ").split(" | ")]
            for row in rows.splitlines()]


def example_sections(page):
    return [section for section in re.split(r"^##+ ", page, flags=re.MULTILINE)
            if "```ini" in section or "```csv" in section]


def blocks(section):
    """Each fenced block: its language, the file that the text before it names, its text."""
    for before, language, text in re.findall(r"(.*?)^```(\w+)\n(.*?)^```$", section,
                                             re.MULTILINE | re.DOTALL):
        names = re.findall(r"`(\w+\.(?:ini|csv))`", before)
        yield language, names[-1] if names else None, text


@pytest.fixture
def sandbox():
    """One with ov-event-check and the packaged definitions in it, and the addresses of the
    documents."""
    box = Sandbox(keep=[Check.PROGRAM])
    box.write_definitions(DEFINITIONS)
    yield box
    box.close()


@pytest.fixture
def check(sandbox):
    return Check(sandbox)


def settings_in_force(check, *arguments):
    return {setting["key"]: setting["value"]
            for setting in check.json(*arguments, "settings")["settings"]}


def test_table_of_keys_has_the_defaults(check):
    rows = table(SETTINGS_PAGE, "key")
    defaults = {key: "" if default == "none" else default for key, _, default, *_ in rows}
    assert list(defaults.items()) == list(settings_in_force(check).items())


def test_example_file_has_the_keys_of_the_table_with_their_defaults():
    lines = (REPOSITORY / "examples/ov-event-logger.ini").read_text().splitlines()
    pairs = [line.split("=", 1) for line in lines if "=" in line and not line.startswith(";")]
    assert pairs == [[key, "" if default == "none" else default]
                     for key, _, default, *_ in table(SETTINGS_PAGE, "key")]


@pytest.mark.parametrize("key, value", [
    row[:2] for row in table(SETTINGS_PAGE, "key") if " to " in row[1]], ids=str)
def test_range_of_a_key_is_the_one_that_the_check_takes(sandbox, check, key, value):
    least, most = map(int, re.search(r"(\d+) to (\d+)", value).groups())
    for number in (least - 1, least, most, most + 1):
        sandbox.path(SETTINGS).write_text(f"{key}={number}\n")
        is_outside = f"error out-of-range {SETTINGS}:1" in check.findings("--offline")
        assert is_outside == (not least <= number <= most), number


def test_table_of_tokens_is_complete(sandbox, check):
    sandbox.path(SETTINGS).write_text("formatString=[XXXXXXXX]\n")
    [sentence] = [finding["sentence"] for finding in check.json("--offline")["findings"]
                  if finding["cause"] == "unknown-token"]
    assert (sorted(re.findall(r"\[[A-Z]+\]", sentence.split("The tokens are")[1]))
            == sorted(row[0] for row in table(SETTINGS_PAGE, "token")))


@pytest.mark.parametrize("line, in_force, cause", table(SETTINGS_PAGE, "line"), ids=str)
def test_trap_of_the_settings_is_named_and_does_what_the_table_says(
        sandbox, check, line, in_force, cause):
    sandbox.path(SETTINGS).write_text(line + "\n")
    assert f"{cause} {SETTINGS}:1" in " ".join(check.findings("--offline"))
    keys = {key.lower(): value for key, value in settings_in_force(check).items()}
    assert keys[line.split("=")[0].lower()] == ("" if in_force == "nothing" else in_force)


@pytest.mark.parametrize("severity, number, at_3, at_16",
                         table(DEFINITIONS_PAGE, "severity"))
def test_severity_gives_the_number_and_the_priorities_of_the_table(
        sandbox, check, severity, number, at_3, at_16):
    sandbox.write_definitions(f"perf01,a,b,{severity}")
    for facility, priority in (3, at_3), (16, at_16):
        sandbox.path(SETTINGS).write_text(f"allowed=perf01\nfacility={facility}\n")
        event = check.json("--offline", "event", "perf01")["event"]
        assert (event["severity"], event["priority"]) == (int(number), int(priority))


@pytest.mark.parametrize("line, meaning, cause", table(DEFINITIONS_PAGE, "line"), ids=str)
def test_trap_of_the_definitions_is_named_and_does_what_the_table_says(
        sandbox, check, line, meaning, cause):
    identifier = line.split(",")[0]
    sandbox.write_definitions(line)
    sandbox.path(SETTINGS).write_text(f"allowed={identifier}\nformatString=[SEV]\n")
    assert cause in " ".join(check.findings("--offline"))
    event = check.json("--offline", "event", identifier)["event"]
    if meaning == "nothing" or "; nobody" in meaning:
        assert not event["forwarded"]
    else:
        assert re.findall(r"`([^`]*)`", meaning) == [identifier, event["line"]]


def start_service(sandbox, settings):
    """The service with these settings, and their collector."""
    sandbox.add_interface("collector", "192.0.2.10/24")
    sandbox.add_interface("client", "192.168.1.20/24")
    sandbox.set_host_names("192.0.2.10 logs.example.com")
    for name in ("perf.sh", "usb-devices.sh", "vmw-signin-status.sh"):
        Script(sandbox, name).answer("")
    values = dict(re.findall(r"^(\w+)=(.*)$", settings, re.MULTILINE))
    kind = TcpCollector if values.get("protocol") == "syslog-tcp" else UdpCollector
    collector = kind(sandbox, "192.0.2.10", int(values.get("port", 514)))
    sandbox.write_settings_bytes(settings.encode())
    sandbox.start_listening_service(env={**sandbox.short_pauses(), "TZ": "UTC"})
    return collector


@pytest.mark.parametrize("section", [
    pytest.param(section, id=section.split("\n")[0])
    for page in (COMMAND, SETTINGS_PAGE, DEFINITIONS_PAGE) for section in example_sections(page)])
def test_example_does_what_the_document_says(sandbox, check, section):
    settings = collector = None
    dates = []
    done = set()
    for language, name, text in blocks(section):
        done.add(language)
        if language == "console":
            for command, expected in re.findall(r"^\$ (.*)\n((?:[^$].*\n)*)", text, re.MULTILINE):
                program, *arguments = shlex.split(command)
                if program == "ov-event-check":
                    assert check.run(*arguments, prelude="cd /tmp").stdout == expected
                    continue
                collector = collector or start_service(sandbox, settings)
                printed = sandbox.run(sandbox.executable, *arguments).stdout
                [seconds] = re.findall(r" at (\d+)\n", printed)
                assert printed == expected.replace(SECONDS, seconds)
                dates.append(time.strftime("%b %d %H:%M:%S", time.gmtime(int(seconds))))
        elif language == "syslog":
            lines = text.splitlines()
            assert [line.decode() for line in collector.wait_for(len(lines))] == [
                line.replace(DATE, date) for line, date in zip(lines, dates)]
        else:
            sandbox.path(f"/tmp/{name}").write_text(text)
            if language == "ini":
                settings = text
            else:
                sandbox.write_definitions(text)
    assert {"ini", "console", "syslog"} <= done


def test_every_text_of_the_program_is_in_the_document_of_the_command():
    texts = set()
    for source in (REPOSITORY / "src").glob("*/*.cpp"):
        if source.parent.name != "check":  # which has a page of its own
            texts.update(re.findall(
                r'(?:puts|[^n]printf|perror|Report|ReportError|EndProcess|qWarning|qDebug)'
                r'\((?:stderr, |stdout, |\) << )?"([^"]+)"', source.read_text()))
    # No cycle starts or stops a monitor twice.
    texts -= {r"%s is already running\n", r"%s is not running\n"}
    known = re.sub(r"\s+", " ", COMMAND)
    missing = [text for text in texts
               if max(re.split(r"%\S*|\\n|\s*\\t", text), key=len).strip() not in known]
    assert len(texts) > 40 and missing == []
