"""The last act: the four built-in monitors with the example scripts, over TCP."""

import pathlib
import re
import shutil
import subprocess
import time

from stage import EXAMPLES, line_of, show, wait_until, write_settings

SCRIPTS = pathlib.Path("/usr/lib/orvan/ov-event-logger")
USB_DEVICES = pathlib.Path("/sys/bus/usb/devices")
SIGNIN_STATE = pathlib.Path("/run/ov-event-logger/signin")
AGENT_STATUS = pathlib.Path("/tmp/ovwsagentstatus")
CLIENT = "/tmp/horizon-client"
CYCLE = 3  # of the service
MONITORS = ("perfMon", "usbDevMon", "vmwSigninMon", "agentConnMon")
THRESHOLD = 1  # percent of the memory, which every machine uses

KEYBOARD = {"idVendor": "046d", "idProduct": "c31c", "manufacturer": "Logitech",
            "product": "USB Keyboard"}
STICK = {"idVendor": "0951", "idProduct": "1666", "serial": "60A44C413FAE",
         "manufacturer": "Kingston", "product": "DataTraveler 3.0"}

# Event, priority, and how its line goes on; NUMBER stands for what perf.sh measures.
NUMBER = "00.00"
PRESENT = ("sys05", 30, "USB device present - 046d:c31c Logitech USB Keyboard (info)")
MEMORY = ("perf02", 28, f"Memory use has reached its threshold - {NUMBER}% > 1.00% (warn)")
CONNECTED = ("net02", 29, "Secure connection -  (notice)")
PLUGGED_IN = ("sys06", 29, "USB device plugged in - "
              "0951:1666 serial=60A44C413FAE Kingston DataTraveler 3.0 (notice)")
SIGNED_IN = ("sec03", 29, "User signed in - alice/CORP (notice)")
LOST = ("net03", 27, "Secure connection lost - DISCONNECTED (err)")

BY_HAND = f"printf '\\n\\nCONNECTED\\n' >{AGENT_STATUS}"


def plug(port, attributes):
    """Plugs a device in: all of it appears at once, as in the kernel's folder."""
    device = USB_DEVICES.parent / port
    device.mkdir()
    for name, value in attributes.items():
        (device / name).write_text(f"{value}\n")
    device.rename(USB_DEVICES / port)


def write_agent_status(status):
    """As the agent does: the third line counts."""
    show("demo", f"the third line of {AGENT_STATUS} becomes {status}")
    new = AGENT_STATUS.with_suffix(".new")
    new.write_text(f"demo\n\n{status}\n")
    new.rename(AGENT_STATUS)


def sign_in(user, domain):
    show("demo", f"{user} of {domain} signs in: a process horizon-client, and {SIGNIN_STATE}")
    shutil.copy("/bin/sleep", CLIENT)
    subprocess.Popen([CLIENT, "infinity"])
    SIGNIN_STATE.parent.mkdir(mode=0o755)
    new = SIGNIN_STATE.with_suffix(".new")
    new.write_text(f"success\n{user}\n{domain}\n")
    new.rename(SIGNIN_STATE)


def prepare():
    for script in (EXAMPLES / "scripts").iterdir():
        shutil.copy(script, SCRIPTS)
    show("demo", "now the built-in monitors with the scripts of examples/scripts")
    show("demo", f"USB devices: not this machine's, but a stand-in for {USB_DEVICES}")
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", USB_DEVICES.parents[1]], check=True)
    USB_DEVICES.mkdir(parents=True)
    plug("1-1", KEYBOARD)
    write_agent_status("CONNECTED")
    # Not on this machine's account: 100 percent are never reported.
    thresholds = {"cpuThreshold": 100, "memThreshold": THRESHOLD, "diskThreshold": 100}
    write_settings(
        protocol="syslog-tcp", allowed="perf01 perf02 perf03 sys01 sys05 sys06 sys07 sec03 sec04 "
        "net02 net03", **thresholds, **{monitor: 1 for monitor in MONITORS})


class Arrivals:
    """The lines of monitors as they come from `collector`, whose times only the monitors know."""

    def __init__(self, collector):
        self._collector = collector
        self._start = len(collector.received)
        self._started = int(time.time())

    @property
    def lines(self):
        return self._collector.received[self._start:]

    def _is(self, arrived, event):
        name, priority, rest = event
        protocol, line = arrived
        possible = (re.escape(line_of(priority, second, name, rest)).replace(
            re.escape(NUMBER), r"[0-9]{1,2}\.[0-9]{2}")
            for second in range(self._started, int(time.time()) + 1))
        return protocol == "TCP" and any(re.fullmatch(line_, line) for line_ in possible)

    def wait_for(self, *events):
        return all(wait_until(lambda: any(self._is(line, event) for line in self.lines))
                   for event in events)

    def are(self, events):
        """Whether each of these events arrived once, and nothing else."""
        return len(self.lines) == len(events) and all(
            sum(self._is(line, event) for line in self.lines) == 1 for event in events)


def demonstrate(service, collector):
    arrivals = Arrivals(collector)
    expected = [PRESENT, MEMORY, CONNECTED, PLUGGED_IN, SIGNED_IN, LOST]
    service.wait_for_cycle(CYCLE)
    sign_in("alice", "CORP")
    arrivals.wait_for(PRESENT, MEMORY, CONNECTED)
    show("demo", "a USB stick is plugged in")
    plug("1-2", STICK)
    write_agent_status("DISCONNECTED")
    arrivals.wait_for(PLUGGED_IN, SIGNED_IN, LOST)
    # The service prints a line before it sends it.
    printed = all(f">>> {line}" in service.lines for _, line in arrivals.lines)
    if printed and arrivals.are(expected):
        show("demo", f"all {len(expected)} lines of the monitors arrived exactly")
        return True
    show("demo", f"FAILED: expected {expected}, arrived {arrivals.lines}")
    return False
