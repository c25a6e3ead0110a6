"""Clients that raise events without end: the real one, and writers of records of their own."""

import contextlib
import itertools
import random
import re
import threading
import time

from support.records import make_record

from scene import PATIENCE

# Prints the record of each event that its client sent. Pauses while the file /tmp/quiet exists, and
# makes /tmp/idle meanwhile. It checks for /tmp/quiet once more before it sends: the file may be
# back while /tmp/idle still exists.
REAL_CLIENT = """
number=0
while :; do
    while [ -e /tmp/quiet ]; do sleep 0.05; done
    rm -f "/tmp/idle.$0"
    while [ ! -e /tmp/quiet ]; do
        number=$((number + 1))
        if record=$("$1" -e "$2" "$0 $number grüße,%s,\\"x\\""); then
            printf '%s\\n' "$record"
        fi
        sleep "$3"
    done
    : >"/tmp/idle.$0"
done
"""
AWKWARD = [b"", b"\xff\xfe", b"\xc3", b"a\xffb\xed\xa0\x80", b"\nnext line", b"%n%s", b"\r\t", b"]",
           "東京 🙂".encode(), b"\xef\xbb\xbf", b"[ID] [VAL]", b"v" * 100]
UNDEFINED, DEFINED = (b"nope01", b"nope\xff2", b"perf0"), (b"app01", b"app02", b"app03")


class RealClient:
    def __init__(self, sandbox, name, identifier, pause):
        self.name = name
        self._sandbox = sandbox
        self._shell = sandbox.start("sh", "-c", REAL_CLIENT, name, sandbox.executable, identifier,
                                    str(pause))

    @property
    def is_idle(self):
        return self._sandbox.path(f"/tmp/idle.{self.name}").exists()

    @property
    def sent(self):
        """The records of the clients that ended with status 0, as they printed them."""
        return re.findall(rb"Event .*\n", self._shell.stdout_bytes)


class Writer(threading.Thread):
    """Writes random records, most of them of events that may be forwarded, and waits until they
    have been taken in."""

    def __init__(self, sandbox, name, seed, pause):
        super().__init__(daemon=True)
        self.sent = []
        self.is_idle = True
        self._name = name
        self._sandbox = sandbox
        self._random = random.Random(seed)
        self._pause = pause
        self._numbers = itertools.count(1)
        self.may_write = threading.Event()

    def run(self):
        while True:
            self.may_write.wait()
            self.is_idle = False  # and only then a look: a rest may have begun
            while self.may_write.is_set():
                count = self._random.choice((1, 1, 1, 20))
                for connection in [self._write() for _ in range(count)]:
                    with connection, contextlib.suppress(ConnectionError):
                        connection.recv(1)  # the end of the connection
                time.sleep(self._pause * self._random.random())
            self.is_idle = True

    def _write(self):
        identifier = self._random.choice(DEFINED * 4 + UNDEFINED)
        values = b"%s %d %s" % (
            self._name.encode(), next(self._numbers), self._random.choice(AWKWARD))
        seconds = int(time.time())
        connection = self._sandbox.connect(PATIENCE)
        time.sleep(self._random.choice((0, 0, 0, self._pause)))  # silent for a while
        with contextlib.suppress(ConnectionError):  # the service closed its socket just then
            connection.sendall(make_record(identifier, values, seconds))
            self.sent.append(b"Event [%s] (%s) at %d\n" % (identifier, values, seconds))
        return connection
