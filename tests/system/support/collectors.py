"""Collectors of the tests' own: what arrives is kept byte for byte."""

import socket
import threading

from .polling import DEADLINE, wait_until

ADDRESS = "127.0.0.1"
PORT = 5514


class UdpCollector:
    """Keeps each datagram."""

    def __init__(self, sandbox, address=ADDRESS, port=PORT):
        self.messages = []
        self._socket = sandbox.network_socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self._socket.bind((address, port))
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
        self._socket = sandbox.network_socket(socket.AF_INET, socket.SOCK_STREAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._socket.bind((address, port))
        self._socket.listen()
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
