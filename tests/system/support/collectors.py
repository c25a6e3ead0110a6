"""Collectors of the tests' own: what arrives is kept byte for byte."""

import socket
import struct
import threading

from .polling import DEADLINE, wait_until

ADDRESS = "127.0.0.1"
PORT = 5514


def listen(sandbox, address=ADDRESS, port=PORT, receive_buffer=None):
    """A listening socket whose connections the test handles itself, each wait with a deadline. A
    small receive buffer (bytes) makes the sender of a long line wait for the test to read."""
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


def bind_udp(sandbox, address=ADDRESS, port=PORT):
    """A socket whose datagrams the test takes itself, each wait with a deadline."""
    receiver = sandbox.network_socket(socket.AF_INET, socket.SOCK_DGRAM)
    receiver.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
    receiver.bind((address, port))
    receiver.settimeout(DEADLINE)
    return receiver


class UdpCollector:
    """Keeps each datagram."""

    def __init__(self, sandbox, address=ADDRESS, port=PORT):
        self.messages = []
        self._socket = bind_udp(sandbox, address, port)
        self._socket.settimeout(None)
        threading.Thread(target=self._receive, daemon=True).start()

    def _receive(self):
        while True:
            self.messages.append(self._socket.recv(65536))

    def wait_for(self, count, deadline=DEADLINE):
        """The messages, once there are at least `count`."""
        wait_until(lambda: len(self.messages) >= count,
                   lambda: f"{count} messages in {self.messages}", deadline)
        return list(self.messages)


class TcpCollector:
    """Keeps the bytes of each connection; `connections` holds those that have ended."""

    def __init__(self, sandbox, address=ADDRESS, port=PORT):
        self.connections = []
        self._socket = listen(sandbox, address, port)
        self._socket.settimeout(None)
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            connection, _ = self._socket.accept()
            with connection, connection.makefile("rb") as stream:
                self.connections.append(stream.read())

    @property
    def lines(self):
        """What all connections carried, cut at line feeds."""
        return b"".join(self.connections).split(b"\n")[:-1]

    def wait_for(self, count, deadline=DEADLINE):
        """The lines, once there are at least `count`."""
        wait_until(lambda: len(self.lines) >= count,
                   lambda: f"{count} lines in {self.connections}", deadline)
        return self.lines
