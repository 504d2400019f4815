#!/usr/bin/python3
"""Memory of the service: at its start, after the whole tree, after a screen capture, after large bodies.

For an emulated program only the pages of its own address space are counted, not those of the emulator. The emulator
maps the program's four gigabytes as one range without gaps, which contains the program's file. The kernel has no peak
for that range, so this benchmark samples it during the upload.
"""

import re
import time
from pathlib import Path

from measure import FINISHED_SECONDS, UNLIMITED, Process, Repeated, ask, begin, print_table, progress  # and the launcher
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
UPLOADS = {
    "firmware upload": ("POST", "/qorapp/v1/device/update", FORM % bytes(SIZE), FORM_TYPE),
    "text value in set.cgi": ("POST", "/api/v1/set.cgi", b'{"MemPersistent": {"ProductName": "%s"}}' % (b"x" * SIZE)),
}


class Memory:
    """Resident pages of the program in KiB: all, and the anonymous ones."""

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


options = begin("Memory")
progress("measuring")
print_table(("after", "resident KiB", "anonymous KiB", "peak KiB"), measure(options.build))
