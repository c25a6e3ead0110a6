"""Who may do what in the database, and how long it keeps lines."""

import re
import shlex

import psycopg2
import pytest

from centre import EXAMPLES, store

VIEWS = ("events last_word silent_machines lost_lines disconnected_machines full_disks signed_in "
         "unknown_usb_devices frequent_events events_by_hour relays").split()


def refuses(cursor, statement):
    with pytest.raises(psycopg2.errors.InsufficientPrivilege):
        cursor.execute(statement)


@pytest.mark.parametrize("statement", [
    "select * from event_lines", "select * from events", "update event_lines set host = 'x'",
    "delete from event_lines", "truncate event_lines", "drop table event_lines",
    "select * from machine_states", "delete from machine_states", "select * from refused_lines",
    "select keep_days()", "create table extra ()", "create temporary table extra ()",
    "set role ov_owner"])
def test_the_writer_may_not(writer, statement):
    refuses(writer, statement)


@pytest.mark.parametrize("statement", [
    "select * from event_lines", "select * from machine_states", "select * from refused_lines",
    "select store_line('{}', '')", "select keep_days()", "create temporary table extra ()",
    "set role ov_owner"])
def test_the_reader_may_not(reader, statement):
    reader.execute("set default_transaction_read_only = off")
    refuses(reader, statement)


@pytest.mark.parametrize("view", VIEWS)
def test_the_reader_may_read(reader, view):
    reader.execute(f"select * from {view}")


def test_users_who_are_not_named_may_not_connect(debian):
    with pytest.raises(AssertionError, match="Peer authentication failed"):
        debian.run("psql", "--username=ov_reader", "--dbname=ov_events", user="www-data")


def test_the_schema_may_be_loaded_again(writer, reader, server):
    store(writer, "now()")
    server.load_schema()
    reader.execute("select host from events")
    assert reader.fetchall() == [["tc-1"]]


def test_a_line_of_a_day_without_a_partition_is_kept(writer, reader):
    store(writer, "generate_series(now() - interval '9 years', now() + '9 years', '9 years')")
    reader.execute("select count(*) from events")
    assert reader.fetchone() == [3]


def test_lines_get_the_partition_of_their_day_afterwards(writer, reader, owner):
    store(writer, "date_trunc('day', now()) - interval '3 days'")
    owner.execute("select tableoid::regclass::text from event_lines")
    assert owner.fetchone() == ["event_lines_other"]
    owner.execute("select keep_days()")
    owner.execute("select tableoid::regclass::text = 'event_lines_' ||"
                  " to_char(received at time zone 'UTC', 'YYYYMMDD') from event_lines")
    assert owner.fetchall() == [[True]]
    owner.execute("drop table " + partition(owner, 3))


def partition(owner, days_ago):
    owner.execute("select 'event_lines_' || to_char(now() at time zone 'UTC'"
                  f" - interval '{days_ago} days', 'YYYYMMDD')")
    return owner.fetchone()[0]


def test_the_next_seven_days_have_a_partition(owner):
    owner.execute("select keep_days()")
    for days_ago in range(1, -8, -1):
        owner.execute("select to_regclass(%s) is not null", (partition(owner, days_ago),))
        assert owner.fetchone() == [True]


def test_what_is_older_than_the_days_kept_is_dropped(writer, owner):
    store(writer, "generate_series(now() - interval '5 days', now(), '1 day')")
    owner.execute("select keep_days()")
    owner.execute("update fleet_settings set days_kept = 3")
    try:
        owner.execute("select keep_days()")
        owner.execute("select count(*), min(received) > now() - interval '4 days' from event_lines")
        assert owner.fetchone() == [4, True]
        owner.execute("select to_regclass(%s)", (partition(owner, 4),))
        assert owner.fetchone() == [None]
    finally:
        owner.execute("update fleet_settings set days_kept = default")
    owner.execute(f"drop table {partition(owner, 2)}, {partition(owner, 3)}")


def test_old_lines_without_a_partition_and_old_states_are_dropped(writer, owner):
    store(writer, "now() - interval '10 years'")
    owner.execute("select keep_days()")
    for table in "event_lines", "machine_states":
        owner.execute(f"select count(*) from {table}")
        assert owner.fetchone() == [0]


def test_the_daily_unit_keeps_the_days(debian, owner):
    """Its command, as the user that systemd runs it as."""
    unit = (EXAMPLES / "systemd/ov-keep-days.service").read_text()
    [command] = re.findall("^ExecStart=(.*)$", unit, re.MULTILINE)
    [user] = re.findall("^User=(.*)$", unit, re.MULTILINE)
    owner.execute("drop table " + partition(owner, -7))
    debian.run(*shlex.split(command), user=user)
    owner.execute("select to_regclass(%s) is not null", (partition(owner, -7),))
    assert owner.fetchone() == [True]
