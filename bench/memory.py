#!/usr/bin/python3
"""Memory of the service: at its start, after the whole tree, after a screen capture, after large bodies. Memory of the
process for version 2 of the API: at its start, after the first load, with streams, after a set of all values.

For an emulated program only the pages of its own address space are counted, not those of the emulator. The emulator
maps the program's four gigabytes as one range without gaps, which contains the program's file. The kernel has no peak
for that range, so this benchmark samples it during the upload.
"""

import re
import time
from pathlib import Path

from measure import (FINISHED_SECONDS, MANY_STREAMS, UNLIMITED, Process, Repeated, ask, begin, connect,  # and the launcher
                     print_table, progress)
from emulation import emulator
from virtualdevice import VirtualDevice

MEGABYTES = 20
ADDRESS_SPACE = 1 << 32
MAPPING = re.compile(r"([0-9a-f]+)-([0-9a-f]+) \S+ \S+ \S+ \S+ *(.*)")
WATCH_SECONDS = 0.002
FORM = (b'--x\r\nContent-Disposition: form-data; name="deviceid"\r\n\r\nK1-K1-00042\r\n'
        b'--x\r\nContent-Disposition: form-data; name="file"; filename="f"\r\n\r\n%s\r\n--x--\r\n')
FORM_TYPE = {"Content-Type": "multipart/form-data; boundary=x"}
SIZE = MEGABYTES * 1_000_000
STREAMS = (30, 1000)
UPLOADS = {
    "firmware upload": ("POST", "/qorapp/v1/device/update", FORM % bytes(SIZE), FORM_TYPE),
    "text value in set.cgi": ("POST", "/api/v1/set.cgi", b'{"MemPersistent": {"ProductName": "%s"}}' % (b"x" * SIZE)),
}


class Memory:
    """Resident pages of the program in KiB: all, and the anonymous ones."""

    def __init__(self, pid, build, program="webservice"):
        self._smaps = Path(f"/proc/{pid}/smaps")
        self._program = str(Path(build).resolve() / "bin" / program)
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
            raise RuntimeError("cannot distinguish the program's address space from the emulator's")
        return mappings[first:last + 1]


def measure(build):
    """Rows of the table: preceding request, resident pages, anonymous pages, and the peak of uploads."""
    with VirtualDevice(build, nginx=True, site=UNLIMITED) as device:
        process = Process(device.pids["service"])
        memory = Memory(device.pids["service"], build)
        yield "start", *memory.read(), ""
        for script in ("all.cgi", "screen.cgi"):
            ask(device.http_port, "GET", f"/api/v1/{script}")
            yield script, *memory.read(), ""
        for name, upload in UPLOADS.items():
            process.reset_peak()
            peaks = [0]
            with Repeated(lambda peaks=peaks: peaks.append(memory.read()[0]), WATCH_SECONDS):
                ask(device.http_port, *upload)
            time.sleep(FINISHED_SECONDS)
            peak = max(peaks) if memory.is_emulated else process.memory_kib("VmHWM")
            yield f"{name} of {MEGABYTES} MB", *memory.read(), peak


def measure_live(build):
    """Rows of the table for version 2: what happened before, resident and anonymous pages."""
    with VirtualDevice(build, nginx=True, live=True, site=MANY_STREAMS) as device:
        memory = Memory(device.pids["live"], build, "webservice-live")
        yield "start", *memory.read()
        values, _ = (ask(device.http_port, "GET", f"/api/v2/{path}") for path in ("values", "catalogue"))
        yield "values and catalogue", *memory.read()
        streams = []
        for count in STREAMS:
            streams += [open_stream(device.http_port) for _ in range(count - len(streams))]
            yield f"{count} streams of all variables", *memory.read()
        ask(device.http_port, "PATCH", "/api/v2/values", values)
        yield "PATCH of all values", *memory.read()
        for stream in streams:
            stream.close()


def open_stream(port):
    """A stream whose first event has arrived."""
    connection = connect(port)
    connection.request("GET", "/api/v2/events")
    next(line for line in connection.getresponse() if line.startswith(b"data: "))
    return connection


options = begin("Memory")
progress("measuring")
print_table(("after", "resident KiB", "anonymous KiB", "peak KiB"), measure(options.build))
print_table(("version 2, after", "resident KiB", "anonymous KiB"), measure_live(options.build))
