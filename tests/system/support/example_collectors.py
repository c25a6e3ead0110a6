"""The real rsyslog and syslog-ng with the files of examples/collector/, below the configuration
that Debian gives them, at port 514. What they store goes to a /var/log of the sandbox."""

import json

from . import real_collectors
from .polling import wait_until
from .sandbox import REPOSITORY, Sandbox

EXAMPLES = REPOSITORY / "examples/collector"
STORE = "/var/log/ov-events"
EVENTS = f"{STORE}/events.json"

RSYSLOG = "/run/kept/rsyslog"
SYSLOG_NG = "/run/kept/syslog-ng-core"


def text_without(path, *words):
    """The lines of a file without those that hold one of these words."""
    return "".join(line for line in path.read_text().splitlines(keepends=True)
                   if not any(word in line for word in words))


class Rsyslog:
    NAME = "rsyslog"
    PACKAGE = "rsyslog"
    FOLDER = "/etc/rsyslog.d"
    MAIN = "/etc/rsyslog.conf"
    HERE_ONLY = ("imuxsock", "imklog")  # they read what is this machine's
    COMMAND = [f"{RSYSLOG}/usr/sbin/rsyslogd",
               "-M", f"{RSYSLOG}/usr/lib/x86_64-linux-gnu/rsyslog"]
    ENVIRONMENT = {}
    CHECK = ["-N1"]
    RUN = ["-n", "-i", "/tmp/collector.pid"]


class SyslogNg:
    NAME = "syslog-ng"
    PACKAGE = "syslog-ng-core"
    FOLDER = "/etc/syslog-ng/conf.d"
    MAIN = "/etc/syslog-ng/syslog-ng.conf"
    # The first would read what is this machine's; the others need more of the package.
    HERE_ONLY = ("system()", "scl.conf", "console_all")
    COMMAND = [f"{SYSLOG_NG}/usr/sbin/syslog-ng", "--no-caps",
               "--module-path", f"{SYSLOG_NG}/usr/lib/syslog-ng/3.38", "--cfgfile", MAIN,
               "--persist-file", "/tmp/collector.persist", "--pidfile", "/tmp/collector.pid",
               "--control", "/tmp/collector.ctl"]
    ENVIRONMENT = {"LD_LIBRARY_PATH": f"{SYSLOG_NG}/usr/lib/syslog-ng"}
    CHECK = ["--syntax-only"]
    RUN = ["--foreground"]


BOTH = [Rsyslog, SyslogNg]


class ExampleCollector:
    """One of the two, set up in a sandbox of its own, which is closed with it."""

    def __init__(self, kind, configuration, keep=()):
        """`configuration` is the text of the file for the collector's folder."""
        self.kind = kind
        package = real_collectors.unpacked(kind.PACKAGE)
        self.sandbox = Sandbox(keep=[package, *keep])
        self.sandbox.has_invariant = False  # lines are cut, changed and forged
        self.sandbox.sh(f"mount -t tmpfs tmpfs /var/log; mkdir -p {kind.FOLDER}")
        self.sandbox.path(kind.MAIN).write_text(
            text_without(package / kind.MAIN[1:], *kind.HERE_ONLY))
        self.sandbox.path(f"{kind.FOLDER}/ov-events.conf").write_text(configuration)

    def close(self):
        self.sandbox.close()

    def check(self):
        """What the collector's own checker says, after its end."""
        return self.sandbox.run(*self.kind.COMMAND, *self.kind.CHECK, env=self.kind.ENVIRONMENT)

    def start(self):
        process = self.sandbox.start(
            *self.kind.COMMAND, *self.kind.RUN, env={**self.kind.ENVIRONMENT, "TZ": "UTC"})

        def is_listening():
            assert process.is_running(), process.stdout + process.stderr
            return len(self.sandbox.run("ss", "-4Hlntu", "sport = :514").lines) == 2
        wait_until(is_listening, "the collector's sockets")
        return process

    def stored(self, path=EVENTS):
        """The complete lines of a file that the collector writes."""
        file = self.sandbox.path(path)
        return file.read_bytes().split(b"\n")[:-1] if file.exists() else []

    def events(self):
        return [json.loads(line) for line in self.stored()]

    def wait_for(self, word):
        """The events, once one has the word in it."""
        wait_until(lambda: any(word.encode() in line for line in self.stored()),
                   lambda: f"{word} in {self.stored()}")
        return self.events()
