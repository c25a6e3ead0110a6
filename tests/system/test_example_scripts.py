"""The example scripts of the performance and USB monitors: what they print, and what the service
makes of it."""

import os
import re

import pytest

from support.machine import (
    USB_DEVICES, add_comma_locale, add_disk, add_hung_mount, install_scripts, output, plug,
    remove_usb_devices, replace, replace_command, script, sign_in, start_service_for, unplug,
    use_of_fullest_disk)
from support.polling import wait_until

PERF, USB, SIGNIN = map(script, ("perf", "usb-devices", "vmw-signin-status"))
KEYBOARD = {"idVendor": "046d", "idProduct": "c31c", "manufacturer": "Logitech",
            "product": "USB Keyboard", "bDeviceClass": "00", "removable": "removable"}
KEYBOARD_LINE = "046d:c31c Logitech USB Keyboard\n"
STICK = {"idVendor": "0951", "idProduct": "1666", "serial": "60A44C413FAE",
         "manufacturer": "Kingston", "product": "DataTraveler 3.0"}
STICK_LINE = "0951:1666 serial=60A44C413FAE Kingston DataTraveler 3.0\n"
HUB = {"idVendor": "05e3", "idProduct": "0610", "bDeviceClass": "09"}


@pytest.fixture(autouse=True)
def scripts(sandbox):
    install_scripts(sandbox)


# perf.sh

def figures(sandbox):
    return dict(line.split("=") for line in output(sandbox, PERF).splitlines())


@pytest.mark.parametrize("after, line", [
    ("101 202 303 480 504 605 702 803 950 950", "cpu=16.00\n"),
    ("100 200 300 401 500 603 700 800 900 900", "cpu=75.00\n"),
    ("102 200 300 401 500 600 700 800 900 900", "cpu=66.66\n"),
    ("100 200 300 499 501 600 700 800 900 900", "cpu=0.00\n"),
    ("199 200 300 400 500 600 700 800 900 900", "cpu=99.99\n"),
    ("90 200 300 405 500 600 700 800 900 900", "cpu=0.00\n"),
    ("150 200 300 450 400 600 700 800 900 900", "cpu=99.99\n"),
    ("100 200 300 400 500 600 700 800 900 900", "")],
    ids=["each-counter", "irq", "cut-not-rounded", "idle", "all-busy", "busy-going-back",
         "idle-going-back", "no-time-passed"])
def test_processor_use_is_what_passed_between_two_looks(sandbox, after, line):
    counters = replace(sandbox, "/proc/stat", "cpu  100 200 300 400 500 600 700 800 900 900\n")
    pause = replace_command(sandbox, "sleep", f"echo cpu  {after} >{counters}")
    assert output(sandbox, PERF, env=pause).split("mem=")[0] == line


def test_processors_that_are_all_busy_are_seen_as_such(sandbox):
    for _ in range(os.cpu_count()):
        sandbox.start("sh", "-c", "echo busy; while :; do :; done").wait_for_line("busy")
    assert 90 < float(figures(sandbox)["cpu"]) <= 99.99


@pytest.mark.parametrize("total, available, line", [
    (1000, 875, "mem=12.50\n"), (3, 1, "mem=66.66\n"), (1000, 0, "mem=99.99\n"),
    (1000, 1001, "mem=0.00\n"), (1 << 40, 1 << 39, "mem=50.00\n"), (0, 0, "")])
def test_memory_use_is_all_but_what_is_available(sandbox, total, available, line):
    replace(sandbox, "/proc/meminfo", f"MemTotal: {total} kB\nMemFree: 1 kB\n"
                                      f"MemAvailable: {available} kB\nCached: 5 kB\n")
    assert "".join(re.findall("mem=.*\n", output(sandbox, PERF))) == line


@pytest.mark.parametrize("used", ["1M", "9M", "11M"])
def test_disk_use_is_that_of_the_fullest(sandbox, used):
    add_disk(sandbox, used)
    add_disk(sandbox, "1M", path="/tmp/another")
    wait_until(lambda: figures(sandbox)["disk"] == use_of_fullest_disk(sandbox),
               "an equal reading while the use of the machine's disks keeps still")


@pytest.mark.parametrize("change", [
    "mount -o remount,ro /tmp/disk",
    "umount /tmp/disk; cd /tmp/layers; mount -t overlay -o lowerdir=upper:lower o /tmp/disk",
    "umount /tmp/disk; mount --bind /tmp/layers /tmp/disk",
    "mount --bind /tmp/layers /tmp/disk"],
    ids=["read-only", "no-writable-layer", "in-memory", "covered"])
