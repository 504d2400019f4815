"""Figures of the service's process over time."""

import threading
import time
from collections import namedtuple

from measure import Process

SAMPLE_SECONDS = 1

Sample = namedtuple("Sample", "when life descriptors resident_kib log_kib processor_percent requests events")


class Watch(threading.Thread):
    """samples   one each second, without those in which the process changed"""

    def __init__(self, unit, log_size, tally, observer, end):
        super().__init__(daemon=True)
        self.samples = []
        self._unit = unit
        self._log_size = log_size
        self._tally = tally
        self._observer = observer
        self._end = end
        self._last = (None, 0, 0)  # process id, its processor seconds, when

    def run(self):
        while not self._end.wait(SAMPLE_SECONDS):
            try:
                self._sample()
            except (OSError, StopIteration):
                pass  # the process has just ended

    def _sample(self):
        life, now = self._unit.life, time.time()
        process = Process(life.pid)
        before, self._last = self._last, (life.pid, process.processor_seconds(), now)
        if before[0] == life.pid:
            share = (self._last[1] - before[1]) / (now - before[2]) * 100
            self.samples.append(Sample(now, len(self._unit.lives), process.descriptors(), process.memory_kib("VmRSS"),
                                       self._log_size() / 1024, share, sum(self._tally.counts.values()),
                                       self._observer.events))
