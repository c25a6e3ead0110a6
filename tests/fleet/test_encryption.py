"""The lines of the examples that encrypt."""

import re

import pytest

from centre import Rsyslog, line, run, send
from support.polling import wait_until


@pytest.fixture(scope="module")
def keys(debian):
    """Of an authority, the relay and the centre."""
    folder = debian.path("/etc/ssl/ov")
    folder.mkdir()
    new = ("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
           "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2")
    run(*new, "-subj", "/CN=authority", "-keyout", folder / "ca.key", "-out", folder / "ca.pem")
    for name in "relay", "centre", "stranger":
        run(*new, "-subj", f"/CN={name}", "-addext", f"subjectAltName=DNS:{name}",
            "-CA", folder / "ca.pem", "-CAkey", folder / "ca.key",
            "-keyout", folder / f"{name}.key", "-out", folder / f"{name}.pem")
    return folder


def encrypted(text):
    changed, number = re.subn(r"# (tls[=.].*)", r"\1", text)
    assert number == 2
    return changed


@pytest.fixture
def start(debian, database, keys):
    programs = []
    debian.log.write_text("")

    def start(name, port, change=encrypted):
        program = Rsyslog(debian, name, port, change)
        program.start()
        programs.append(program)
    yield start
    for program in programs:
        program.end()


def test_lines_pass_encrypted(start, reader):
    start("centre", 2514)
    start("relay", 514)
    send(line("secret"))
    assert wait_until(lambda: reader.execute("select values from events") or reader.fetchall(),
                      "the line") == [["secret"]]


def logged(debian, text):
    return lambda: text in debian.log.read_text(errors="replace")


def test_a_relay_without_a_key_gets_nothing_in(start, reader, debian):
    start("centre", 2514)
    start("relay", 514, lambda text: text)
    send(line("in plain"))
    wait_until(logged(debian, "TLS handshake failed"), "the refusal")
    reader.execute("select values from events")
    assert reader.fetchall() == []


def test_a_relay_of_another_name_gets_nothing_in(start, reader, debian):
    start("centre", 2514)
    start("relay", 514, lambda text: encrypted(text).replace("relay.pem", "stranger.pem")
          .replace("relay.key", "stranger.key"))
    send(line("of a stranger"))
    wait_until(logged(debian, "peer is 'DNSname: stranger;"), "the refusal")
    reader.execute("select values from events")
    assert reader.fetchall() == []
