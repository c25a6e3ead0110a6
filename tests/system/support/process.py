"""A program in a sandbox: its output as it comes, its status, its end."""

import contextlib
import os
import pathlib
import select
import signal
import subprocess
import threading

from .polling import DEADLINE, wait_until


# System calls as the kernel numbers them.
WRITE, POLL, NANOSLEEP, SENDTO, FUTEX, CLOCK_NANOSLEEP = 1, 7, 35, 44, 202, 230
PAUSES = {NANOSLEEP, CLOCK_NANOSLEEP}


def call_of(thread):
    """The system call that a thread, a folder of /proc, waits in, and its first argument; no
    call's where it runs."""
    number, *arguments = (thread / "syscall").read_text().split()
    return (int(number), int(arguments[0], 16)) if len(arguments) > 2 else (None, None)


class Process:
    """Started with its standard output and error on pipes of their own, unless `stdout` says
    otherwise. Whatever it prints is read at once, so that it never waits for the test."""

    def __init__(self, command, **kwargs):
        kwargs.setdefault("stdin", subprocess.DEVNULL)
        kwargs.setdefault("stdout", subprocess.PIPE)
        kwargs.setdefault("stderr", subprocess.PIPE)
        self._popen = subprocess.Popen(command, **kwargs)
        self._output = {}
        self._streams = {}
        self._lock = threading.Lock()
        self._readers = []
        for name in ("stdout", "stderr"):
            stream = getattr(self._popen, name)
            self._output[name] = bytearray()
            if stream is not None:
                os.set_blocking(stream.fileno(), False)
                self._streams[name] = stream
                reader = threading.Thread(target=self._read, args=(name, stream), daemon=True)
                reader.start()
                self._readers.append(reader)

    def _read(self, name, stream):
        while self._take(name):
            select.select([stream], [], [])
        with self._lock:
            stream.close()

    def _take(self, name):
        """Takes over what is in the pipe now; false at its end."""
        with self._lock:
            stream = self._streams.get(name)
            while stream is not None and not stream.closed:
                try:
                    chunk = os.read(stream.fileno(), 65536)
                except BlockingIOError:
                    return True
                if not chunk:
                    break
                self._output[name] += chunk
        return False

    def _output_so_far(self, name):
        # All that was printed before this call, also if the reader has not come to it yet: a test
        # may know by other means, such as what a collector received, that it has been printed.
        self._take(name)
        return bytes(self._output[name])

    @property
    def stdout_bytes(self):
        return self._output_so_far("stdout")

    @property
    def stderr_bytes(self):
        return self._output_so_far("stderr")

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
    def pid(self):
        """The process's number as seen by the test (nsenter stands between the two)."""
        from .sandbox import child_of
        return child_of(self._popen.pid)

    @property
    def threads(self):
        """The number of its threads, less the one that the thread sanitizer adds."""
        count = len(os.listdir(f"/proc/{self.pid}/task"))
        return max(1, count - 1) if os.environ.get("OV_SANITIZER") == "thread" else count

    @property
    def waiting_in(self):
        """The system call that each thread waits in, and its first argument."""
        calls = []
        for thread in pathlib.Path(f"/proc/{self.pid}/task").iterdir():
            with contextlib.suppress(OSError):  # of a thread that has just ended
                calls.append(call_of(thread))
        return calls

    @property
    def children(self):
        """The processes whose parent it is, with their states; a zombie's is Z."""
        parent, found = self.pid, []
        for folder in pathlib.Path("/proc").iterdir():
            if folder.name.isdigit():
                with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # it just ended
                    fields = (folder / "stat").read_text().rsplit(")", 1)[1].split()
                    if int(fields[1]) == parent:
                        found.append((int(folder.name), fields[0]))
        return found

    @property
    def descriptors(self):
        """What each of its descriptors above the standard ones is."""
        found = {}
        for descriptor in pathlib.Path(f"/proc/{self.pid}/fd").iterdir():
            if int(descriptor.name) > 2:
                with contextlib.suppress(FileNotFoundError):  # it has just been closed
                    found[int(descriptor.name)] = os.readlink(descriptor)
        return found

    @property
    def sockets(self):
        """How many sockets it has."""
        return sum(target.startswith("socket:") for target in self.descriptors.values())

    def is_running(self):
        return self._popen.poll() is None

    def wait_for_line(self, line, count=1, deadline=DEADLINE):
        """Waits until standard output holds the line, exactly, at least `count` times."""
        wait_until(lambda: self.lines.count(line) >= count,
                   lambda: f"{count} times {line!r} in {self.lines} ({self.error_lines})", deadline)

    def wait_for_error_line(self, line, count=1, deadline=DEADLINE):
        """The same of standard error."""
        wait_until(lambda: self.error_lines.count(line) >= count,
                   lambda: f"{count} times {line!r} in {self.error_lines}", deadline)

    def wait_for_cycle(self, number):
        """Waits until a service is in its `number`th cycle and has read its settings for it,
        which it does before it starts a thread. (Where a thread of an earlier cycle lives on, it
        may be about to read them.)"""
        self.wait_for_line("Server is listening on /tmp/ov-events", number)
        wait_until(lambda: self.threads > 1, "a second thread")

    def wait_for_call(self, call):
        """Waits until the first thread waits in this system call: FUTEX for the end of another
        thread, POLL for a client that has not written yet."""
        process = pathlib.Path(f"/proc/{self.pid}")
        wait_until(lambda: call_of(process)[0] == call, lambda: call_of(process))

    def wait_until_idle(self):
        """Waits until every thread pauses: what the service has printed is then done, too."""
        wait_until(lambda: {call for call, _ in self.waiting_in} <= PAUSES,
                   lambda: f"{self.waiting_in}, not all in {PAUSES}")

    def wait_for_pauses(self, count):
        """Waits until the first thread has gone to sleep `count` times more: once for each look
        of a service at its clients and settings, and once for each of its other waits."""
        status = pathlib.Path(f"/proc/{self.pid}/status")

        def pauses():
            return int(status.read_text().split("\nvoluntary_ctxt_switches:")[1].split()[0])

        enough = pauses() + count
        wait_until(lambda: pauses() >= enough, f"{count} pauses")

    def wait(self, deadline=60.0):
        """Waits for the end of the process and of its output; returns the status."""
        self._popen.wait(deadline)
        for reader in self._readers:
            reader.join()
        return self.status

    @property
    def status(self):
        """The exit status; that of a signal is 128 above its number, as in a shell."""
        status = self._popen.returncode
        return 128 - status if status is not None and status < 0 else status

    @property
    def ended_by(self):
        """The number of the signal that ended the process, or None."""
        status = self._popen.returncode
        return -status if status is not None and status < 0 else None

    def signal(self, number):
        os.kill(self.pid, number)

    def _end_after_look_for_leaks(self, children, patience):
        """Does it for a service that pauses: at another moment it may hold a lock that the look
        needs, so that neither would end."""
        try:
            pid, = children.read_text().split()
            if not os.readlink(f"/proc/{pid}/exe").endswith("/ov-event-logger"):
                return
            process = pathlib.Path(f"/proc/{pid}")
            wait_until(lambda: call_of(process)[0] in PAUSES, "a pause", patience)
            os.kill(int(pid), signal.SIGRTMAX)
            self._popen.wait(max(patience, 10))
        except (AssertionError, ValueError, OSError, subprocess.TimeoutExpired):
            pass  # it ends without

    def kill(self, patience=1):
        """Ends the process, if it has not ended by itself, and waits for that. Where leaks are
        looked for, a service that does not pause within `patience` seconds ends without."""
        children = pathlib.Path(f"/proc/{self._popen.pid}/task/{self._popen.pid}/children")
        if os.environ.get("OV_SANITIZER") == "address":
            self._end_after_look_for_leaks(children, patience)

        def killed():
            if not self.is_running():
                return True
            try:
                for child in children.read_text().split():
                    os.kill(int(child), signal.SIGKILL)
                    return True
            except (ProcessLookupError, FileNotFoundError):
                pass  # it ends by itself just now
            return False

        wait_until(killed, f"a child of process {self._popen.pid}, or its end")
        self.wait()
