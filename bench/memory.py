#!/usr/bin/python3
"""How much memory the service holds: at its start, after the whole tree, after a picture of the display, after large bodies.

Of a program for another processor the pages of its own address space are counted, as the emulator's process has them;
the emulator's own memory says nothing of the device. The emulator maps the program's four gigabytes as one piece, without
a gap, around the file of the program. It has no peak of its own there: that is watched while the upload runs.
"""

import http.client
import re
import sys
import threading
import time
from pathlib import Path

from measure import Process, parser, print_conditions, print_table, progress  # puts the launcher on the path
from emulation import emulator
from virtualdevice import VirtualDevice

ADDRESS_SPACE = 1 << 32
MAPPING = re.compile(r"([0-9a-f]+)-([0-9a-f]+) \S+ \S+ \S+ \S+ *(.*)")
WATCH_SECONDS = 0.002
SETTLE_SECONDS = 0.5  # finished requests go with the next turn
FORM = (b'--x\r\nContent-Disposition: form-data; name="deviceid"\r\n\r\nK1-K1-00042\r\n'
        b'--x\r\nContent-Disposition: form-data; name="file"; filename="f"\r\n\r\n%s\r\n--x--\r\n')


class Memory:
    """Resident pages of the program: all of them, and those that are its alone (anonymous), in KiB."""

    def __init__(self, pid, build):
        self._smaps = Path(f"/proc/{pid}/smaps")
        self._program = str(Path(build).resolve() / "bin" / "webservice")
        self.is_emulated = bool(emulator(build))

    def read(self):
        mappings = self._mappings()
        if self.is_emulated:
            mappings = self._of_program(mappings)
        return sum(m["Rss"] for m in mappings), sum(m["Anonymous"] for m in mappings)

    def _mappings(self):
        result = []
        for line in self._smaps.read_text().splitlines():
            if head := MAPPING.match(line):
                result.append({"begin": int(head[1], 16), "end": int(head[2], 16), "file": head[3]})
            elif line.startswith(("Rss:", "Anonymous:")):
                name, size = line.split()[:2]
                result[-1][name[:-1]] = int(size)
        return result

    def _of_program(self, mappings):
        first = last = next(i for i, m in enumerate(mappings) if m["file"] == self._program)
        while mappings[first - 1]["end"] == mappings[first]["begin"]:
            first -= 1
        while last + 1 < len(mappings) and mappings[last + 1]["begin"] == mappings[last]["end"]:
            last += 1
        if mappings[last]["end"] - mappings[first]["begin"] > ADDRESS_SPACE:
            raise RuntimeError("the program's address space cannot be told from the emulator's")
        return mappings[first:last + 1]


class Watch:
    """The peak of the resident pages while it lives."""

    def __init__(self, memory):
        self._memory = memory
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._run)
        self.peak = 0

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        self._thread.join()

    def _run(self):
        while not self._ended.wait(WATCH_SECONDS):
            self.peak = max(self.peak, self._memory.read()[0])


def ask(device, method, path, body=None, headers=None):
    connection = http.client.HTTPConnection("127.0.0.1", device.http_port, timeout=120)
    connection.request(method, path, body, headers or {})
    response = connection.getresponse()
    answer = response.read()
    connection.close()
    if response.status != 200:
        sys.exit(f"{path}: {response.status}")
    return answer


def firmware(device, size):
    ask(device, "POST", "/qorapp/v1/device/update", FORM % bytes(size),
        {"Content-Type": "multipart/form-data; boundary=x"})


def text_value(device, size):
    ask(device, "POST", "/api/v1/set.cgi", b'{"MemPersistent": {"ProductName": "%s"}}' % (b"x" * size))


def upload_row(name, send, device, memory, process, size):
    process.reset_peak()
    with Watch(memory) as watch:
        send(device, size)
    time.sleep(SETTLE_SECONDS)
    peak = watch.peak if memory.is_emulated else process.memory_kib("VmHWM")
    return (f"{name} of {size // 1_000_000} MB", *memory.read(), peak)


def measure(build, size):
    """Rows of a table: after what, pages, own pages, and the peak where it was watched."""
    with VirtualDevice(build, nginx=True) as device:
        pid = device.pids["service"]
        memory, rows = Memory(pid, build), []
        rows.append(("start", *memory.read(), ""))
        ask(device, "GET", "/api/v1/all.cgi")
        rows.append(("all.cgi", *memory.read(), ""))
        ask(device, "GET", "/api/v1/screen.cgi")
        rows.append(("screen.cgi", *memory.read(), ""))
        for name, send in (("firmware upload", firmware), ("text value in set.cgi", text_value)):
            rows.append(upload_row(name, send, device, memory, Process(pid), size))
    return rows


def main():
    arguments = parser("Memory of the service, step by step.")
    arguments.add_argument("--megabytes", type=int, default=20, help="size of a body, in 1,000,000 bytes (%(default)s)")
    options = arguments.parse_args()
    print(f"## Memory, {Path(options.build).name}\n")
    print_conditions()
    progress("measuring")
    print_table(("after", "resident KiB", "of it anonymous KiB", "peak KiB"),
                measure(options.build, options.megabytes * 1_000_000))


main()
