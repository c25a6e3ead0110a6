"""The sockets of the tests' collectors. Each keeps what was received, whoever read it, so that
every test can be held to the law of conservation without saying a word."""

import select
import socket
import threading

from .service_output import TCP, UDP

ANY = "any"  # stands for every collector


class CollectorSocket(socket.socket):
    """A UDP or a listening TCP socket. `opened`, `closing` and `closed` tell how much each service
    had printed when it was bound, and before and after it was closed."""

    def __init__(self, ledger, family, kind):
        super().__init__(family, kind)
        self.collector = None  # its protocol and port, once it is bound
        self.opened = {}
        self.closing = None
        self.closed = None
        self.messages = []
        self.connections = []
        self._ledger = ledger
        self._busy = threading.Lock()  # held by who waits at it

    def bind(self, address):
        super().bind(address)
        protocol = UDP if self.type == socket.SOCK_DGRAM else TCP
        self.collector = (protocol, self.getsockname()[1])
        self.opened = self._ledger.mark()
        self._ledger.receivers.append(self)

    def recv(self, *arguments):
        with self._busy:
            return self._receive(*arguments)

    def _receive(self, *arguments):
        message = super().recv(*arguments)
        self.messages.append(message)
        return message

    def accept(self):
        with self._busy:
            return self._accept_one()

    def _accept_one(self):
        connection, address = super().accept()
        self.connections.append(CollectorConnection(connection))
        return self.connections[-1], address

    def close(self):
        if self.closing is not None:
            return
        self.closing = self._ledger.mark()
        for late in self._take_waiting():
            late.drain()
            late.close()
        super().close()
        self.closed = self._ledger.mark()

    def drain(self):
        """Takes what has arrived, unless somebody waits for it anyway."""
        self._take_waiting()
        for connection in self.connections:
            connection.drain()

    def _take_waiting(self):
        """Takes the datagrams, or accepts the connections, that wait; returns the latter."""
        accepted = []
        if self.fileno() >= 0 and self._busy.acquire(blocking=False):
            try:
                while select.select([self], [], [], 0)[0]:
                    if self.type == socket.SOCK_DGRAM:
                        self._receive(65536)
                    else:
                        accepted.append(self._accept_one()[0])
            finally:
                self._busy.release()
        return accepted


class CollectorConnection(socket.socket):
    """An accepted connection, in the place of the plain one."""

    def __init__(self, connection):
        timeout = connection.gettimeout()
        super().__init__(fileno=connection.detach())
        self.settimeout(timeout)
        self.content = bytearray()
        self.is_complete = False  # until it is read to its end
        self._busy = threading.Lock()

    @property
    def is_open(self):
        return self.fileno() >= 0

    def recv(self, *arguments):
        with self._busy:
            return self._keep(super().recv(*arguments))

    def recv_into(self, buffer, *arguments):
        with self._busy:
            count = super().recv_into(buffer, *arguments)
            self._keep(bytes(memoryview(buffer)[:count]))
            return count

    def _keep(self, content):
        self.content += content
        self.is_complete = not content
        return content

    def drain(self):
        """Takes what has arrived, unless somebody waits for it anyway."""
        if not self.is_open or not self._busy.acquire(blocking=False):
            return
        try:
            while not self.is_complete and select.select([self], [], [], 0)[0]:
                self._keep(super().recv(1 << 20))
        except ConnectionError:
            pass  # what came before is kept
        finally:
            self._busy.release()


class Store:
    """A file in which a real collector keeps each message as a line, whatever it came over."""
    collector = ANY
    connections = ()
    closing = closed = None

    def __init__(self, ledger, path):
        self.opened = ledger.mark()
        self._path = path
        ledger.receivers.append(self)

    @property
    def messages(self):
        return self._path.read_bytes().split(b"\n")[:-1] if self._path.exists() else []

    def drain(self):
        pass
