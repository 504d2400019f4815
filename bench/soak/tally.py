"""Counts requests by kind, and judges failed ones: a failure counts if no fault that excuses it was in progress."""

import threading
import time
from collections import Counter, namedtuple
from contextlib import contextmanager

# A fault's consequences may reach a client so much later.
SETTLE_SECONDS = 5
EVERYTHING = frozenset({"*"})

Failure = namedtuple("Failure", "kind begin end text")
Window = namedtuple("Window", "fault excuses begin end")


class Tally:
    """counts    requests with the expected answer, by kind
    windows   faults so far
    times     (time, seconds) of the probe's answers
    """

    def __init__(self):
        self.counts = Counter()
        self.failures = []
        self.windows = []
        self.times = []
        self.complaints = []
        self._lock = threading.Lock()

    def done(self, kind, count=1):
        with self._lock:
            self.counts[kind] += count

    def failed(self, kind, begin, text, end=None):
        self.failures.append(Failure(kind, begin, end or time.time(), str(text)))

    def complain(self, text):
        self.complaints.append(text)

    @contextmanager
    def window(self, fault, excuses=EVERYTHING):
        """A fault is in progress; requests of the kinds in `excuses` may fail."""
        begin = time.time()
        self.windows.append(Window(fault, excuses, begin, float("inf")))
        place = len(self.windows) - 1
        try:
            yield
        finally:
            self.windows[place] = Window(fault, excuses, begin, time.time())

    def unexcused(self):
        return [failure for failure in self.failures if not any(excuses(window, failure) for window in self.windows)]


def excuses(window, failure):
    is_meant = "*" in window.excuses or failure.kind in window.excuses
    return is_meant and failure.end >= window.begin and failure.begin <= window.end + SETTLE_SECONDS
