#!/usr/bin/python3
"""Large bodies in a row, as set requests through nginx: each gets the answer that its content deserves, and afterwards
the service holds the memory and the descriptors that it held before.

The bodies take turns: a text value far beyond its variable, a structure member the same way, a text for a memory that
does not exist, and bytes that are no JSON at all.
"""

import http.client
import random
import sys
import time

from measure import Process, parser, print_conditions, print_table, progress
from virtualdevice import VirtualDevice

KEPT_KIB = 2 * 1024  # the heap keeps what is below its trim threshold, however many bodies there were
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


def post(port, body):
    """The answer to a set request on a connection of its own; None when there is none."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    try:
        connection.request("POST", "/api/v1/set.cgi", body, {"Content-Type": "application/json"})
        response = connection.getresponse()
        return response.read() if response.status == 200 else None
    except (OSError, http.client.HTTPException) as error:
        progress(f"lost: {error!r}")
        return None
    finally:
        connection.close()


def upload(device, count, size):
    """Sends `count` bodies and returns how many got no answer or another one than theirs."""
    kinds = bodies(size)
    lost = 0
    for i in range(count):
        body, answer = kinds[i % len(kinds)]
        lost += post(device.http_port, body) != answer
        if (i + 1) % 10 == 0:
            progress(f"{i + 1} of {count} uploads")
    return lost


def main():
    arguments = parser("Uploads of large bodies in a row through nginx.")
    arguments.add_argument("--count", type=int, default=100, help="number of uploads (%(default)s)")
    arguments.add_argument("--megabytes", type=int, default=20, help="size of each, in 1,000,000 bytes (%(default)s)")
    options = arguments.parse_args()
    print("## Uploads\n")
    print_conditions()
    with VirtualDevice(options.build, nginx=True) as device:
        service = Process(device.pids["service"])
        upload(device, 4, 1000)  # small ones: what is allocated once is allocated now
        service.reset_peak()
        before, descriptors = service.memory_kib("VmRSS"), service.descriptors()
        processor, begin = service.processor_seconds(), time.monotonic()
        lost = upload(device, options.count, options.megabytes * 1_000_000)
        seconds = time.monotonic() - begin
        processor = service.processor_seconds() - processor
        time.sleep(0.5)  # finished requests go with the next turn
        after, peak = service.memory_kib("VmRSS"), service.memory_kib("VmHWM")
        leaked = service.descriptors() - descriptors
    print_table(("uploads", "MB each", "lost", "seconds", "service's processor s", "VmRSS before KiB", "after KiB",
                 "peak KiB", "descriptors more"),
                [(options.count, options.megabytes, lost, f"{seconds:.1f}", f"{processor:.1f}", before, after, peak,
                  leaked)])
    sys.exit(lost > 0 or leaked > 0 or after > before + KEPT_KIB)


main()
