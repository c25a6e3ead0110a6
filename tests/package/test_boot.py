"""What happens as the machine starts and stops."""

import os
import re
import subprocess
import textwrap

import pytest

from machine import REPOSITORY, SETTINGS, UNIT, wait_until

OPERATING = (REPOSITORY / "docs/OPERATING.md").read_text()


def test_events_at_boot_and_at_shutdown_arrive_at_every_start(machine):
    machine.sh("systemctl enable ov-event-logger-boot ov-event-logger-shutdown")
    for _ in range(2):
        machine.boot()
        machine.collector.wait_for(" sys01 System started ")
        machine.power_off()
        assert " sys02 System is shutting down " in machine.collector.lines[-1]


def drop_in(heading, **changes):
    """The first one below the heading of the page for operators, with other values."""
    text = re.search(rf"^## {heading}$(?:\n|.)*?\n\n((?:    .*\n)+)", OPERATING, re.M)[1]
    for name, value in changes.items():
        text = re.sub(rf"(?<={name}=)\S+", value, text)
    return textwrap.dedent(text)


def test_heartbeat_counts_from_1_on_in_the_interval_of_a_drop_in(machine):
    machine.sh("systemctl enable ov-event-logger-heartbeat.timer")
    folder = machine.path("/etc/systemd/system/ov-event-logger-heartbeat.timer.d")
    folder.mkdir()
    (folder / "often.conf").write_text(
        drop_in("Watching many", OnUnitActiveSec="3s") + "RandomizedDelaySec=0\nAccuracySec=1ms\n")
    machine.boot()
    for number in range(1, 4):
        machine.collector.wait_for(f" sys03 Machine is alive - {number} ")


def test_name_that_resolves_late_loses_no_event_of_the_boot(machine):
    machine.write_settings(host="collector.example")
    machine.sh("systemctl enable ov-event-logger-boot")
    machine.path("/etc/systemd/system/late-name.service").write_text(
        "[Service]\nExecStart=sh -c 'sleep 20; echo 127.0.0.1 collector.example >>/etc/hosts'\n"
        "[Install]\nWantedBy=sysinit.target\n")
    machine.sh("systemctl enable late-name")
    machine.boot()
    machine.collector.wait_for(" sys01 System started ")


def test_file_that_another_user_makes_in_the_wait_for_the_name_is_cleared(machine):
    machine.write_settings(host="collector.example")
    machine.boot()
    wait_until(lambda: machine.show("SubState") == "start-pre", "the wait", 60)
    machine.sh("setpriv --reuid=1000 --regid=1000 --clear-groups touch /tmp/ov-events; "
               "echo 127.0.0.1 collector.example >>/etc/hosts")
    machine.raise_and_wait("late")


def test_name_that_does_not_resolve_is_asked_for_again(machine):
    machine.write_settings(host="collector.example")
    machine.boot()
    wait_until(lambda: int(machine.show("NRestarts")) >= 1, "a second start", 90)
    assert "The collector's name collector.example has no address yet" in machine.sh(
        "journalctl --namespace=ov-event-logger --output=cat")
    machine.sh("echo 127.0.0.1 collector.example >>/etc/hosts")
    machine.wait_until_active()


def test_drop_in_lets_a_script_keep_a_state(machine):
    machine.write_settings(perfMon=1)
    folder = machine.path(f"/etc/systemd/system/{UNIT}.d")
    folder.mkdir()
    (folder / "rights.conf").write_text(drop_in("The unit"))
    machine.path("/usr/lib/orvan/ov-event-logger/perf.sh").write_text(
        "#!/bin/sh\nid -nG >/var/lib/ov-event-logger/groups\n")
    machine.boot()
    wait_until(lambda: machine.run("cat /var/lib/ov-event-logger/groups").stdout ==
               "ov-event-logger plugdev\n", "the script's file")


@pytest.fixture
def disk(machine, tmp_path):
    """Nearly full, and mounted on the machine."""
    image = tmp_path / "disk"
    with image.open("wb") as file:
        file.truncate(64 << 20)
    subprocess.run(["mkfs.ext4", "-q", "-m", "0", image], check=True)
    path = machine.path("/srv/data")
    path.mkdir()
    subprocess.run(["mount", "-o", "loop", image, path], check=True)
    state = os.statvfs(path)
    (path / "full").write_bytes(bytes(int(state.f_bavail * 0.97) * state.f_bsize))
    yield path
    subprocess.run(["umount", path], check=True)


def test_confined_script_sees_how_full_a_disk_is(machine, disk):
    machine.write_settings(perfMon=1, cpuThreshold=101, memThreshold=101, diskThreshold=90)
    state = os.statvfs(disk)
    used = state.f_blocks - state.f_bfree
    machine.boot()
    percent = used * 10000 // (used + state.f_bavail) / 100
    assert f" - {percent:.2f}% > 90.00% " in machine.collector.wait_for(" perf03 ")


USB = "/srv/usb"


def wait_for_checks(machine):
    """Until each monitor has looked once more: one that looks every 5 seconds prints a line."""
    def lines():
        return machine.sh("journalctl --namespace=ov-event-logger").count("ReadAgentStatus")
    seen = lines()
    wait_until(lambda: lines() >= seen + 2, "two lines", interval=0.5)


def test_ten_built_in_events_come_through_the_confined_unit(machine):
    machine.write_settings(perfMon=1, usbDevMon=1, vmwSigninMon=1, agentConnMon=1, cpuThreshold=0,
                           memThreshold=0, diskThreshold=0)
    folder = machine.path(f"/etc/systemd/system/{UNIT}.d")
    folder.mkdir()
    # The container has no USB of its own.
    (folder / "usb.conf").write_text(f"[Service]\nEnvironment=OV_USB_DEVICES={USB}\n")
    machine.sh(f"""
        mkdir -p {USB}/1-1 {USB}/1-2
        for device in 1-1 1-2; do
            echo 046d >{USB}/$device/idVendor; echo $device >{USB}/$device/product
            echo c31c >{USB}/$device/idProduct; echo 00 >{USB}/$device/bDeviceClass
        done
        cp /bin/sleep /usr/bin/horizon-client""")
    machine.boot()
    machine.sh("mkdir /run/ov-event-logger")
    for event in ("perf01", "perf02", "perf03", "sys05"):
        machine.collector.wait_for(f" {event} ")
    machine.sh(f"mv {USB}/1-1 /srv/")
    machine.collector.wait_for(" sys07 ")
    machine.sh(f"mv /srv/1-1 {USB}/")
    machine.collector.wait_for(" sys06 ")
    for outcome, event in (("success", "sec03"), ("error", "sec04")):
        machine.sh(f"printf '{outcome}\\nanna\\n\\n' >/run/ov-event-logger/signin")
        machine.sh(f"systemd-run --unit={event} /usr/bin/horizon-client 1000")
        assert "anna" in machine.collector.wait_for(f" {event} ")
        machine.sh(f"systemctl stop {event}")
        wait_for_checks(machine)
    for status, event in (("CONNECTED", "net02"), ("FAILED", "net03")):
        machine.sh(f"printf 'a\\nb\\n{status}\\n' >/tmp/ovwsagentstatus")
        machine.collector.wait_for(f" {event} ")


def test_settings_survive_a_restart_of_the_machine(machine):
    machine.boot()
    machine.wait_until_active()
    machine.power_off()
    machine.boot()
    assert machine.sh("readlink /tmp/ov-event-logger.ini").strip() == SETTINGS
    machine.raise_and_wait("again")
