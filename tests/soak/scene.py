"""The files that the service reads and the monitors' scripts, whose answers change with every run
until /tmp/quiet is there."""

from support.monitors import EVENTS, Script, start_client, write_status

PATIENCE = 120  # seconds; above the longest reload, which waits for a refusing collector too
PORTS = (5514, 5515)
ROWS = ["app01,A,The first,warn", "app02,A,The second,info", "app03,A,The third,err",
        *(f"{event},M,A monitor's,notice" for event in EVENTS)]
MONITORS = dict.fromkeys(("usbDevMon", "vmwSigninMon", "agentConnMon", "perfMon"), 1)
PLAIN = {"host": "127.0.0.1", "allowed": " ".join(("app01", "app02", *EVENTS)), **MONITORS}
TEMPLATES = ("[ID] [VAL]", "<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])",
             r"[VAL]\nof [ID]", "  [SEV][SEV] [VAL] " + "x" * 200 + " [ID]  ")
ALLOWED = (PLAIN["allowed"], " ".join(("app01", "app03", *EVENTS[:5])), " ".join(EVENTS),
           " ".join(("app01", "app02", "app03", *EVENTS)))
RESTING = {**PLAIN, "protocol": "syslog-udp", "port": PORTS[0], "formatString": TEMPLATES[0]}

# TCP buffers in which no batch of long lines has room: a collector that stalls stops its sender.
LONG_LINES = {"formatString": "[ID] [VAL] " + "x" * 1000, "allowed": ALLOWED[-1]}
SMALL_BUFFERS = """
ip link set lo mtu 1500
echo 4096 4096 8192 >/proc/sys/net/ipv4/tcp_wmem
"""
COUNTED_RUN = """
read -r run </tmp/{name}.run || run=0
[ -e /tmp/quiet ] || echo $((run += 1)) >/tmp/{name}.run
"""
PERF = COUNTED_RUN + """
[ $((run % 2)) = 0 ] && use=12.5 || use=93.75
echo "cpu=$use"; echo "mem=$use"; echo "disk=$use"
"""
USB_DEVICES = COUNTED_RUN + """
echo "046d:c31c device $run"; echo "046d:c31c device $((run + 1))"; echo "046d:0001 stays"
"""
SIGNIN = """
case $1 in
    user) echo "x:user:CORP:y" ;;
    success) [ $(($(cat /tmp/perf.run) % 2)) = 0 ] || echo yes ;;
    error) [ $(($(cat /tmp/perf.run) % 2)) = 1 ] || echo yes ;;
esac
"""


def set_up(sandbox):
    sandbox.sh(SMALL_BUFFERS)
    sandbox.write_definitions(*ROWS)
    for name, commands in (("perf", PERF), ("usb-devices", USB_DEVICES),
                           ("vmw-signin-status", SIGNIN)):
        sandbox.path(f"/tmp/{name}.run").write_text("0\n")
        Script(sandbox, f"{name}.sh").write(f"#!/bin/sh\n{commands.format(name=name)}")


class Machine:
    """The client's process and the agent's status, which the monitors look at without a script."""

    def __init__(self, sandbox):
        self._sandbox = sandbox
        self._client = None
        self._changes = 0

    def change(self):
        self._changes += 1
        status = "CONNECTED" if self._changes % 2 else f"LOST {self._changes}"
        write_status(self._sandbox, "first", "second", status)
        if self._client is None:
            self._client = start_client(self._sandbox)
        else:
            self._client.kill()
            self._client = None
