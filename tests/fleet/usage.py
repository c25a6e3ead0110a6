"""Processor time and memory of the parts of the fleet."""

import collections
import dataclasses
import threading

import psutil

PAUSE = 5  # seconds between two samples


@dataclasses.dataclass
class Use:
    processes: int
    seconds: float  # of processor time
    memory: int  # bytes at the most; pages that processes share count once
    resident: int  # bytes of the largest process at the most


class Usage(threading.Thread):
    """Takes samples until the run ends. A part has one process or several, at a time or one after
    another, and each of them may have children."""

    def __init__(self):
        super().__init__(daemon=True)
        self._parts = {}  # the part of each process
        self._seconds = collections.Counter()  # of each process with its children
        self._begin = collections.Counter()
        self._memory = collections.Counter()
        self._resident = collections.Counter()
        self._lock = threading.Lock()
        self._over = threading.Event()

    def watch(self, part, pid):
        with self._lock:
            self._parts[psutil.Process(pid)] = part

    def begin(self):
        """What was used until now does not count."""
        self.take_sample()
        self._begin = self._seconds.copy()
        self.start()

    def end(self):
        """Returns the use of each part."""
        self._over.set()
        self.join()
        self.take_sample()
        seconds = collections.Counter()
        for process, part in self._parts.items():
            seconds[part] += self._seconds[process] - self._begin[process]
        processes = collections.Counter(self._parts.values())
        return {part: Use(processes[part], seconds[part], self._memory[part], self._resident[part])
                for part in processes}

    def run(self):
        while not self._over.wait(PAUSE):
            self.take_sample()

    def take_sample(self):
        with self._lock:
            memory = collections.Counter()
            for process, part in self._parts.items():
                memory[part] += self._take_sample_of(process, part)
            for part, size in memory.items():
                self._memory[part] = max(self._memory[part], size)

    def _take_sample_of(self, process, part):
        seconds = memory = 0
        try:
            for one in (process, *process.children(recursive=True)):
                seconds += sum(one.cpu_times()[:4])  # also of its children that have ended
                facts = one.memory_full_info()
                memory += facts.pss
                self._resident[part] = max(self._resident[part], facts.rss)
        except psutil.NoSuchProcess:
            return memory  # it has ended just now: the sample before it counts
        self._seconds[process] = max(seconds, self._seconds[process])
        return memory
