"""What the views say of lines that were made for them."""

import datetime

import pytest

import centre


@pytest.fixture
def store(writer, now):
    def store(id, minutes_ago=1.0, received=None, **fields):
        received = received or now - datetime.timedelta(minutes=minutes_ago)
        centre.store(writer, f"timestamptz '{received}'", id=id, **fields)
    return store


@pytest.fixture
def view(reader):
    def view(columns, name):
        reader.execute(f"select {columns} from {name} order by 1")
        return [tuple(row) for row in reader.fetchall()]
    return view


@pytest.mark.parametrize("at, received, sent", [
    ("Nov 14 22:13:20", "2026-11-14 22:13:23", "2026-11-14 22:13:20"),
    ("Jan  1 00:00:01", "2027-01-01 00:00:04", "2027-01-01 00:00:01"),
    ("Dec 31 23:59:59", "2027-01-01 00:00:02", "2026-12-31 23:59:59"),
    ("Jan  1 00:00:01", "2026-12-31 23:59:58", "2027-01-01 00:00:01"),
    ("Feb 29 12:00:00", "2028-02-29 12:00:03", "2028-02-29 12:00:00"),
    ("Feb 30 12:00:00", "2026-03-02 12:00:03", None),
    ("Mai 14 22:13:20", "2026-05-14 22:13:23", None),
    ("anF 14 22:13:20", "2026-05-14 22:13:23", None),
    ("May 14 25:13:20", "2026-05-14 22:13:23", None),
    ("", "2026-05-14 22:13:23", None),
])
def test_the_time_of_sending_has_the_nearest_year(store, view, at, received, sent):
    store("sys10", at=at, received=received + "Z")
    [(found,)] = view("sent", "events")
    assert found == (sent and datetime.datetime.fromisoformat(sent + "+00:00"))


def test_the_last_word_is_the_latest_line_of_each_machine(store, view):
    store("sys10", 3, values="early")
    store("perf01", 1, values="late")
    store("sys10", 2, values="between")
    store("sys10", 5, values="other", host="tc-2")
    assert view("host, id, values", "last_word") == [
        ("tc-1", "perf01", "late"), ("tc-2", "sys10", "other")]


@pytest.mark.parametrize("ids", [("sys10", "perf03"), ("perf03", "sys10"), ("sys10", "sys10")])
def test_of_lines_with_the_same_time_the_last_word_is_the_one_stored_last(store, view, ids):
    for values, id in zip(("first", "second"), ids):
        store(id, values=values)
    assert view("host, values", "last_word") == [("tc-1", "second")]


def test_a_machine_is_silent_after_two_intervals_without_a_line(store, view):
    store("sys03", 11.5, values="7", host="silent")
    store("sys03", 10.5, values="7", host="late")
    store("sys03", 20, values="7", host="talks")
    store("sys10", 1, host="talks")
    store("sys10", 20, host="has no heartbeat")
    store("sys03", 20, values="7", host="off")
    store("sys02", 15, host="off")
    store("sys02", 25, host="on again")
    store("sys03", 20, values="1", host="on again")
    assert view("host, last_id, relay", "silent_machines") == [
        ("on again", "sys03", "relay-1"), ("silent", "sys03", "relay-1")]


def test_the_interval_of_the_heartbeat_can_be_set(store, view, owner):
    store("sys03", 20, values="7")
    owner.execute("update fleet_settings set heartbeat = '15 min'")
    try:
        assert view("host", "silent_machines") == []
    finally:
        owner.execute("update fleet_settings set heartbeat = default")


@pytest.mark.parametrize("numbers, lost", [
    ("1 2 3", []),
    ("1 2 5 6", [("tc-1", 2, 1)]),
    ("1 3 5", [("tc-1", 2, 2)]),
    ("7 8 8 9", []),
    ("7 8 1 2", []),
    ("7 8 3 4", [("tc-1", 2, 1)]),
    ("7 x 8", []),
    ("7 0 1", []),
    ("7 9999999999 8", []),
    ("7", []),
])
def test_a_gap_in_the_heartbeats_is_loss(store, view, numbers, lost):
    for position, number in enumerate(numbers.split()):
        store("sys03", 60 - position, values=number)
    assert view("host, lost, gaps", "lost_lines") == lost


