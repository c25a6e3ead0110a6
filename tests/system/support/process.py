"""A program in a sandbox: its output as it comes, its resources, its end."""

import contextlib
import os
import signal
import subprocess
import tempfile

import psutil

from .polling import DEADLINE, wait_until

# System calls as the kernel numbers them.
POLL, NANOSLEEP, SENDTO, CLOCK_NANOSLEEP = 7, 35, 44, 230
PAUSES = {POLL, NANOSLEEP, CLOCK_NANOSLEEP}


class Process:
    """Its standard output and error are files, unless the caller says otherwise: the program never
    waits for the test."""

    def __init__(self, command, **kwargs):
        self._files = {name: tempfile.TemporaryFile() for name in ("stdout", "stderr")}
        self._popen = subprocess.Popen(
            command, **{"stdin": subprocess.DEVNULL, **self._files, **kwargs})
        self._facts = None

    def _output(self, name):
        descriptor = self._files[name].fileno()
        return os.pread(descriptor, os.fstat(descriptor).st_size, 0)

    @property
    def stdout_bytes(self):
        return self._output("stdout")

    @property
    def stderr_bytes(self):
        return self._output("stderr")

    @property
    def stdout(self):
        return self.stdout_bytes.decode()

    @property
    def stderr(self):
        return self.stderr_bytes.decode()

    @property
    def lines(self):
        """The complete lines of standard output so far."""
        return [line.decode() for line in self.stdout_bytes.split(b"\n")[:-1]]

    @property
    def error_lines(self):
        """The complete lines of standard error so far."""
        return [line.decode() for line in self.stderr_bytes.split(b"\n")[:-1]]

    @property
    def facts(self):
        """The psutil.Process of the program itself (nsenter stands between the two)."""
        if self._facts is None:
            self._facts = wait_until(self._find, "the program")[0]
        return self._facts

    def _find(self):
        if not self.is_running():
            raise psutil.NoSuchProcess(self._popen.pid)
        return psutil.Process(self._popen.pid).children()

    @property
    def pid(self):
        """The process's number as seen by the test."""
        return self.facts.pid

    @property
    def threads(self):
        """The number of its threads, less the one that the thread sanitizer adds."""
        count = self.facts.num_threads()
        return max(1, count - 1) if os.environ.get("OV_SANITIZER") == "thread" else count

    @property
    def waiting_in(self):
        """The system call that each thread waits in and its first argument, the first thread's
        first; (None, None) for a thread that runs."""
        calls = []
        for thread in sorted(self.facts.threads(), key=lambda found: found.id != self.pid):
            try:
                words = open(f"/proc/{self.pid}/task/{thread.id}/syscall").read().split()
            except OSError:
                continue  # the thread has just ended
            calls.append((int(words[0]), int(words[1], 16)) if len(words) > 2 else (None, None))
        return calls

    @property
    def children(self):
        """The processes whose parent it is, with their states ("zombie", "sleeping"...)."""
        found = []
        for child in self.facts.children():
            try:
                found.append((child.pid, child.status()))
            except psutil.NoSuchProcess:
                pass  # it has just ended
        return found

    @property
    def descriptors(self):
        """What each of its descriptors above the standard ones is."""
        found = {}
        for descriptor in os.listdir(f"/proc/{self.pid}/fd"):
            try:
                found[int(descriptor)] = os.readlink(f"/proc/{self.pid}/fd/{descriptor}")
            except FileNotFoundError:
                pass  # it has just been closed
        return {number: target for number, target in found.items() if number > 2}

    @property
    def sockets(self):
        """The number of its sockets."""
        return sum(target.startswith("socket:") for target in self.descriptors.values())

    def is_running(self):
        return self._popen.poll() is None

    def wait_for_line(self, line, count=1, deadline=DEADLINE):
        """Waits until standard output holds the line, exactly, at least `count` times."""
        wait_until(lambda: self.lines.count(line) >= count,
                   lambda: f"{count} times {line!r} in {self.lines} ({self.error_lines})", deadline)

    def wait_for_error_line(self, line, count=1, deadline=DEADLINE):
        """Waits for a line on standard error."""
        wait_until(lambda: self.error_lines.count(line) >= count,
                   lambda: f"{count} times {line!r} in {self.error_lines}", deadline)

    def wait_for_cycle(self, number, deadline=DEADLINE):
        """Waits until a service is in its `number`th cycle and has read the settings for it,
        which it does before it starts a thread."""
        self.wait_for_line("Server is listening on /tmp/ov-events", number, deadline)
        wait_until(lambda: self.threads > 1, "a second thread")

    def wait_for_call(self, call):
        """Waits until the first thread waits in this system call."""
        wait_until(lambda: self.waiting_in[0][0] == call, lambda: self.waiting_in)

    def wait_until_idle(self):
        """Waits until every thread pauses: what the service has printed is then done, too."""
        wait_until(lambda: {call for call, _ in self.waiting_in} <= PAUSES,
                   lambda: f"{self.waiting_in}, not all in {PAUSES}")

    @property
    def pauses(self):
        """How often the first thread has gone to sleep."""
        return self.facts.num_ctx_switches().voluntary

    def wait_for_pauses(self, count):
        """Waits until the first thread has gone to sleep `count` times more: an idle service looks
        at its settings before each time."""
        enough = self.pauses + count
        wait_until(lambda: self.pauses >= enough, f"{count} pauses")

    def wait(self, deadline=60.0):
        """Waits for the end of the process; returns its status."""
        self._popen.wait(deadline)
        return self.status

    @property
    def status(self):
        """The exit status; that of a signal is 128 above its number, as in a shell."""
        status = self._popen.returncode
        return 128 - status if status is not None and status < 0 else status

    def _end_after_report(self, patience):
        """Lets a service look for leaks or write its coverage counters, and end. At a moment
        without a pause it may hold a lock that this needs."""
        try:
            if self.facts.exe().endswith("/ov-event-logger"):
                wait_until(lambda: self.waiting_in[0][0] in PAUSES, "a pause", patience)
                self.facts.send_signal(signal.SIGRTMAX)
                self._popen.wait(max(patience, 10))
        except (AssertionError, OSError, psutil.Error, subprocess.TimeoutExpired):
            pass  # it ends without

    def kill(self, patience=1):
        """Ends the process, if it has not ended by itself, and waits for that."""
        if os.environ.get("OV_SANITIZER") in ("address", "coverage") and self.is_running():
            self._end_after_report(patience)
        if self.is_running():
            with contextlib.suppress(psutil.NoSuchProcess):  # it ends by itself just now
                self.facts.kill()
            self._popen.send_signal(signal.SIGCONT)  # nsenter stops with a program that is stopped
        self.wait()
