"""Clients that follow the kernel log. Each has to see all of the counter's lines in order, in each life of the service."""

import http.client
import re
import threading
import time
from contextlib import closing

from measure import connect
from pollers import FAILURES, RETRY_SECONDS

LINE = re.compile(rb"soak-line-(\d+);")


class Follower(threading.Thread):
    """line   the number of the last line that it has seen
    size   length of its text
    """

    def __init__(self, name, port, unit, tally, end):
        super().__init__(daemon=True, name=name)
        self.line = self.size = 0
        self._port = port
        self._unit = unit
        self._tally = tally
        self._end = end
        self._rest = b""
        self._sent = time.time()

    def run(self):
        while not self._end.is_set():
            try:
                self._follow()
            except FAILURES as error:
                self._tally.failed("log", self._sent, f"{self.name}: {error!r}")
                self._end.wait(RETRY_SECONDS)

    def _follow(self):
        self.line, self._rest = 0, b""
        size, life = 0, len(self._unit.lives)
        with closing(connect(self._port)) as connection:
            while not self._end.is_set():
                self._sent = time.time()
                connection.request("GET", f"/api/v1/log.cgi?offset={size}")
                response = connection.getresponse()
                text = response.read().partition(b"\r\n")[2]
                if response.status != 200:
                    raise http.client.HTTPException(f"status {response.status}")
                if len(self._unit.lives) != life:
                    return  # another process: its log begins again
                size += len(text)
                self.size = size
                self._take(text)
                self._tally.done("log.cgi")
                if not text:
                    self._end.wait(RETRY_SECONDS)  # the log is empty

    def _take(self, text):
        *whole, self._rest = (self._rest + text).split(b"\n")
        for number in map(int, LINE.findall(b"\n".join(whole))):
            if number != self.line + 1:
                self._tally.complain(f"{self.name}: line {number} of the log follows line {self.line}")
            self.line = number