@pytest.mark.parametrize("heartbeats, lost", [
    ("1@60 4@57 2@59 3@58", []),
    ("1@60 5@56 2@59 4@57", [("tc-1", 1, 1)]),
    ("1@60 4@60 2@60 3@60 5@55", []),
    ("7@60 1@50 8@59", []),
])
def test_a_heartbeat_that_comes_late_is_not_lost(store, view, heartbeats, lost):
    for heartbeat in heartbeats.split():
        number, minutes_ago = heartbeat.split("@")
        store("sys03", int(minutes_ago), values=number)
    assert view("host, lost, gaps", "lost_lines") == lost


def test_losses_of_yesterday_do_not_count(store, view):
    store("sys03", 26 * 60, values="1")
    store("sys03", 25 * 60, values="5")
    assert view("host", "lost_lines") == []


def test_a_machine_is_disconnected_until_it_connects(store, view):
    store("net03", 3, values="DISCONNECTED", host="away")
    store("net03", 3, host="back")
    store("net02", 2, host="back", values="CERTIFICATE WARNING")
    store("net02", 3, host="gone")
    store("net03", 2, host="gone")
    store("sys03", 1, values="1", host="gone")
    assert view("host, status", "disconnected_machines") == [("away", "DISCONNECTED"), ("gone", "")]


def test_a_disk_is_full_until_the_machine_boots(store, view):
    store("perf03", 30, values="81.00% > 80.00%", host="full")
    store("sys01", 60, host="full")
    store("perf03", 30, values="82.00% > 80.00%", host="booted")
    store("sys01", 20, host="booted")
    store("perf03", 30, values="83.00% > 80.00%", host="booted by heartbeat")
    store("sys03", 20, values="1", host="booted by heartbeat")
    store("perf03", 20.5, values="84.00% > 80.00%", host="still full")
    store("sys03", 20, values="1", host="still full")
    assert view("host, values", "full_disks") == [
        ("full", "81.00% > 80.00%"), ("still full", "84.00% > 80.00%")]


def test_a_user_is_signed_in_until_the_next_sign_in_shutdown_or_boot(store, view):
    for host in "in", "replaced", "failed", "off", "booted":
        store("sec03", 30, values="alice/CORP", host=host)
    store("sec03", 20, values="bob/CORP", host="replaced")
    store("sec04", 20, values="eve/CORP", host="failed")
    store("sys02", 20, host="off")
    store("sys01", 20, host="booted")
    assert view("host, user_name", "signed_in") == [("in", "alice/CORP"), ("replaced", "bob/CORP")]


def test_a_usb_device_is_unknown_unless_the_administrator_lists_it(store, view, owner):
    owner.execute("insert into known_usb_devices values ('046d:c31c')")
    store("sys05", 30, values="046D:C31C 123 Logitech USB Keyboard")
    store("sys06", 30, values="0951:1666 stick")
    store("sys06", 30, values="0951:1667 unplugged")
    store("sys07", 20, values="0951:1667 unplugged")
    store("sys05", 30, values="0951:1668 before the boot", host="tc-2")
    store("sys01", 20, host="tc-2")
    assert view("host, device", "unknown_usb_devices") == [("tc-1", "0951:1666 stick")]


def test_frequent_events_are_counted_with_their_machines(store, view):
    for host in "tc-1", "tc-1", "tc-2":
        store("perf01", host=host, severity="warn")
    store("sys10")
    store("perf01", 25 * 60, severity="warn")
    assert view("id, severity, lines, machines", "frequent_events") == [
        ("perf01", "warn", 3, 2), ("sys10", "info", 1, 1)]


def test_events_are_counted_by_the_hour(store, view, now):
    hour = now.replace(minute=0, second=0, microsecond=0)
    store("sys10", received=hour)
    store("sys10", received=hour - datetime.timedelta(seconds=1))
    store("sys10", received=hour - datetime.timedelta(hours=1))
    assert view("hour, severity, lines", "events_by_hour") == [
        (hour - datetime.timedelta(hours=1), "info", 2), (hour, "info", 1)]


def test_a_relay_is_known_by_the_machines_that_last_used_it(store, view):
    store("sys10", 3, relay="relay-1")
    store("sys10", 2, relay="relay-2")
    store("sys10", 2, relay="relay-2", host="tc-2")
    assert view("relay, machines", "relays") == [("relay-2", 2)]


def test_a_line_of_another_form_is_in_the_events_only(store, view):
    store("", host="", line="no header")
    assert [view("line", "events"), view("host", "last_word"), view("id", "frequent_events")] == [
        [("no header",)], [], []]