def test_full_file_system_that_does_not_count_is_ignored(sandbox, change):
    add_disk(sandbox, "11M")
    assert figures(sandbox)["disk"] == "99.99"
    sandbox.sh(change)
    assert figures(sandbox).get("disk") != "99.99"


def test_file_system_counts_that_only_this_mount_may_not_write_to(sandbox):
    add_disk(sandbox, "11M")
    sandbox.sh("mount -o remount,bind,ro /tmp/disk")
    assert figures(sandbox)["disk"] == "99.99"


@pytest.mark.parametrize("name", ["a b", "a\tb", "a\\b", "a\\040b", "#1", "[ab]", "\udcff", "é"])
def test_disk_at_an_odd_mount_point_counts(sandbox, name):
    sandbox.path("/tmp/b").mkdir()
    add_disk(sandbox, "11M", path=f"/tmp/{name}")
    assert figures(sandbox)["disk"] == "99.99"


@pytest.mark.skipif(not os.access("/dev/fuse", os.W_OK), reason="makes a hung mount with /dev/fuse")
@pytest.mark.parametrize("hung", ["/tmp/beside", "/tmp/home/disk", "/tmp/home"],
                         ids=["beside", "over", "around"])
def test_hung_mount_holds_nothing_up(sandbox, hung):
    add_disk(sandbox, "11M", path="/tmp/home/disk")
    add_hung_mount(sandbox, hung)
    asking = sandbox.start("stat", "-f", hung)
    disk = figures(sandbox).get("disk")
    assert asking.is_running(), "nothing hangs here"
    assert (disk == "99.99") == (hung == "/tmp/beside")


def test_figures_have_a_point_where_the_locale_has_a_comma(sandbox):
    add_disk(sandbox, "1M")
    comma = add_comma_locale(sandbox)
    assert output(sandbox, "/usr/bin/printf", "%.1f", "1,5", env=comma) == "1,5"
    assert re.fullmatch(r"cpu=\d\d?\.\d\d\nmem=\d\d?\.\d\d\ndisk=\d\d?\.\d\d\n",
                        output(sandbox, PERF, env=comma))


# usb-devices.sh

@pytest.fixture
def usb(sandbox):
    """A sandbox whose machine has no USB devices yet."""
    remove_usb_devices(sandbox)
    return sandbox


def test_devices_are_printed_sorted_with_serial_and_names(usb):
    plug(usb, "1-1", **STICK)
    plug(usb, "1-2", **KEYBOARD)
    plug(usb, "2-1", idVendor="ffff", idProduct="0001")
    assert output(usb, USB) == KEYBOARD_LINE + STICK_LINE + "ffff:0001\n"


def test_device_keeps_its_line_in_another_port(usb):
    plug(usb, "1-1.4.2", **STICK, devnum="9", busnum="2", devpath="3", speed="5000")
    assert output(usb, USB) == STICK_LINE


def test_interfaces_root_hubs_and_fixed_hubs_are_no_devices(usb):
    plug(usb, "usb1", **HUB, removable="unknown", product="xHCI Host Controller")
    plug(usb, "1-0:1.0", **KEYBOARD)
    plug(usb, "1-1", **HUB, removable="fixed")
    plug(usb, "1-2:1.0", **KEYBOARD)
    assert output(usb, USB) == ""


def test_hub_that_can_be_unplugged_and_fixed_camera_are_devices(usb):
    plug(usb, "1-1", **HUB, removable="removable", product="Dock")
    plug(usb, "1-2", **HUB, removable="unknown")
    plug(usb, "1-3", idVendor="04f2", idProduct="b6d9", product="Camera", bDeviceClass="ef",
         removable="fixed")
    assert output(usb, USB) == "04f2:b6d9 Camera\n05e3:0610\n05e3:0610 Dock\n"


@pytest.mark.parametrize("unplugged", ["1-1", "1-2"])
def test_twins_are_numbered_and_the_number_goes_with_either(usb, unplugged):
    plug(usb, "1-1", **KEYBOARD)
    plug(usb, "1-2", **KEYBOARD)
    both = output(usb, USB)
    unplug(usb, unplugged)
    assert both == "046d:c31c #2 Logitech USB Keyboard\n" + KEYBOARD_LINE
    assert output(usb, USB) == KEYBOARD_LINE


