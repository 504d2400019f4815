#!/usr/bin/python3
"""Clients that follow the kernel log while it grows fast: does each of them get all of it, and what does it cost?

The service's dmesg prints a fixed number of lines each second, one by one. The clients ask for
log.cgi through the web server, again and again, each from where its text ends. At the end every client's text has to
equal the conversion of what was written. Then the dmesg ends, and the service has to be at rest.

Where a read ends within the introducer of a colour, or behind a multiple of 256 bytes, the conversion depends on the
reads. The lines are 257 bytes long with all colours in front, so that this happens only when the service falls behind
by 150 lines.
"""

import http.client
import os
import re
import sys
import tempfile
import threading
import time
from pathlib import Path

from measure import Process, parser, print_conditions, print_table, progress
from virtualdevice import VirtualDevice

SIZE = 257
COLOURS = ((1, "m"), (31, "m"), (36, "m"), (45, "m"), (93, "m"), (107, "m"), (0, "K"), (38, "m"))
TURNS = 50  # writes per second
LEAST_PAUSE = 0.005
REST_SECONDS = 10
ATTEMPTS = 3
BEHIND_LINES = 150
TOOL = """#!/bin/sh
exec dd bs={size} iflag=fullblock status=none if="{fifo}"
"""


def line(number):
    code, letter = COLOURS[number % len(COLOURS)]
    front = f"\x1b[32m[{number:12d}] \x1b[0m\x1b[33mbench: \x1b[0m\x1b[{code}{letter}<{number}>\x1b[m "
    return front.encode().ljust(SIZE - 1, b".") + b"\n"


def style(code):
    for first, name, on, off in ((30, "color", "AA", "00"), (40, "background-color", "AA", "00"),
                                 (90, "color", "FF", "55"), (100, "background-color", "FF", "55")):
        if first <= code < first + 8:
            digits = "".join(on if code - first & bit else off for bit in (1, 2, 4))
            return f"{name}: #{digits}"
    return ""


def span(sequence):
    code, letter = int(sequence[1] or 0), sequence[2]
    if letter != b"m":
        return b""
    return f"<span style='{style(code)}'>".encode() if code else b"</span>"


def converted(data):
    return re.sub(rb"\x1b\[(\d*)(.)", span, data)


class Follower(threading.Thread):
    """A client: its text, and the number of answers that it came in."""

    def __init__(self, port, size):
        super().__init__(daemon=True)
        self._connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
        self._size = size
        self.text = bytearray()
        self.answers = 0

    def run(self):
        try:
            self._follow()
        except OSError as error:
            progress(f"a client ends with {len(self.text)} of {self._size} bytes: {error}")

    def _follow(self):
        while len(self.text) < self._size:
            self._connection.request("GET", f"/api/v1/log.cgi?offset={len(self.text)}")
            response = self._connection.getresponse()
            length, _, more = response.read().partition(b"\r\n")
            if response.status != 200 or int(length) < len(self.text):
                return
            self.text += more
            self.answers += 1


def write_lines(feed, count, rate):
    """Returns the longest time by which a write was late."""
    begin, late = time.monotonic(), 0
    per_turn = rate // TURNS
    for turn in range(count // per_turn):
        delay = begin + turn / TURNS - time.monotonic()
        time.sleep(max(delay, LEAST_PAUSE))  # who is late catches up step by step
        late = max(late, -delay)
        for number in range(turn * per_turn, (turn + 1) * per_turn):
            feed.write(line(number))
    return late


def measure(options, folder):
    count = options.rate * options.seconds
    expected = converted(b"".join(line(number) for number in range(count)))
    fifo = folder / "fifo"
    os.mkfifo(fifo)
    (folder / "dmesg").write_text(TOOL.format(fifo=fifo, size=SIZE))
    (folder / "dmesg").chmod(0o755)
    environment = {"PATH": f"{folder}:{os.environ['PATH']}"}
    with VirtualDevice(options.build, nginx=True, environment=environment) as device:
        service = Process(device.pids["service"])
        followers = [Follower(device.http_port, len(expected)) for _ in range(options.clients)]
        with open(fifo, "wb", buffering=0) as feed:
            feed.write(line(0))
            time.sleep(0.5)  # offset 0 does not wait: the log has to have begun
            before = service.processor_seconds()
            for follower in followers:
                follower.start()
            progress(f"{options.clients} clients follow {count} lines")
            late = write_lines(SkipFirst(feed), count, options.rate)
            for follower in followers:
                follower.join(60)
            used = service.processor_seconds() - before
        equal = sum(follower.text == expected for follower in followers)
        alike = all(follower.text == followers[0].text for follower in followers)
        time.sleep(0.5)
        before = service.processor_seconds()
        progress(f"The tool has ended, {REST_SECONDS} s of rest")
        time.sleep(REST_SECONDS)
        rest = (service.processor_seconds() - before) / REST_SECONDS
        report(options, followers, expected, equal, alike, used, late, rest, service)
        return equal == len(followers), late


class SkipFirst:
    """Leaves the first write out: that line has been written before."""

    def __init__(self, feed):
        self._writes = iter((lambda data: None,))
        self._feed = feed

    def write(self, data):
        next(self._writes, self._feed.write)(data)


def report(options, followers, expected, equal, alike, used, late, rest, service):
    answers = sum(follower.answers for follower in followers)
    print_table(("figure", "value"), (
        ("texts equal to the conversion", f"{equal} of {len(followers)}"),
        ("all of them the same", "yes" if alike else "NO"),
        ("size of the text", f"{len(expected) / 1e6:.1f} MB"),
        ("answers per client and second", f"{answers / len(followers) / options.seconds:.1f}"),
        ("processor of the service", f"{100 * used / options.seconds:.1f} %"),
        ("peak memory of the service", f"{service.memory_kib('VmHWM') / 1024:.1f} MiB"),
        ("latest write", f"{1000 * late:.0f} ms"),
        (f"processor in {REST_SECONDS} s after the tool has gone", f"{100 * rest:.3f} %"),
    ))


def main():
    arguments = parser(__doc__.splitlines()[0])
    arguments.add_argument("--clients", type=int, default=20)
    arguments.add_argument("--rate", type=int, default=2000, help="lines per second (%(default)s)")
    arguments.add_argument("--seconds", type=int, default=30, help="how long (%(default)s)")
    options = arguments.parse_args()
    print("## The log\n")
    print_conditions()
    for _ in range(ATTEMPTS):
        with tempfile.TemporaryDirectory() as folder:
            is_equal, late = measure(options, Path(folder))
        if is_equal or late * options.rate < BEHIND_LINES:
            break
        print("The machine stalled, and the service's reads met other places than foreseen: once more.\n", flush=True)
    sys.exit(0 if is_equal else "The texts differ")


main()
