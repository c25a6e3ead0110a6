"""rsyslog and syslog-ng as Debian packages them, each set up to store every message: as it came, or
what the collector reads in it."""

import os
import pathlib

from .collectors import PORT
from .polling import wait_until
from .collectors import LogFile

STORE = "/tmp/stored"
CONFIGURATION = "/tmp/collector.conf"

RSYSLOG_CONFIGURATION = f"""
global(maxMessageSize="64k" parser.escapeControlCharactersOnReceive="off")
module(load="imudp")
module(load="imtcp")
input(type="imudp" address="127.0.0.1" port="{PORT}")
input(type="imtcp" address="127.0.0.1" port="{PORT}")
template(name="raw" type="string" string="%rawmsg%\\n")
action(type="omfile" file="{STORE}" template="raw")
"""

SYSLOG_NG_CONFIGURATION = f"""
@version: 3.38
source network {{
  network(ip("127.0.0.1") port({PORT}) transport("udp") flags(no-parse));
  network(ip("127.0.0.1") port({PORT}) transport("tcp") flags(no-parse));
}};
destination store {{ file("{STORE}" template("$MSG\\n")); }};
log {{ source(network); destination(store); }};
"""

# These store host|program|facility.severity|reported time|message, and hear a second port, at which
# syslog-ng expects RFC 5424.
RFC_5424_PORT = PORT + 1

RSYSLOG_PARSING = f"""
global(net.enableDNS="off")
module(load="imudp")
module(load="imtcp")
input(type="imudp" address="127.0.0.1" port="{RFC_5424_PORT}")
input(type="imudp" address="127.0.0.1" port="{PORT}")
input(type="imtcp" address="127.0.0.1" port="{RFC_5424_PORT}")
input(type="imtcp" address="127.0.0.1" port="{PORT}")
template(name="read" type="string" string="%hostname%|%programname%|\
%syslogfacility-text%.%syslogseverity-text%|%timereported:::date-rfc3339%|%msg%\\n")
action(type="omfile" file="{STORE}" template="read")
"""

SYSLOG_NG_PARSING = f"""
@version: 3.38
options {{ keep-hostname(yes); use-dns(no); dns-cache(no); }};
source network {{
  network(ip("127.0.0.1") port({RFC_5424_PORT}) transport("udp") flags(syslog-protocol));
  syslog(ip("127.0.0.1") port({RFC_5424_PORT}) transport("tcp"));
  network(ip("127.0.0.1") port({PORT}) transport("udp"));
  network(ip("127.0.0.1") port({PORT}) transport("tcp"));
}};
destination store {{
  file("{STORE}" template("$HOST|$PROGRAM|$FACILITY.$LEVEL|$S_ISODATE|$MSG\\n"));
}};
log {{ source(network); destination(store); }};
"""


def unpacked(package):
    return pathlib.Path(os.environ["OV_COLLECTORS"]) / package


def start_rsyslog(sandbox, configuration=RSYSLOG_CONFIGURATION):
    root = f"/run/kept/{unpacked('rsyslog').name}"
    sandbox.path(CONFIGURATION).write_text(configuration)
    return sandbox.start(
        f"{root}/usr/sbin/rsyslogd", "-n", "-f", CONFIGURATION, "-i", "/tmp/collector.pid",
        "-M", f"{root}/usr/lib/x86_64-linux-gnu/rsyslog")


def start_syslog_ng(sandbox, configuration=SYSLOG_NG_CONFIGURATION):
    root = f"/run/kept/{unpacked('syslog-ng-core').name}"
    libraries = f"{root}/usr/lib/syslog-ng"
    sandbox.path(CONFIGURATION).write_text(configuration)
    return sandbox.start(
        f"{root}/usr/sbin/syslog-ng", "--foreground", "--no-caps", "--cfgfile", CONFIGURATION,
        "--module-path", f"{libraries}/3.38", "--persist-file", "/tmp/collector.persist",
        "--pidfile", "/tmp/collector.pid", "--control", "/tmp/collector.ctl",
        env={"LD_LIBRARY_PATH": libraries})


def wait_until_listening(sandbox, process, count=2):
    """Waits until the collector has all its sockets."""
    def all_of_them():
        assert process.is_running(), process.stdout + process.stderr
        sockets = sandbox.run("ss", "-H", "-l", "-n", "-t", "-u",
                              f"sport = :{PORT} or sport = :{RFC_5424_PORT}").lines
        return len(sockets) >= count
    wait_until(all_of_them, "the collector's sockets")
    LogFile(sandbox, sandbox.path(STORE))


def wait_for_stored(sandbox, count):
    """What the collector has stored, once there are at least `count` messages."""
    store = sandbox.path(STORE)

    def stored():
        return store.read_bytes().split(b"\n")[:-1] if store.exists() else []
    wait_until(lambda: len(stored()) >= count, lambda: f"{count} messages in {stored()}")
    return stored()
