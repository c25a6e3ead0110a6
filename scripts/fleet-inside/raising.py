"""Raises events: at a steady rate by the real client, and in storms by records on the socket."""

import itertools
import threading
import time
from concurrent.futures import ThreadPoolExecutor

from conservation import Raised

# The heartbeat's value is a running number alone; any other value begins with one.
HEARTBEAT = "sys03"
IDENTIFIERS = (HEARTBEAT, "perf01", "sys06", HEARTBEAT, "sec10", "net03", "sys10")
ENDINGS = ("", ",95,80", " grüße", ' "quoted" [brackets]', " C:\\temp 100% %s $HOME", " it's; --")
WORKERS = 8


class Raiser:
    """Never raises two events with the same identifier and values on one machine."""

    def __init__(self, clients, rate):
        self.raised = []
        self.failures = []
        self._clients = clients
        self._rate = rate
        self._numbers = itertools.count(1)
        self._workers = ThreadPoolExecutor(WORKERS)
        self._may_raise = threading.Event()
        self._tasks = set()
        threading.Thread(target=self._raise_steadily, daemon=True).start()

    def resume(self):
        self._may_raise.set()

    def rest(self):
        """Returns once nobody raises anything."""
        self._may_raise.clear()
        while self._tasks:
            for task in list(self._tasks):
                task.result()
                self._tasks.discard(task)

    def storm(self, clients, number):
        """Raises `number` events on each of the clients, as fast as they take them."""
        for client in clients:
            self._submit(self._raise_records, client, number)

    def raise_records(self, client, number):
        for _ in range(number):
            self._raise(client, client.send_record)

    _raise_records = raise_records

    def _raise_steadily(self):
        due = 0
        for client in itertools.cycle(self._clients):
            self._may_raise.wait()
            due = max(due + 1 / self._rate, time.monotonic() - 1)
            time.sleep(max(0, due - time.monotonic()))
            if self._may_raise.is_set():
                self._submit(self._raise, client, client.run_client)

    def _submit(self, *task):
        self._tasks.add(self._workers.submit(*task))

    def _raise(self, client, send):
        with client.lock:  # its heartbeats are raised in their order
            identifier, values = self._next_event(client)
            at = time.time()
            try:
                send(identifier, values)
            except (OSError, RuntimeError) as failure:
                self.failures.append(f"{client.name} took no event: {failure}")
            else:
                self.raised.append(Raised(client.name, identifier, values, at))

    def _next_event(self, client):
        number = next(self._numbers)
        identifier = IDENTIFIERS[number % len(IDENTIFIERS)]
        if identifier == HEARTBEAT:
            return identifier, str(next(client.heartbeats))
        return identifier, f"{number}{ENDINGS[number % len(ENDINGS)]}"
