"""Processor time and memory of the parts of the fleet."""

import collections
import threading
import time

import psutil

PAUSE = 5  # seconds between two samples


class Usage(threading.Thread):
    """Takes samples. A part has one process or several, at a time or one after another, and each of
    them may have children."""

    def __init__(self):
        super().__init__(daemon=True)
        self.memory = collections.Counter()  # bytes of each part at the most, by its share of pages
        self.resident = collections.Counter()  # bytes of the largest process of each part
        self._parts = {}  # the part of each process
        self._seconds = collections.Counter()  # of each process with its children
        self._lock = threading.Lock()

    def watch(self, part, pid):
        with self._lock:
            self._parts[psutil.Process(pid)] = part

    def seconds(self):
        """The processor time of each part until now."""
        self.take_sample()
        seconds = collections.Counter()
        for process, part in self._parts.items():
            seconds[part] += self._seconds[process]
        return seconds

    def run(self):
        while True:
            time.sleep(PAUSE)
            self.take_sample()

    def take_sample(self):
        with self._lock:
            memory = collections.Counter()
            for process, part in self._parts.items():
                memory[part] += self._take_sample_of(process, part)
            for part, size in memory.items():
                self.memory[part] = max(self.memory[part], size)

    def _take_sample_of(self, process, part):
        seconds = memory = 0
        try:
            for one in (process, *process.children(recursive=True)):
                seconds += sum(one.cpu_times()[:4])  # also of its children that have ended
                facts = one.memory_full_info()
                memory += facts.pss
                self.resident[part] = max(self.resident[part], facts.rss)
        except psutil.NoSuchProcess:
            return memory  # it has ended just now: the sample before it counts
        self._seconds[process] = max(seconds, self._seconds[process])
        return memory
