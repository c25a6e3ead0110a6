"""Collectors of the tests' own. Each keeps what arrives, byte for byte, and knows its lines."""

import os
import socket
import struct
import threading

from .invariant import pieces_of
from .polling import DEADLINE, wait_until

ADDRESS = "127.0.0.1"
PORT = 5514
LOOK = 0.05  # seconds between two looks at whether the collector is closed


def listen(sandbox, address=ADDRESS, port=PORT, receive_buffer=None):
    """A listening socket. A small receive buffer (bytes) makes a sender wait for the reader."""
    listener = sandbox.network_socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    if receive_buffer is not None:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
    listener.bind((address, port))
    listener.listen()
    listener.settimeout(DEADLINE)
    return listener


def reset(connection):
    """Ends a connection with a reset, whatever of it is unread."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def read_all(connection):
    with connection, connection.makefile("rb") as stream:
        return stream.read()


class Collector:
    """Runs in a thread of its own. `received` has its lines, as the invariant compares them."""

    def __init__(self, sandbox, receiver):
        self._socket = receiver
        self._socket.settimeout(LOOK)
        self._is_open = True
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()
        sandbox.collectors.append(self)

    def _run(self):
        while self._is_open:
            try:
                self._take()
            except socket.timeout:
                pass

    def close(self):
        """From here on nothing arrives."""
        self._is_open = False
        self._thread.join()
        self._socket.close()


class UdpCollector(Collector):
    """`messages` are the datagrams."""

    def __init__(self, sandbox, address=ADDRESS, port=PORT):
        self.messages = []
        receiver = sandbox.network_socket(socket.AF_INET, socket.SOCK_DGRAM)
        receiver.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        receiver.bind((address, port))
        super().__init__(sandbox, receiver)

    def _take(self):
        self.messages.append(self._socket.recv(65536))

    @property
    def received(self):
        return [piece for message in self.messages for piece in pieces_of(message)]

    def wait_for(self, count, deadline=DEADLINE):
        """The messages, once there are at least `count`."""
        wait_until(lambda: len(self.messages) >= count,
                   lambda: f"{count} messages in {self.messages}", deadline)
        return list(self.messages)


class TcpCollector(Collector):
    """`connections` has what each connection that has ended carried. The first ones are handled by
    the functions in `serve`, which return what is to be taken for it."""

    def __init__(self, sandbox, address=ADDRESS, port=PORT, serve=(), receive_buffer=None):
        self.connections = []
        self._serve = iter(serve)
        super().__init__(sandbox, listen(sandbox, address, port, receive_buffer))

    def _take(self):
        connection, _ = self._socket.accept()
        connection.settimeout(DEADLINE)
        self.connections.append(next(self._serve, read_all)(connection))

    @property
    def lines(self):
        """What all connections carried, cut at line feeds."""
        return b"".join(self.connections).split(b"\n")[:-1]

    received = lines

    def wait_for(self, count, deadline=DEADLINE):
        """The lines, once there are at least `count`."""
        wait_until(lambda: len(self.lines) >= count,
                   lambda: f"{count} lines in {self.connections}", deadline)
        return self.lines


class LogFile:
    """A file in which a real collector keeps each message as a line."""

    def __init__(self, sandbox, path):
        self._path = path
        sandbox.collectors.append(self)

    @property
    def received(self):
        return self._path.read_bytes().split(b"\n")[:-1] if os.path.exists(self._path) else []
