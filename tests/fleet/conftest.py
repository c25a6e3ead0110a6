import datetime
import pathlib

import pytest

from centre import Database, Debian, Rsyslog


@pytest.fixture(scope="session")
def debian():
    return Debian(pathlib.Path("/tmp/debian"))


@pytest.fixture(scope="session")
def server(debian):
    return Database(debian)


@pytest.fixture
def database(debian, server):
    """Empty, and nothing waits for it."""
    for file in debian.path("/var/spool/rsyslog").iterdir():
        file.unlink()
    server.clear()
    return server


@pytest.fixture
def writer(database):
    yield from database.cursor("ov_writer")


@pytest.fixture
def reader(database):
    yield from database.cursor("ov_reader")


@pytest.fixture
def owner(database):
    yield from database.cursor("ov_owner")


@pytest.fixture
def centre(debian, database):
    program = Rsyslog(debian, "centre", 2514)
    program.start()
    yield program
    program.end()


@pytest.fixture
def relay(debian, centre):
    program = Rsyslog(debian, "relay", 514)
    program.start()
    yield program
    program.end()


@pytest.fixture
def now():
    return datetime.datetime.now(datetime.timezone.utc)