def test_awkward_names_give_one_clean_line_each(usb):
    names = {
        b"two\nlines": "two?lines", b"a\tb\r\x1b[2J\x7f": "a?b??[2J?", b"a\0b": "a?b",
        b"  a   b ": "a b", b"a:b=c|d\\n%s$(id)": "a:b=c|d\\n%s$(id)", "é€😀".encode(): "é€😀",
        b"caf\xe9": "caf?", b"\xc3": "?", b"\xc0\xaf\xe0\x80\xaf\xf0\x80\x80\xaf": "?????????",
        b"\xed\xa0\x80\xf4\x90\x80\x80\xff": "????????", "\x85\x9f\xa0".encode(): "????\xa0",
        b"": ""}
    for port, name in enumerate(names):
        plug(usb, f"1-{port}", idVendor="1234", idProduct=f"{port:04}", product=name)
    assert output(usb, USB) == "".join(f"1234:{port:04} {shown}".rstrip(" ") + "\n"
                                       for port, shown in enumerate(names.values()))


def test_long_line_ends_between_characters_within_an_event(usb):
    plug(usb, "1-1", idVendor="1234", idProduct="5678", product="é€" + "€" * 60)
    assert output(usb, USB) == "1234:5678 é" + "€" * 38 + "\n"


def test_devices_that_differ_only_behind_the_cut_are_two(usb):
    plug(usb, "1-1", idVendor="1234", idProduct="5678", product="x" * 200 + "a")
    plug(usb, "1-2", idVendor="1234", idProduct="5678", product="x" * 200 + "b")
    assert output(usb, USB) == f"1234:5678 #2 {'x' * 114}\n1234:5678 {'x' * 117}\n"


@pytest.mark.parametrize("missing", ["idVendor", "idProduct"])
def test_device_that_is_being_unplugged_is_gone(usb, missing):
    plug(usb, "1-1", **{name: value for name, value in STICK.items() if name != missing})
    assert output(usb, USB) == ""


def test_folder_of_devices_can_be_named(usb):
    plug(usb, "1-1", **KEYBOARD)
    usb.sh(f"cp -r {USB_DEVICES} '/tmp/a=b c'; rm -r {USB_DEVICES}/*")
    assert output(usb, USB) == ""
    assert output(usb, USB, env={"OV_USB_DEVICES": "/tmp/a=b c"}) == KEYBOARD_LINE


# All of them

def processes(sandbox):
    return {entry.name for entry in sandbox.path("/proc").glob("[0-9]*")}


@pytest.mark.parametrize("command, pauses", [
    ([PERF], "0.5\n"), ([USB], ""), ([SIGNIN, "user"], ""), ([SIGNIN, "success"], "")],
    ids=["perf", "usb-devices", "signin-user", "signin-success"])
def test_script_is_quick_and_leaves_no_process(usb, command, pauses):
    for port in range(20):
        plug(usb, f"1-{port}", **STICK)
    sign_in(usb, "success", "alice", "CORP")
    env = replace_command(usb, "sleep", "echo $1 >>/tmp/pauses")
    usb.path("/tmp/pauses").write_text("")
    before = processes(usb)
    # Processor time, since others keep this machine busy, and the pauses that it makes.
    timed = usb.run("bash", "-c", "TIMEFORMAT='%U %S'; time \"$@\" >/dev/null", "bash", *command,
                    env=env)
    assert sum(float(part) for part in timed.stderr.split()) < 0.1
    assert usb.path("/tmp/pauses").read_text() == pauses
    assert processes(usb) == before


# With the service

def test_service_reports_a_full_disk_once_and_goes_on(sandbox, udp_collector):
    add_disk(sandbox, "11M")
    service = start_service_for(sandbox, "perf03 sys01", perfMon=1, diskThreshold=80)
    assert udp_collector.wait_for(1) == [b"perf03 99.99% > 80.00%"]
    sandbox.send("sys01")
    assert udp_collector.wait_for(2)[1:] == [b"sys01 "]
    assert service.is_running()


@pytest.mark.slow
def test_service_reports_devices_as_they_come_and_go(usb, udp_collector):
    plug(usb, "1-1", **KEYBOARD)
    start_service_for(usb, "sys05 sys06 sys07", usbDevMon=1)
    udp_collector.wait_for(1)
    plug(usb, "1-2", **STICK)
    udp_collector.wait_for(2)
    unplug(usb, "1-1")
    assert udp_collector.wait_for(3) == [
        b"sys05 046d:c31c Logitech USB Keyboard", f"sys06 {STICK_LINE[:-1]}".encode(),
        b"sys07 046d:c31c Logitech USB Keyboard"]
