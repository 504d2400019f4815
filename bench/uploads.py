#!/usr/bin/python3
"""Large bodies in a row, as set requests through nginx: each gets the answer that its content deserves, and afterwards
the service holds the memory and the descriptors that it held before.

The bodies take turns: a text value far beyond its variable, a structure member the same way, a text for a memory that
does not exist, and bytes that are no JSON at all.

Second table: parallel firmware uploads from as many addresses as the web server's packaged limits need, while another client
sends small requests.
"""

import contextlib
import http.client
import random
import sys
import threading
import time

from measure import UNLIMITED, Process, Repeated, ask, begin, in_a_row, print_table
from virtualdevice import VirtualDevice

MEGABYTES = 20
LARGE_MEGABYTES = 64
UPLOADS_OF_ADDRESS = 4
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


def firmware(size):
    """A form with a file of this size."""
    head = b'--b\r\nContent-Disposition: form-data; name=%s\r\n\r\n'
    return head % b"deviceid" + b"X-1\r\n" + head % b"file" + bytes(size) + b"\r\n--b--\r\n"


def upload_from(device, number, body, answers):
    """The uploads of an address are as many as the web server takes from one address at a time."""
    address = f"127.0.1.{1 + number // UPLOADS_OF_ADDRESS}"
    with contextlib.closing(http.client.HTTPConnection("127.0.0.1", device.http_port, 600, (address, 0))) as connection:
        connection.request("POST", "/qorapp/v1/device/update", body, {"Content-Type": "multipart/form-data; boundary=b"})
        answers.append(connection.getresponse().read())


def in_parallel(device, count, megabytes):
    """A row: uploads, size, how many failed, seconds, longest answer to the other client, peak memory of the service."""
    service, answers, body = Process(device.pids["service"]), [], firmware(megabytes * 1_000_000)
    threads = [threading.Thread(target=upload_from, args=(device, number, body, answers)) for number in range(count)]
    service.reset_peak()
    start = time.monotonic()
    with Repeated(lambda: ask(device.http_port, "POST", "/api/v1/set.cgi", b""), 0.02) as other:
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    failed = count - answers.count(b'{"taskid": "X-1" }')
    return (count, megabytes, failed, f"{time.monotonic() - start:.1f}", f"{max(other.times) * 1000:.0f}",
            service.memory_kib("VmHWM"))


options = begin("Uploads", count=(100, "number of uploads"), parallel=(16, "uploads at the same time"))
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
print()
with VirtualDevice(options.build, nginx=True) as device:
    row = in_parallel(device, options.parallel, LARGE_MEGABYTES)
print_table(("parallel uploads", "MB each", "failed", "seconds", "other client's longest ms", "peak KiB"), [row])
sys.exit(not found.is_good or row[2] > 0)
