"""A collector with moods: it reads, stalls, resets its connections, or is away."""

import os
import select
import socket
import threading

from support.collectors import bind_udp, listen, reset
from support.polling import DEADLINE

READS, STALLS, RESETS, AWAY = "reads", "stalls", "resets", "away"
RECEIVE_BUFFER = 4096  # bytes; a batch does not fit while the collector does not read


class Collector(threading.Thread):
    """Listens on both protocols of each port. One thread does all of it and never waits but for
    its sockets and for the next mood."""

    def __init__(self, sandbox, ports):
        super().__init__(daemon=True)
        self.resets = 0
        self._sandbox = sandbox
        self._ports = ports
        self._mood = READS
        self._listening = []
        self._connections = []
        self._wake_end, self._waker = os.pipe()
        self._settled = threading.Event()
        self._open()

    def be(self, mood):
        """Returns once the collector is in this mood."""
        self._settled.clear()
        self._mood = mood
        os.write(self._waker, b"x")
        assert self._settled.wait(DEADLINE)

    def run(self):
        while True:
            sources = [*self._listening, *([] if self._mood == STALLS else self._connections)]
            for source in select.select([self._wake_end, *sources], [], [])[0]:
                if source == self._wake_end:
                    self._change_mood()
                    break  # what else is ready may be closed now
                self._serve(source)

    def _change_mood(self):
        os.read(self._wake_end, 1)
        if self._mood == AWAY:
            self._close()
        elif not self._listening:
            self._open()
        self._settled.set()

    def _open(self):
        for port in self._ports:
            self._listening.append(bind_udp(self._sandbox, port=port))
            self._listening.append(
                listen(self._sandbox, port=port, receive_buffer=RECEIVE_BUFFER))
        for source in self._listening:
            source.setblocking(False)

    def _close(self):
        while self._listening:
            self._listening.pop().close()

    def _serve(self, source):
        try:
            if source in self._connections:
                self._read(source)
            elif source.type == socket.SOCK_DGRAM:
                source.recv(65536)
            else:
                self._connections.append(source.accept()[0])
                self._connections[-1].setblocking(False)
        except BlockingIOError:
            pass  # the check of conservation has taken it

    def _read(self, connection):
        content = connection.recv(RECEIVE_BUFFER)
        if self._mood == RESETS and content:
            reset(connection)
            self.resets += 1
            self._connections.remove(connection)
        elif not content:
            connection.close()
            self._connections.remove(connection)
