#!/usr/bin/python3
"""Large bodies in a row, as set requests through nginx: each gets the answer that its content deserves, and afterwards
the service holds the memory and the descriptors that it held before.

The bodies take turns: a text value far beyond its variable, a structure member the same way, a text for a memory that
does not exist, and bytes that are no JSON at all.
"""

import random
import sys

from measure import UNLIMITED, Process, ask, begin, in_a_row, print_table
from virtualdevice import VirtualDevice

MEGABYTES = 20
SET = b'{"result": 1 }'


def bodies(size):
    """Pairs of a body and the answer that it gets."""
    noise = random.Random(20).randbytes(size).lstrip(b" \t\r\n{[")
    return [
        (fill(b'{"MemPersistent": {"ProductName": "%s"}}', size), SET),
        (fill(b'{"MemPersistent": {"MruLensFileList": {"Index": 1, "LensFileName": "%s"}}}', size), SET),
        (fill(b'{"MemNone": {"ProductName": "%s"}}', size), b'{"result": 0, "error": "" }'),
        (noise, b'{"result": 0, "error": "JSON parse error at 0.\\u000d\\u000a" }'),
    ]


def fill(frame, size):
    return frame % (b"x" * (size - len(frame) + len(b"%s")))


def upload(device, kinds, number):
    body, answer = kinds[number % len(kinds)]
    return ask(device.http_port, "POST", "/api/v1/set.cgi", body, {"Content-Type": "application/json"}) == answer


options = begin("Uploads", count=(100, "number of uploads"))
with VirtualDevice(options.build, nginx=True, site=UNLIMITED) as device:
    service = Process(device.pids["service"])
    small, large = bodies(1000), bodies(MEGABYTES * 1_000_000)
    # What is allocated once is allocated now.
    in_a_row(service, len(small), lambda number: upload(device, small, number))
    service.reset_peak()
    found = in_a_row(service, options.count, lambda number: upload(device, large, number))
    peak = service.memory_kib("VmHWM")
print_table(("uploads", "MB each", "lost", "seconds", "service's processor s", "VmRSS before KiB", "after KiB",
             "peak KiB", "descriptors more"),
            [(options.count, MEGABYTES, found.lost, f"{found.seconds:.1f}", f"{found.processor:.1f}", found.before_kib,
              found.after_kib, peak, found.leaked)])
sys.exit(not found.is_good)
