"""The service on a machine that has booted, as the package runs it."""

import re
import socket

import pytest

from machine import DEFINITIONS, SETTINGS, UNIT, wait_until

from support.records import make_record

pytestmark = pytest.mark.xdist_group("running")


def test_event_of_any_user_arrives(running):
    running.raise_and_wait("user")


def test_everyone_may_write_to_the_socket(running):
    assert running.sh("stat -c '%a %U' /tmp/ov-events") == "666 ov-event-logger\n"


def test_unit_is_confined(running):
    report = running.sh(f"systemd-analyze --no-pager security {UNIT}")
    assert float(re.search(r"exposure level for \S+: ([\d.]+)", report)[1]) <= 1.8


def test_months_are_english_whatever_the_language_of_the_machine(running):
    with socket.socket(socket.AF_UNIX) as client:
        client.connect(f"/proc/{running.leader}/root/tmp/ov-events")
        client.sendall(make_record("sys10", "march", 1709287200))
    assert "> Mar 01 " in running.collector.wait_for(" - march ")
    assert "LANG=de_DE.UTF-8\n" in running.sh("systemctl show-environment")


def test_output_is_kept_in_memory_apart_from_the_journal(running):
    running.raise_and_wait("journal")
    own = running.sh("journalctl --namespace=ov-event-logger")
    assert ">>> " in own and re.search(r"ov-event-logger \d+\.\d+\.\d+$", own, re.M)
    assert ">>> " not in running.sh("journalctl")
    assert running.sh("find /var/log/journal -path '*ov-event-logger*' -type f") == ""


def test_descriptors_last_for_a_week_without_a_tcp_collector(running):
    assert int(running.show("LimitNOFILE")) > 7 * 24 * 3600 / 10


def lines_about_the_service(machine):
    """Those of the service manager, but for complaints about the container."""
    return [line for line in machine.sh(f"journalctl --output=cat UNIT={UNIT}").splitlines()
            if "Failed to kill control group" not in line]


def test_killed_service_is_back_with_two_lines_in_the_journal(running):
    old = running.wait_until_active()
    before = lines_about_the_service(running)
    running.sh(f"kill -9 {old}")
    wait_until(lambda: running.wait_until_active() != old, "another process", 60)
    running.raise_and_wait("killed")
    assert lines_about_the_service(running)[len(before):] == [
        f"{UNIT}: Main process exited, code=killed, status=9/KILL",
        f"{UNIT}: Failed with result 'signal'."]


def test_restart_loses_no_event_that_comes_in_the_midst_of_it(running):
    running.sh(f"""
        systemctl --no-block restart {UNIT}
        for number in $(seq 20); do
            ov-event-logger -e sys10 midst$number >/dev/null &
            sleep 0.3
        done
        wait""")
    running.collector.wait_for(" - midst", 20)


def test_restart_sends_what_is_queued(running):
    running.raise_event("queued")
    running.sh(f"systemctl restart {UNIT}")
    running.collector.wait_for(" - queued ", deadline=1)


def notices(machine, value):
    """How often the settings with this value were read."""
    return machine.sh("journalctl --namespace=ov-event-logger --output=cat").count(
        f"mark: {value}\n")


def edit(machine, commands):
    """Not within the second of the last change, which the service would take for no change."""
    machine.sh(f"while [ $(stat -c %Y {SETTINGS}) -ge $(date +%s) ]; do sleep 0.1; done; "
               f"{commands}")


def test_edit_of_the_settings_is_noticed(running):
    edit(running, f"echo mark=1 >>{SETTINGS}")
    wait_until(lambda: notices(running, 1), "a reading", 6)


def printed(machine, text):
    """How many lines of the service's output have this text."""
    return machine.sh("journalctl --namespace=ov-event-logger --output=cat").count(text)


def test_restart_in_the_midst_of_a_change_of_the_settings_loses_nothing(running):
    monitors = "perfMon usbDevMon vmwSigninMon agentConnMon"
    edit(running, f"printf '%s=1\n' {monitors} >>{SETTINGS}")
    started = printed(running, "Starting monitor: ") + 4
    wait_until(lambda: printed(running, "Starting monitor: ") >= started, "the monitors")
    stopped = printed(running, "Stopping monitor: ")
    edit(running, f"sed -i 's/Mon=1/Mon=0/' {SETTINGS}")
    wait_until(lambda: printed(running, "Stopping monitor: ") > stopped, "the cycle's end")
    for number in range(10):
        running.raise_event(f"change{number}")
    running.sh(f"systemctl restart {UNIT}")
    running.collector.wait_for(" - change", 10, deadline=1)


def test_settings_that_are_replaced_are_noticed(running):
    edit(running, f"cp {SETTINGS} {SETTINGS}.new; echo mark=2 >>{SETTINGS}.new; "
                  f"mv {SETTINGS}.new {SETTINGS}")
    wait_until(lambda: notices(running, 2), "a reading", 6)


def test_removed_settings_keep_their_values(running):
    running.sh(f"mv {SETTINGS} /root/")
    running.raise_and_wait("removed")
    running.sh(f"mv /root/ov-event-logger.ini {SETTINGS}")
    running.raise_and_wait("put-back")


