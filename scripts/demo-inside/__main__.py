"""The part of scripts/demo that runs inside the sandbox: its acts, one after the other."""

import os
import pathlib
import sys
import time

import answers
import monitors
import raised_events
from stage import DEFINITIONS, EXAMPLES, LOGGER, Collector, Service, show


def stay_up():
    outer = os.environ["OV_SANDBOX_PID"]
    user = "sudo nsenter"
    if pathlib.Path("/proc/self/uid_map").read_text().split()[1] != "0":
        user = "nsenter --user --preserve-credentials"
    inside = (f"{user} --mount --net --uts --pid --target "
              f"$(cat /proc/{outer}/task/{outer}/children)")
    show("demo", "staying up with all monitors on; Ctrl-C ends it. From another terminal:")
    show("demo", f"to raise an event:         {inside} {LOGGER} -e perf01 97,80")
    show("demo", f"for a shell in here:       {inside} sh")
    show("demo", f"there, for the monitors:   {monitors.BY_HAND}")
    try:
        while True:
            time.sleep(3600)
    except KeyboardInterrupt:
        pass


def main():
    DEFINITIONS.write_bytes((EXAMPLES / "ov-event-def.csv").read_bytes())
    collector = Collector()
    raised_events.prepare("syslog-udp")
    service = Service()
    passed = raised_events.demonstrate(service, collector, "UDP")
    raised_events.prepare("syslog-tcp")
    passed = raised_events.demonstrate(service, collector, "TCP") and passed
    monitors.prepare()
    passed = monitors.demonstrate(service, collector) and passed
    if "--keep" in sys.argv:
        stay_up()
    else:
        passed = answers.demonstrate() and passed
    return 0 if passed else 1


sys.exit(main())
