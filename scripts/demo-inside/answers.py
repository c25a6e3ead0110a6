"""The last act: an event that does not arrive, and ov-event-check that says why."""

import subprocess

from stage import SETTINGS, show

CHECK = "/run/kept/ov-event-check"


def run_check(*arguments):
    show("client", f"ov-event-check {' '.join(arguments)}")
    output = subprocess.run([CHECK, *arguments], capture_output=True, text=True).stdout
    for line in output.splitlines():
        show("check", line)
    return output


def demonstrate():
    show("demo", "now settings with commas between the allowed events: nothing would arrive")
    SETTINGS.write_text("host=127.0.0.1\nallowed=perf01,sys05\n")
    finding = run_check("--offline", "event", "perf01", "95,80")
    page = run_check("--explain", "list-value")
    passed = f"{SETTINGS}:2: error: " in finding and "[list-value]" in finding and "Write" in page
    show("demo", "one finding and its page" if passed else "FAILED: the finding is not there")
    return passed