def test_settings_that_the_service_may_not_read_keep_their_values_until_a_restart(running):
    edit(running, f"chmod 0600 {SETTINGS}; echo mark=3 >>{SETTINGS}")
    running.raise_and_wait("secret")
    assert "[settings-not-readable-by-service]" in running.run("ov-event-check").stdout
    edit(running, f"chmod 0644 {SETTINGS}; echo mark=4 >>{SETTINGS}")
    wait_until(lambda: notices(running, 4), "a reading", 6)
    running.raise_and_wait("readable")


def test_changed_definitions_restart_the_service_after_what_is_queued(running):
    old = running.wait_until_active()
    running.raise_event("before")
    running.sh(f"sed -i 's/Update installed/Changed text/' {DEFINITIONS}")
    wait_until(lambda: running.wait_until_active() != old, "another process", 60)
    running.collector.wait_for(" Update installed - before ")
    running.raise_event("after")
    running.collector.wait_for(" Changed text - after ")


def test_definitions_that_change_often_are_noticed_once_more(running):
    running.sh(f"""
        systemctl stop {UNIT}
        for number in $(seq 12); do
            cp {DEFINITIONS} {DEFINITIONS}.x; mv {DEFINITIONS}.x {DEFINITIONS}; sleep 0.2
        done
        systemctl start {UNIT}""")
    running.wait_until_active()
    running.sh(f"sed -i 's/Changed text/Changed often/' {DEFINITIONS}")
    wait_until(lambda: running.raise_event("often") and any(
        " Changed often " in line for line in running.collector.lines), "the last text", 60, 1)


def test_nobody_else_brings_definitions_while_these_are_missing(running):
    running.run("setpriv --reuid=1000 --regid=1000 --clear-groups "
                "sh -c 'echo sys10,a,Evil,crit >/tmp/ov-event-def.csv'")
    running.sh(f"mv {DEFINITIONS} /root/; systemctl restart {UNIT}")
    running.wait_until_active()
    running.raise_event("missing")
    wait_until(lambda: "Event sys10 is not defined" in running.sh(
        "journalctl --namespace=ov-event-logger --output=cat"), "the event", 10)
    running.sh(f"mv /root/ov-event-def.csv {DEFINITIONS}; systemctl restart {UNIT}")
    running.wait_until_active()
    running.raise_and_wait("back")


def put_and_restart(machine, commands):
    """As another user puts something at a fixed path while the service does not run."""
    machine.sh(f"systemctl stop {UNIT}; rm -rf /tmp/ov-event*; "
               f"setpriv --reuid=1000 --regid=1000 --clear-groups sh -ec '{commands}'; "
               f"systemctl start {UNIT}")
    machine.wait_until_active()


def test_folders_of_another_user_are_cleared(running):
    put_and_restart(running, "mkdir -p /tmp/ov-events/x /tmp/ov-event-logger.ini/x "
                             "/tmp/ov-event-def.csv/x; chmod 0 /tmp/ov-events")
    running.raise_and_wait("folders")


def test_files_of_another_user_are_cleared(running):
    put_and_restart(running, "echo a >/tmp/ov-events; mkfifo /tmp/ov-event-def.csv; "
                             "echo host=never.invalid >/tmp/ov-event-logger.ini")
    running.raise_and_wait("files")


def test_links_of_another_user_are_cleared_and_not_followed(running):
    running.sh("echo kept >/root/kept; chmod 0644 /root/kept")
    put_and_restart(running, "cd /tmp; ln -s /root/kept ov-events; ln -s /root/x ov-event-def.csv; "
                             "ln -s /root ov-event-logger.ini")
    running.raise_and_wait("links")
    assert running.sh("cat /root/kept") == "kept\n"
    assert running.sh("readlink /tmp/ov-event-logger.ini") == f"{SETTINGS}\n"


def test_full_tmp_does_not_keep_the_service_from_its_work(running):
    running.run("dd if=/dev/zero of=/tmp/full bs=1M 2>/dev/null")
    assert running.run("echo x >/tmp/more").returncode != 0
    running.sh(f"systemctl restart {UNIT}")
    running.raise_and_wait("full")
    running.sh("rm -f /tmp/full /tmp/more")


def test_reading_of_100_percent_ends_the_service_which_comes_back(running):
    script = "/usr/lib/orvan/ov-event-logger/perf.sh"
    running.sh(f"cp -p {script} /root/; printf '#!/bin/sh\\necho cpu=100\\n' >{script}")
    old = running.wait_until_active()
    edit(running, f"echo perfMon=1 >>{SETTINGS}")
    wait_until(lambda: running.show("Result") == "core-dump" or running.show("NRestarts") != "0",
               "the abort", 30)
    running.sh(f"cp -p /root/perf.sh {script}")
    wait_until(lambda: running.wait_until_active() != old, "another process", 60)
    running.raise_and_wait("percent")
    running.sh(f"sed -i /perfMon/d {SETTINGS}; systemctl restart {UNIT}")
