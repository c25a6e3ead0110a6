"""The files of examples/collector/: that the programs they are for take them, and what they are to
guard against. What the collectors store of an event is in test_conformance.py."""

import json
import pathlib
import re
import shlex
import socket

import pytest

from support.answers import Check, has_users
from support.example_collectors import BOTH, EVENTS, EXAMPLES, STORE, ExampleCollector
from support.polling import wait_until
from support.real_collectors import unpacked
from support.sandbox import DEFINITIONS, REPOSITORY, Sandbox

FILES = ["ov-events.conf", "ov-events-default-line.conf"]
DOCUMENT = (REPOSITORY / "docs/COLLECTORS.md").read_text()
LOGROTATE = "/run/kept/logrotate/usr/sbin/logrotate"

# Opens 2,000 connections before any of them sends, each from a machine of its own.
ALL_AT_ONCE = """
import resource, select, socket, sys
limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))
connections = []
for number in range(2000):
    connection = socket.socket()
    connection.setblocking(False)
    connection.connect_ex(("127.0.0.1", 514))
    connections.append(connection)
for number, connection in enumerate(connections):
    connection.setblocking(True)
    line = sys.argv[1].replace("tc-0042", f"tc-{number}")
    connection.sendall(f"{line}\\n{line}\\n".encode())
    connection.close()
"""


def line(values, host="tc-0042", priority=28):
    """A recommended line."""
    return (f'<{priority}>1 - {host} ov-event-logger - perf01 [ev@32473 ip="192.168.1.20" '
            f'sev="warn" at="Nov 14 22:13:20" desc="Use is high"] {values}')


@pytest.fixture(params=BOTH, ids=lambda kind: kind.NAME)
def kind(request):
    return request.param


@pytest.fixture
def collector(kind):
    """Runs with the file for the recommended line; logrotate is at hand."""
    box = ExampleCollector(kind, (EXAMPLES / f"{kind.NAME}.conf.d/{FILES[0]}").read_text(),
                           keep=[unpacked("logrotate")])
    box.process = box.start()
    yield box
    box.close()


@pytest.fixture
def sandbox():
    box = Sandbox(keep=[EXAMPLES, Check.PROGRAM, unpacked("logrotate")])
    yield box
    box.close()


def send(collector, *lines, kind=socket.SOCK_DGRAM):
    """Each as a datagram, or all over one connection."""
    with collector.sandbox.network_socket(socket.AF_INET, kind) as sender:
        sender.connect(("127.0.0.1", 514))
        for text in lines:
            sender.sendall(text.encode() + b"\n" * (kind == socket.SOCK_STREAM))


@pytest.mark.parametrize("file", FILES)
def test_collector_finds_no_fault_in_the_file(kind, file):
    collector = ExampleCollector(kind, (EXAMPLES / f"{kind.NAME}.conf.d/{file}").read_text())
    try:
        check = collector.check()
        said = [text for text in check.lines + check.error_lines
                if "config validation run" not in text]
        assert (check.status, said) == (0, [])
    finally:
        collector.close()


def test_logrotate_finds_no_fault_in_the_file(sandbox):
    check = sandbox.run(LOGROTATE, "-d", "/run/kept/collector/logrotate.conf")
    assert (check.status, [text for text in check.error_lines if "error" in text]) == (0, [])


def test_lnav_finds_no_fault_in_the_format(sandbox):
    sandbox.sh("mkdir -p /etc/lnav/formats; cp -r /run/kept/collector/lnav /etc/lnav/formats/ov")
    check = sandbox.run("lnav", "-C", env={"HOME": "/tmp"}, prelude="cd /tmp")
    assert (check.status, check.stdout, check.stderr) == (0, "", "")


def test_settings_of_the_clients_have_no_fault(sandbox):
    sandbox.path(DEFINITIONS).write_text((REPOSITORY / "examples/ov-event-def.csv").read_text())
    check = Check(sandbox).run("--offline", "--settings",
                               "/run/kept/collector/ov-event-logger.ini")
    assert check.stdout == "0 errors, 0 warnings, 0 notes\n"


def test_emergency_reaches_no_rule_but_those_of_the_file(collector):
    send(collector, line("everybody", priority=24))
    collector.wait_for("everybody")
    collector.process.kill()
    assert "everybody" not in collector.sandbox.sh(
        f"find /var/log -type f -not -path '{STORE}/*' -exec cat '{{}}' +").stdout


