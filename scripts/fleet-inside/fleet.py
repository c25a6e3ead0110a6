"""The fleet: clients, relay, centre and database, with the files of examples/fleet."""

import csv
import dataclasses
import io

from clients import start_clients
from conservation import Stored
from lines import Line
from machines import EXAMPLES, Machine, Program, make_bridge, run
from raising import Raiser
from usage import Usage

RELAY, CENTRE = "10.90.0.2", "10.90.0.3"
HOSTS = f"127.0.0.1 localhost\n{RELAY} relay\n{CENTRE} centre\n"
RSYSLOG = ("rsyslogd", "-n", "-iNONE")
AS_POSTGRES = ("setpriv", "--reuid=postgres", "--regid=postgres", "--init-groups")
POSTGRES = (*AS_POSTGRES, "/usr/lib/postgresql/15/bin/postgres",
            "-D", "/var/lib/postgresql/15/main",
            "-c", "config_file=/etc/postgresql/15/main/postgresql.conf",
            # Tells when a row became visible.
            "-c", "track_commit_timestamp=on")
# A line of another form is in no column but "line", and equals no line that was sent.
ROWS = """COPY (SELECT host, address, id, description, values || line, severity, facility, at,
    sender, extract(epoch FROM pg_xact_commit_timestamp(xmin)) FROM event_lines)
    TO STDOUT (FORMAT csv)"""
LOST_LINES = "COPY (SELECT host, lost FROM lost_lines) TO STDOUT (FORMAT csv)"


@dataclasses.dataclass
class DatabaseSize:
    """In bytes."""
    rows: int
    table: int
    log: int


class Fleet:
    def __init__(self, number, executable, rate):
        self.usage = Usage()
        self.stored = []
        make_bridge()
        self._relay = Machine("relay", RELAY)
        self._centre = Machine("centre", CENTRE)
        self.relay = Program("relay", self._relay, RSYSLOG, lambda: self._relay.listens(514),
                             self.usage)
        self.centre = Program("centre", self._centre, RSYSLOG, lambda: self._centre.listens(2514),
                              self.usage)
        self.database = Program("database", self._centre, POSTGRES, self._database_answers,
                                self.usage)
        self._install_examples()
        self._start_database()
        self.centre.start()
        self.relay.start()
        self.clients, self.reader = start_clients(number, executable, RELAY, self.usage)
        self.raiser = Raiser(self.clients, rate)

    def _install_examples(self):
        for machine in self._relay, self._centre:
            machine.path("/etc/hosts").write_text(HOSTS)
            machine.path("/etc/rsyslog.d/pgsql.conf").unlink()  # for a database of the package's
        self._relay.install("fleet/rsyslog/relay.conf", "/etc/rsyslog.d/ov-relay.conf")
        self._centre.install("fleet/rsyslog/centre.conf", "/etc/rsyslog.d/ov-centre.conf")

    def _start_database(self):
        for name in "pg_hba.conf", "pg_ident.conf":
            stock = self._centre.path(f"/etc/postgresql/15/main/{name}")
            example = EXAMPLES / "fleet/postgresql" / name
            stock.write_text(example.read_text() + stock.read_text())
        self.database.start()
        self._centre.install("fleet/postgresql/schema.sql", "/tmp/schema.sql")
        self._psql("-c", "CREATE DATABASE ov_events TEMPLATE template0 ENCODING UTF8 "
                   "LOCALE 'C.UTF-8'", database="postgres")
        self._psql("--file=/tmp/schema.sql")

    def _database_answers(self):
        try:
            return self._psql("-c", "SELECT 1", database="postgres")
        except RuntimeError:
            return False

    def _psql(self, *arguments, database="ov_events"):
        return run("chroot", self._centre.root, *AS_POSTGRES, "psql", "-qAtX", "-v",
                   "ON_ERROR_STOP=1", "-d", database, *arguments)

    def ask(self, statement):
        return self._psql("-c", statement).strip()

    @property
    def sent(self):
        return [one for client in self.clients for one in client.sent]

    @property
    def senders(self):
        return {client.name: client.address for client in self.clients}

    def lost_by_host(self):
        """What the view of the database says of lost heartbeats."""
        return {host: int(lost) for host, lost in
                csv.reader(io.StringIO(self._psql("-c", LOST_LINES)))}

    def number_of_rows(self):
        return int(self.ask("SELECT count(*) FROM event_lines"))

    def read_rows(self):
        """Reads all that is stored."""
        self.stored = [Stored(Line(*row[:8]), row[8], float(row[9]))
                       for row in csv.reader(io.StringIO(self._psql("-c", ROWS)))]

    def log_position(self):
        return self.ask("SELECT pg_current_wal_lsn()")

    def database_size(self, log_begin):
        return DatabaseSize(
            self.number_of_rows(),
            int(self.ask("SELECT sum(pg_total_relation_size(relid)) "
                         "FROM pg_partition_tree('event_lines')")),
            int(self.ask(f"SELECT pg_wal_lsn_diff(pg_current_wal_lsn(), '{log_begin}')")))
