"""A relay, a centre and a database with the files of examples/fleet, on the Debian in build/fleet.

Everything here needs the sandbox of scripts/sandbox around it, and ends with it."""

import pathlib
import signal
import socket
import subprocess
import sys

import psycopg2.extras

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = REPOSITORY / "examples/fleet"
DEBIAN = REPOSITORY / "build/fleet/root"
sys.path.insert(0, str(REPOSITORY / "tests/system"))

from support.polling import wait_until  # noqa: E402

ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", "TZ": "UTC"}
POSTGRES = ("/usr/lib/postgresql/15/bin/postgres", "-D", "/var/lib/postgresql/15/main",
            "-c", "config_file=/etc/postgresql/15/main/postgresql.conf")


def run(*command, **kwargs):
    """Runs a command that must succeed, and returns what it prints."""
    result = subprocess.run(command, capture_output=True, text=True, **kwargs)
    assert result.returncode == 0, f"{command}: {result.stdout}{result.stderr}"
    return result.stdout


def listens(port):
    return bool(run("ss", "-Hltn", f"sport = :{port}"))


class Debian:
    """A Debian whose changes are its own, and the programs that run on it."""

    def __init__(self, folder):
        for part in ("upper", "work", "root"):
            (folder / part).mkdir(parents=True)
        self.root = folder / "root"
        self.log = folder / "log"
        run("mount", "-t", "overlay", "overlay", "-o",
            f"lowerdir={DEBIAN},upperdir={folder}/upper,workdir={folder}/work", self.root)
        # Chromium and PostgreSQL need shared memory.
        run("mount", "-t", "tmpfs", "tmpfs", self.root / "dev/shm")
        run("mount", "-t", "proc", "proc", self.root / "proc")
        self.path("/etc/hosts").write_text("127.0.0.1 localhost relay centre\n")

    def path(self, path):
        return self.root / path.lstrip("/")

    def install(self, example, path, change=lambda text: text):
        self.path(path).parent.mkdir(parents=True, exist_ok=True)
        self.path(path).write_text(change((EXAMPLES / example).read_text()))

    def _command(self, command, user):
        return ("chroot", self.root, "setpriv", f"--reuid={user}", f"--regid={user}",
                "--init-groups", *command)

    def run(self, *command, user="root", **kwargs):
        return run(*self._command(command, user), env=ENVIRONMENT, **kwargs)

    def start(self, *command, user="root", environment=None):
        with self.log.open("ab") as log:
            return subprocess.Popen(
                self._command(command, user), env={**ENVIRONMENT, **(environment or {})},
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)


class Database:
    def __init__(self, debian):
        self._debian = debian
        for name in "pg_hba.conf", "pg_ident.conf":
            stock = debian.path(f"/etc/postgresql/15/main/{name}")
            stock.write_text((EXAMPLES / "postgresql" / name).read_text() + stock.read_text())
        debian.path("/etc/postgresql/15/main/pg_ident.conf").open("a").write(
            "ov root ov_owner\n")  # for the tests
        self.start()
        debian.run("createdb", "--template=template0", "--encoding=UTF8", "--locale=C.UTF-8",
                   "ov_events", user="postgres")
        self.load_schema()

    def load_schema(self):
        self._debian.install("postgresql/schema.sql", "/tmp/schema.sql")
        return self._debian.run("psql", "-qX", "--dbname=ov_events", "--file=/tmp/schema.sql",
                                user="postgres")

    def start(self):
        self._process = self._debian.start(*POSTGRES, user="postgres")
        wait_until(self._answers, "the database to answer")

    def stop(self):
        """Ends the connections, too."""
        self._process.send_signal(signal.SIGINT)
        assert self._process.wait(20) == 0

    def end_connection_of_writer(self):
        """Returns whether there was one."""
        return self._debian.run(
            "psql", "-qAt", "ov_events", "-c", "select pg_terminate_backend(pid) "
            "from pg_stat_activity where usename = 'ov_writer'", user="postgres")

    def _answers(self):
        try:
            self._debian.run("psql", "-c", "select 1", user="postgres")
        except AssertionError:
            return False
        return True

    def cursor(self, role):
        """Yields one whose statements are each a transaction."""
        connection = psycopg2.connect(host=self._debian.path("/run/postgresql"),
                                      dbname="ov_events", user=role)
        connection.autocommit = True
        with connection.cursor(cursor_factory=psycopg2.extras.DictCursor) as cursor:
            yield cursor
        connection.close()

    def clear(self):
        for cursor in self.cursor("ov_owner"):
            cursor.execute("truncate event_lines, machine_states, refused_lines, "
                           "known_usb_devices")


class Rsyslog:
    """rsyslog with one file of the examples."""

    def __init__(self, debian, name, port, change=lambda text: text):
        self._debian = debian
        self._name = name
        self._port = port
        debian.install(f"rsyslog/{name}.conf", f"/etc/ov-{name}.conf", change)
        debian.run("rsyslogd", "-N1", "-f", f"/etc/ov-{name}.conf")

    def start(self):
        self._process = self._debian.start(
            "rsyslogd", "-n", "-iNONE", "-f", f"/etc/ov-{self._name}.conf")
        wait_until(lambda: listens(self._port), f"the {self._name} to listen")

    def end(self, how=signal.SIGTERM):
        self._process.send_signal(how)
        return self._process.wait(20)


def line(values="", host="tc-0042", id="sys10", at="Nov 14 22:13:20"):
    """The recommended line, as bytes."""
    text = (f'<29>1 - {host} ov-event-logger - {id} [ev@32473 ip="192.168.1.20" sev="notice" '
            f'at="{at}" desc="Update installed"] ')
    return (text.encode(errors="surrogateescape")
            + (values if isinstance(values, bytes) else values.encode()))


def send(*lines):
    """As a client does: one connection for a batch."""
    with socket.create_connection(("127.0.0.1", 514)) as connection:
        connection.sendall(b"".join(one + b"\n" for one in lines))


def store(writer, received, **fields):
    """Stores a line as the database takes it from the centre; `received` is an expression."""
    fields = {"sender": "192.0.2.1", "host": "tc-1", "address": "192.168.1.20", "id": "",
              "description": "", "values": "", "severity": "info", "facility": "daemon", "at": "",
              "relay": "relay-1", "line": "", **fields}
    writer.execute(
        f"insert into event_lines (received, {', '.join(fields)}) select received, "
        f"{', '.join(['%s'] * len(fields))} from (select {received}) as times (received)",
        list(fields.values()))
