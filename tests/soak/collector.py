"""A collector with moods: it reads, stalls, resets its connections, or is away."""

import os
import select
import socket
import threading

from support.collectors import ADDRESS, listen, reset
from support.invariant import pieces_of
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
        self._arrivals = []  # a text for each datagram and each connection
        self._listening = []
        self._connections = {}  # with the text of each
        self._wake_end, self._waker = os.pipe()
        self._settled = threading.Event()
        self._open()

    @property
    def received(self):
        """The lines that arrived whole, in their order."""
        return [line for is_datagram, content in list(self._arrivals) for line in
                (pieces_of(bytes(content)) if is_datagram else bytes(content).split(b"\n")[:-1])]

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
            while self._listening:
                self._listening.pop().close()
        elif not self._listening:
            self._open()
        self._settled.set()

    def _open(self):
        for port in self._ports:
            datagrams = self._sandbox.network_socket(socket.AF_INET, socket.SOCK_DGRAM)
            datagrams.bind((ADDRESS, port))
            self._listening += [
                datagrams, listen(self._sandbox, port=port, receive_buffer=RECEIVE_BUFFER)]

    def _serve(self, source):
        if source in self._connections:
            self._read(source)
        elif source.type == socket.SOCK_DGRAM:
            self._arrivals.append((True, source.recv(65536)))
        else:
            connection, _ = source.accept()
            self._connections[connection] = bytearray()
            self._arrivals.append((False, self._connections[connection]))

    def _read(self, connection):
        content = connection.recv(RECEIVE_BUFFER)
        self._connections[connection] += content
        if self._mood == RESETS and content:
            self.resets += 1
            reset(connection)
            del self._connections[connection]
        elif not content:
            connection.close()
            del self._connections[connection]
