"""Run inside a sandbox: lets each allocation of a service, or of a client, fail in turn, until one
run does without as many. Prints for each what came of it, as a line of JSON.

    python3 memory_sweep.py service|client EXECUTABLE FAULTS_LIBRARY ALLOCATION SECONDS

ALLOCATION names them in the form of OV_FAULTS, such as malloc>fcntl for those after the first call
of fcntl; a run that makes no progress for that many seconds after its failure counts as one that
never ends."""

import json
import os
import re
import select
import socket
import struct
import subprocess
import sys
import time

SERVICE_SOCKET = "/tmp/ov-events"
LOG = "/tmp/memory-faults"
LINE = re.compile(rb">>> perf01 1 text (.*)\n")  # with its date, or without
DATE = b"Jan 01 00:00:01"
RECORD = struct.pack("<8s128sq", b"perf01", b"1", 1)
NO_MEMORY = 12
PATIENCE = 20  # seconds; for a run without a failure


class Run:
    def __init__(self, command, library, fault):
        for path in SERVICE_SOCKET, LOG:
            if os.path.exists(path):
                os.unlink(path)
        environment = {"LD_PRELOAD": library, "OV_FAULTS_LOG": LOG,
                       "OV_FAULTS": f"{fault}:{NO_MEMORY},sleep:1+:4,usleep:1+:4",
                       "OV_DELAYS": "sleep:1+:10,usleep:1+:5"}
        self._server = self._listen() if "-e" in command else None
        self._process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    @staticmethod
    def _listen():
        server = socket.socket(socket.AF_UNIX)
        server.bind(SERVICE_SOCKET)
        server.listen()
        return server

    def watch(self, role, timeout, pauses=0):
        """What came of it, as main() prints it."""
        end = (self._watch_service(timeout, pauses) if role == "service" else
               self._watch_client(timeout))
        failed, errors = self._close()
        return {"failed": failed, "end": end, "errors": errors}

    def _watch_service(self, timeout, pauses):
        """Sends an event once the service says that it listens, and waits for its line; then the
        same again, as a failure must not harm what comes later; then waits for that many pauses
        between the service's passes."""
        output = b""
        sent = seen = 0
        while seen < 2:
            more = self._read(timeout)
            if not more:
                return "never" if more is None else self._end(timeout)
            output += more
            seen = len(LINE.findall(output))
            if b"Server is listening" in output and sent == seen:
                sent += self._send()
        due = self._pauses() + pauses
        end = time.monotonic() + timeout
        while self._pauses() < due:
            if self._process.poll() is not None:
                return self._end(timeout)
            if time.monotonic() > end:
                return "never"
            time.sleep(0.005)
        return "goes on" if set(LINE.findall(output)) == {DATE} else "goes on without a date"

    def _watch_client(self, timeout):
        """Sees that an event of which the client says that it was sent has arrived."""
        end = self._end(timeout)
        if end != "status 0":
            return end
        self._server.settimeout(timeout)
        connection, _ = self._server.accept()
        return "goes on" if len(connection.recv(1024)) == len(RECORD) else "nothing sent"

    def _read(self, timeout):
        """What comes next on standard output, nothing at its end, None when time is over."""
        ready, _, _ = select.select([self._process.stdout], [], [], timeout)
        return os.read(self._process.stdout.fileno(), 65536) if ready else None

    @staticmethod
    def _pauses():
        return open(LOG).readlines().count("sleep:4\n") if os.path.exists(LOG) else 0

    @staticmethod
    def _send():
        """Returns how many events were sent."""
        with socket.socket(socket.AF_UNIX) as connection:
            try:
                connection.connect(SERVICE_SOCKET)
                connection.sendall(RECORD)
            except OSError:
                return 0  # it has ended since
        return 1

    def _end(self, timeout):
        try:
            status = self._process.wait(timeout)
        except subprocess.TimeoutExpired:
            return "never"
        return f"status {status}" if status >= 0 else f"signal {-status}"

    def _close(self):
        """Returns whether an allocation failed, and the lines on standard error."""
        self._process.kill()
        _, errors = self._process.communicate()
        if self._server is not None:
            self._server.close()
        failed = os.path.exists(LOG) and f"malloc:{NO_MEMORY}\n" in open(LOG).readlines()
        return failed, errors.decode().splitlines()


def main():
    role, executable, library, allocation, seconds = sys.argv[1:]
    command = [executable, *(["-s"] if role == "service" else ["-e", "perf01", "1"])]
    number = 0
    failed = True
    started = time.monotonic()
    while failed and time.monotonic() - started < 120:
        number += 1
        fault = f"{allocation}:{number}"
        # A run without a failure may have been held up before it, or have come to its line early.
        for timeout in float(seconds), PATIENCE, PATIENCE, PATIENCE:
            seen = Run(command, library, fault).watch(role, timeout)
            if seen["end"].startswith("goes on") and seen["errors"]:  # it may be about to end
                seen = Run(command, library, fault).watch(role, timeout, pauses=30)
            failed = seen["failed"]
            if failed:
                break
        print(json.dumps({"number": number, **seen}))


main()
