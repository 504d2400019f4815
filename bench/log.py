#!/usr/bin/python3
"""Clients that follow the kernel log while it grows fast: does each client get all of it, and at what cost?

A substitute for dmesg prints a fixed number of lines each second, one by one. The clients poll log.cgi through the web
server, each from the end of its text. At the end every client's text has to equal the conversion of the written lines.
Then the dmesg ends, and the service has to be idle.

The conversion depends on the sizes of the service's reads: if a read ends within a colour's escape sequence or at a
multiple of 256 bytes, the result differs. The lines are 257 bytes long and begin with all of their colours, so this
happens only if the service falls behind by 150 lines.
"""

import http.client
import os
import re
import sys
import tempfile
import threading
import time
from pathlib import Path

from measure import UNLIMITED, Process, begin, connect, exchange, print_table, progress
from virtualdevice import VirtualDevice

CLIENTS = 20
LINES_PER_SECOND = 2000
SIZE = 257
# Escape sequences and their conversions.
COLOURS = {b"1m": b"<span style=''>", b"31m": b"<span style='color: #AA0000'>",
           b"36m": b"<span style='color: #00AAAA'>", b"45m": b"<span style='background-color: #AA00AA'>",
           b"93m": b"<span style='color: #FFFF55'>", b"107m": b"<span style='background-color: #FFFFFF'>",
           b"0K": b"", b"38m": b"<span style=''>"}
OTHERS = {b"32m": b"<span style='color: #00AA00'>", b"33m": b"<span style='color: #AAAA00'>", b"0m": b"</span>",
          b"m": b"</span>"}
SPANS = {**COLOURS, **OTHERS}
TURNS = 50  # writes per second
LEAST_PAUSE = 0.005
REST_SECONDS = 10
ATTEMPTS = 3
BEHIND_LINES = 150
TOOL = f"""#!/bin/sh
exec dd bs={SIZE} iflag=fullblock status=none if="$(dirname "$0")/fifo"
"""


def line(number):
    colour = list(COLOURS)[number % len(COLOURS)]
    front = b"\x1b[32m[%12d] \x1b[0m\x1b[33mbench: \x1b[0m\x1b[%b<%d>\x1b[m " % (number, colour, number)
    return front.ljust(SIZE - 1, b".") + b"\n"


def converted(data):
    return re.sub(rb"\x1b\[(\d*.)", lambda found: SPANS[found[1]], data)


class Follower(threading.Thread):
    """A client: its text, and the number of answers that it came in."""

    def __init__(self, port, size):
        super().__init__(daemon=True)
        self._connection = connect(port)
        self._size = size
        self.text = bytearray()
        self.answers = 0

    def run(self):
        try:
            while len(self.text) < self._size:
                path = f"/api/v1/log.cgi?offset={len(self.text)}"
                self.text += exchange(self._connection, "GET", path).partition(b"\r\n")[2]
                self.answers += 1
        except (OSError, http.client.HTTPException) as error:
            progress(f"a client ends with {len(self.text)} of {self._size} bytes: {error}")


def write_lines(feed, count):
    """Writes all lines except the first, which is already written. Returns the largest delay of a write."""
    start, late = time.monotonic(), 0
    per_turn = LINES_PER_SECOND // TURNS
    for turn in range(count // per_turn):
        delay = start + turn / TURNS - time.monotonic()
        time.sleep(max(delay, LEAST_PAUSE))  # catches up gradually after a stall
        late = max(late, -delay)
        for number in range(max(turn * per_turn, 1), (turn + 1) * per_turn):
            feed.write(line(number))
    return late


def measure(options, folder):
    """Returns whether all texts are correct, the largest delay of a write in seconds, and the figures."""
    count = LINES_PER_SECOND * options.seconds
    expected = converted(b"".join(line(number) for number in range(count)))
    os.mkfifo(folder / "fifo")
    (folder / "dmesg").write_text(TOOL)
    (folder / "dmesg").chmod(0o755)
    environment = {"PATH": f"{folder}:{os.environ['PATH']}"}
    with VirtualDevice(options.build, nginx=True, site=UNLIMITED, environment=environment) as device:
        service = Process(device.pids["service"])
        followers = [Follower(device.http_port, len(expected)) for _ in range(CLIENTS)]
        with open(folder / "fifo", "wb", buffering=0) as feed:
            feed.write(line(0))
            time.sleep(0.5)  # a poll with offset 0 does not wait for text
            before = service.processor_seconds()
            for follower in followers:
                follower.start()
            progress(f"{CLIENTS} clients follow {count} lines")
            late = write_lines(feed, count)
            for follower in followers:
                follower.join(60)
            used = service.processor_seconds() - before
        time.sleep(0.5)
        progress(f"dmesg has ended, {REST_SECONDS} s of rest")
        rest = service.processor_share(REST_SECONDS)
        peak = service.memory_kib("VmHWM")
    equal = sum(follower.text == expected for follower in followers)
    alike = all(follower.text == followers[0].text for follower in followers)
    answers = sum(follower.answers for follower in followers)
    return equal == CLIENTS, late, (
        ("correct texts", f"{equal} of {CLIENTS}"),
        ("all texts equal", "yes" if alike else "NO"),
        ("size of the text", f"{len(expected) / 1e6:.1f} MB"),
        ("answers per client and second", f"{answers / CLIENTS / options.seconds:.1f}"),
        ("CPU of the service", f"{100 * used / options.seconds:.1f} %"),
        ("peak memory of the service", f"{peak / 1024:.1f} MiB"),
        ("largest delay of a write", f"{1000 * late:.0f} ms"),
        (f"CPU in {REST_SECONDS} s after the end of dmesg", f"{rest:.3f} %"),
    )


options = begin("The log", seconds=(30, "duration"))
for _ in range(ATTEMPTS):
    with tempfile.TemporaryDirectory() as folder:
        is_equal, late, figures = measure(options, Path(folder))
    print_table(("figure", "value"), figures)
    if is_equal or late * LINES_PER_SECOND < BEHIND_LINES:
        break
    print("The machine stalled, so reads ended at other positions than expected: measuring again.\n", flush=True)
sys.exit(0 if is_equal else "the texts differ")
