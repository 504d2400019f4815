"""Another process of the device: it stores the time in a variable that nothing else uses, and writes log lines.

Each document of updates then has a number, the milliseconds of the last tick before it.
"""

import bisect
import mmap
import socket
import struct
import threading
import time
from collections import deque
from contextlib import suppress

MEMORY, VARIABLE, AT, EVENT = "MemGuiLocal", "EditValueInteger_Local", 40, 743
SIZE_WORD = 4
NOTIFY = struct.Struct("<III")
SUBSCRIBE_ALL = NOTIFY.pack(3, 0, 0)
TICK_SECONDS = 0.02
LINE_SECONDS = 0.5
RETRY_SECONDS = 0.2


class Broker:
    """A connection that is opened again when it is lost."""

    def __init__(self, device, first=b""):
        self._path = str(device.path("/var/volatile/message-broker.socket"))
        self._first = first
        self._socket = None

    def socket(self):
        if self._socket is None:
            self._socket = socket.socket(socket.AF_UNIX)
            self._socket.connect(self._path)
            self._socket.sendall(self._first)
        return self._socket

    def lose(self):
        if self._socket is not None:
            self._socket.close()
        self._socket = None
        time.sleep(RETRY_SECONDS)


class Observer(threading.Thread):
    """Counts the events that the broker delivers."""

    def __init__(self, device):
        super().__init__(daemon=True)
        self.events = 0
        self._broker = Broker(device, SUBSCRIBE_ALL)

    def run(self):
        while True:
            try:
                data = self._broker.socket().recv(1 << 16)
                self.events += len(data) / NOTIFY.size
            except OSError:
                data = b""
            if not data:
                self._broker.lose()


class Counter(threading.Thread):
    """value   the last value: milliseconds since the start, always increasing
    line    the number of the last log line
    """

    def __init__(self, device, end):
        super().__init__(daemon=True)
        self.value = 0
        self.line = 0
        self._begin = time.monotonic()
        self._ticks = deque(maxlen=1000)
        self._device = device
        self._end = end
        self._broker = Broker(device)
        self._runs = threading.Event()
        self._runs.set()
        self._idle = threading.Event()

    def now(self):
        return int((time.monotonic() - self._begin) * 1000)

    def after(self, value):
        """When the tick after this value was, or now. A document with this value was built before."""
        ticks = list(self._ticks)
        place = bisect.bisect_right(ticks, value)
        return ticks[place] if place < len(ticks) else self.now()

    def pause(self):
        """Returns when the counter is at rest and its last value is posted."""
        self._idle.clear()
        self._runs.clear()
        self._idle.wait()

    def resume(self):
        self._runs.set()

    def store(self, at, value):
        """Stores an int of the counter's memory without an event."""
        with open(self._device.segment(MEMORY), "r+b") as file, mmap.mmap(file.fileno(), 0) as memory:
            struct.pack_into("=i", memory, SIZE_WORD + at, value)

    def run(self):
        next_line = 0
        while not self._end.is_set():
            if not self._runs.is_set():
                while not self.tick():
                    pass
                self._idle.set()
                self._runs.wait()
            self.tick()
            if time.monotonic() >= next_line:
                next_line = time.monotonic() + LINE_SECONDS
                self._log()
            time.sleep(TICK_SECONDS)

    def tick(self):
        """Stores and posts the time. Returns whether the event is posted."""
        self.value = max(self.value + 1, self.now())
        self.store(AT, self.value)
        self._ticks.append(self.value)
        try:
            self._broker.socket().sendall(NOTIFY.pack(EVENT, 0, 0))
        except OSError:
            self._broker.lose()
            return False
        return True

    def _log(self):
        self.line += 1
        with suppress(OSError), open(self._device.path("/dev/kmsg"), "ab", buffering=0) as log:
            log.write(b"<5>soak-line-%d;\n" % self.line)