def test_host_name_that_is_no_file_name_makes_no_file(collector):
    names = ["../../../tmp/x", "..", ".x", "a/b", "a;b", "n" * 65, "", "ü", "tc-0042", "last"]
    send(collector, *(line("v", host=name) for name in names))
    assert [event["host"] for event in collector.wait_for("last")] == names
    wait_until(lambda: collector.stored(f"{STORE}/last.log"), "the last line")
    assert sorted(file.name for file in collector.sandbox.path(STORE).iterdir()) == [
        "127.0.0.1.log", "events.json", "last.log", "tc-0042.log"]


def test_readers_terminal_gets_no_control_character(collector):
    send(collector, line("\x1b[2Jlast"))
    collector.wait_for("last")
    [text] = wait_until(lambda: collector.stored(f"{STORE}/tc-0042.log"), "the line")
    assert re.fullmatch(rb"\S+ 127.0.0.1 tc-0042 warn perf01 Use is high - (#033|_)\[2Jlast", text)


def test_number_behind_a_line_feed_swallows_no_line(collector):
    send(collector, line("a\n9999 b"), line("last"), kind=socket.SOCK_STREAM)
    assert [event.get("line", event.get("values")) for event in collector.wait_for("last")] == [
        "a", "9999 b", "last"]


def test_lines_of_2000_clients_at_the_same_moment_are_all_stored(collector):
    collector.sandbox.run("python3", "-c", ALL_AT_ONCE, line("v"))
    wait_until(lambda: len(collector.stored()) >= 4000, lambda: len(collector.stored()))
    hosts = [event["host"] for event in collector.events()]
    assert sorted(hosts) == sorted(2 * [f"tc-{number}" for number in range(2000)])


def test_burst_of_datagrams_is_stored(collector):
    most = int(pathlib.Path("/proc/sys/net/core/rmem_max").read_text())  # cuts the buffer
    count = min(2000, most // 1000)
    send(collector, *(line(f"v{number}") for number in range(count)), line("last"))
    assert len(collector.wait_for("last")) == count + 1


@pytest.mark.skipif(not has_users(), reason="there is no group adm")
def test_rotated_files_are_left_and_no_line_is_lost(collector):
    box = collector.sandbox
    box.sh("mkdir /tmp/bin; echo 'kill -HUP $(cat /tmp/collector.pid)' >/tmp/bin/systemctl;"
           "chmod +x /tmp/bin/systemctl")
    send(collector, line("old"))
    collector.wait_for("old")
    wait_until(lambda: collector.stored(f"{STORE}/tc-0042.log"), "the readable line")
    box.path("/etc/logrotate.conf").write_text((EXAMPLES / "logrotate.conf").read_text())
    rotation = box.run(LOGROTATE, "--force", "--state", "/tmp/state", "/etc/logrotate.conf",
                       env={"PATH": "/tmp/bin:/usr/bin:/bin"})
    assert (rotation.status, rotation.stderr) == (0, "")

    def is_taken():
        send(collector, line("new"))
        return collector.stored() and collector.stored(f"{STORE}/tc-0042.log")
    wait_until(is_taken, "a line in the new files")
    for path in EVENTS, f"{STORE}/tc-0042.log":
        assert b"old" not in b"".join(collector.stored(path))
        assert b"old" in b"".join(collector.stored(path + ".1"))
        assert box.path(path).stat().st_mode & 0o777 == 0o640


def test_commands_of_the_document_print_what_it_shows(sandbox):
    [events] = re.findall(r"^```json\n(.*?)^```$", DOCUMENT, re.MULTILINE | re.DOTALL)
    sandbox.sh("mount -t tmpfs tmpfs /var/log; mkdir -p /var/log/ov-events /etc/lnav/formats;"
               "cp -r /run/kept/collector/lnav /etc/lnav/formats/ov")
    sandbox.path(EVENTS).write_text(events)
    assert set().union(*map(json.loads, events.splitlines())) == set(
        re.findall(r"^\| `(\w+)` \|", DOCUMENT, re.MULTILINE))
    commands = re.findall(r"^\$ (.*)\n((?:(?!```|\$ ).*\n)*)", DOCUMENT, re.MULTILINE)
    for command, shown in commands:
        result = sandbox.run(*shlex.split(command), env={"HOME": "/tmp", "TZ": "UTC"},
                             prelude="cd /tmp")
        assert (command, result.stdout) == (command, shown)
    assert {command.split()[0] for command, _ in commands} == {"jq", "lnav"}
