"""What a client sends to the relay is stored once, whatever it is and whatever fails."""

import signal
import socket
import time

import pytest

from centre import Rsyslog, line, send
from support.polling import wait_until

COLUMNS = ("sender, host, address, id, description, values, severity, facility, at, relay, line")


def stored(reader, columns, number):
    """All rows in the order of their coming, once there are as many as `number`."""
    def read():
        reader.execute(f"select {columns} from events order by number")
        return reader.rowcount >= number and [tuple(row) for row in reader.fetchall()]
    return wait_until(read, lambda: f"{number} rows, but {reader.rowcount}")


def wait_until_it_stays(look, least):
    """Until `look()` is at least so much, and the same as half a second ago."""
    def stays():
        before = look()
        time.sleep(0.5)
        return look() == before >= least
    wait_until(stays, f"{look()} to become {least} and stay")


def values(reader, number):
    return [value for value, in stored(reader, "values", number)]


def test_a_line_is_stored_in_its_fields(relay, reader):
    send(line("kernel 5.1"))
    assert stored(reader, COLUMNS, 1) == [(
        "127.0.0.1", "tc-0042", "192.168.1.20", "sys10", "Update installed", "kernel 5.1", "notice",
        "daemon", "Nov 14 22:13:20", "tc-0042", "")]


def test_a_line_over_udp_is_stored_in_its_fields(relay, reader):
    with socket.socket(type=socket.SOCK_DGRAM) as client:
        client.sendto(line("kernel 5.1"), ("127.0.0.1", 514))
    assert stored(reader, "host, id, values", 1) == [("tc-0042", "sys10", "kernel 5.1")]


@pytest.mark.parametrize("other", [
    "<29> Nov 14 22:13:20 tc-0042(192.168.1.20): sys10 Update installed - kernel (notice)",
    "no header",
    "9 begins with a number",
    line("kernel", host="h" * 256).decode(),
    line("kernel", id="i" * 33).decode(),
    line("kernel", at="").decode(),
    line("kernel").decode().replace("Update", 'the "Update"'),
], ids=["default line", "no header", "number", "long name", "long identifier", "no time", "quotes"])
def test_a_line_of_another_form_is_kept_whole(relay, reader, other):
    send(other.encode())
    assert stored(reader, COLUMNS, 1) == [("127.0.0.1", *[""] * 8, "tc-0042", other)]


def test_text_of_other_languages_stays_as_it_is(relay, reader):
    texts = ["'); drop table event_lines; --", "\\'; select 1", '"a" \\ \\n {"b": 1}, %msg% $!id',
             "Zürich €uro 😀", "x" * 6000, "é" * 3000]
    send(*map(line, texts))
    assert values(reader, len(texts)) == texts


def test_bytes_that_are_no_text_become_blanks_and_neighbours_stay(relay, reader):
    send(line("before"), line(b'"\xe2"'), line(b"\xff\xfe"), line(b"\xed\xa0\x80"),
         line(b"", host="\udce2", id="\udcff"), line("after"))
    assert stored(reader, "host, id, values", 6) == [
        ("tc-0042", "sys10", "before"), ("tc-0042", "sys10", '" "'), ("tc-0042", "sys10", "  "),
        ("tc-0042", "sys10", "   "), (" ", " ", ""), ("tc-0042", "sys10", "after")]


def test_a_line_that_the_database_refuses_is_set_aside(relay, reader, owner):
    owner.execute("alter table event_lines add constraint refuse check (values <> '20')")
    try:
        send(*(line(str(number)) for number in range(50)))
        assert values(reader, 49) == [str(number) for number in range(50) if number != 20]
        owner.execute("select reason, event::json ->> 'values' from refused_lines")
        [(reason, value)] = owner.fetchall()
        assert 'violates check constraint "refuse"' in reason and value == "20"
    finally:
        owner.execute("alter table event_lines drop constraint refuse")


def test_what_is_not_the_fault_of_a_line_is_tried_again(relay, reader, owner, debian):
    owner.execute("""
        create function fill_disk() returns trigger language plpgsql as
        $$ begin raise 'No space left on device' using errcode = 'disk_full'; end $$;
        create trigger fill_disk before insert on event_lines execute function fill_disk()""")
    try:
        send(*(line(str(number)) for number in range(50)))
        wait_until(lambda: b"not stored: No space left" in debian.log.read_bytes(), "the refusal")
    finally:
        owner.execute("drop function fill_disk cascade")
    assert values(reader, 50) == [str(number) for number in range(50)]


def test_lines_are_stored_once_if_the_connection_to_the_database_breaks(relay, reader, database):
    expected = []
    for batch in range(20):
        texts = [f"{batch} {number}" for number in range(200)]
        send(*map(line, texts))
        expected += texts
        wait_until(database.end_connection_of_writer, "a connection of the writer")
    assert sorted(values(reader, len(expected))) == sorted(expected)


def test_lines_are_stored_once_if_the_database_stops(relay, database, server):
    send(*(line(str(number)) for number in range(500)))
    server.stop()
    send(*(line(str(number)) for number in range(500, 1000)))
    server.start()
    for reader in database.cursor("ov_reader"):
        assert sorted(map(int, values(reader, 1000))) == list(range(1000))


@pytest.fixture
def start(debian):
    """Starts a relay or a centre."""
    programs = []

    def start(name, port):
        programs.append(Rsyslog(debian, name, port))
        programs[-1].start()
        return programs[-1]
    yield start
    for program in programs:
        program.end()


def size_of_queue(debian, name):
    """In bytes."""
    return sum(file.stat().st_size for file in
               debian.path("/var/spool/rsyslog").glob(f"ov-{name}.0*"))


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGKILL])
def test_lines_wait_on_the_disk_of_a_relay_while_the_centre_is_away(
        debian, database, reader, start, how):
    """The thin clients do not wait, and the relay may stop or be killed."""
    relay = start("relay", 514)
    for batch in range(0, 5000, 500):
        send(*(line(str(number)) for number in range(batch, batch + 500)))
    wait_until_it_stays(lambda: size_of_queue(debian, "relay"), 5000 * 1000)
    relay.end(how)
    relay.start()
    start("centre", 2514)
    assert sorted(map(int, values(reader, 5000))) == list(range(5000))
    reader.execute("select distinct sender, host, line from events")
    assert reader.fetchall() == [["127.0.0.1", "tc-0042", ""]]


@pytest.mark.parametrize("how, lost", [(signal.SIGTERM, 1), (signal.SIGKILL, 0)])
def test_lines_wait_on_the_disk_of_the_centre_while_the_database_is_away(
        debian, server, relay, centre, database, how, lost):
    """rsyslog may lose the one at hand when it stops."""
    server.stop()
    send(*(line(str(number)) for number in range(5000)))
    wait_until_it_stays(lambda: size_of_queue(debian, "centre"), 5000 * 500)
    centre.end(how)
    centre.start()
    server.start()
    for reader in database.cursor("ov_reader"):
        assert sorted(map(int, values(reader, 5000 - lost)))[-4990:] == list(range(10, 5000))


def test_an_event_that_comes_twice_is_stored_once(writer, reader):
    event = """{"key": "9E4C9E7DA22C4936A85FDBE34F1CF5A4", "received": "2026-11-14T22:13:20+00:00",
        "sender": "192.0.2.1"}"""
    for _ in range(2):
        writer.execute("select store_line(%s, 'relay')", (event,))
    assert stored(reader, "sender", 1) == [("192.0.2.1",)]
    reader.execute("select * from refused")
    assert reader.fetchall() == []
