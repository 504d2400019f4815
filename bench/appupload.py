#!/usr/bin/python3
"""Firmware uploads as the companion app sends them, through nginx.

First table: one large file. The stored file has to equal the sent one. The table compares the upload time with that
of `cp` to the same folder and gives the service's peak memory as a multiple of the file size. During the upload another
client requests a small document without pause: its longest response time shows how long the service blocks other
clients while it parses the form and stores the file.

Second table: many uploads in a row. None may be lost, and the memory has to return to its earlier size.
"""

import filecmp
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from measure import UNLIMITED, Process, Repeated, ask, begin, in_a_row, print_table
from virtualdevice import VirtualDevice

DEVICE_ID = "K1-K1-00042"
BOUNDARY = "----------------------------appupload"
MEGABYTE = 1_000_000
LARGE, TIMES, SMALL = 64, 3, 20


def make_form(folder, megabytes):
    """Writes a file, and a second file with the form that contains it, which the client can stream."""
    file, form = Path(folder) / f"{megabytes}.swu", Path(folder) / "form"
    file.write_bytes(os.urandom(megabytes * MEGABYTE))
    head = "Content-Disposition: form-data; name="
    with open(form, "wb") as out, open(file, "rb") as content:
        out.write(f'--{BOUNDARY}\r\n{head}"deviceid"\r\n\r\n{DEVICE_ID}\r\n'
                  f'--{BOUNDARY}\r\n{head}"file"; filename="host.swu"\r\n\r\n'.encode())
        shutil.copyfileobj(content, out)
        out.write(f"\r\n--{BOUNDARY}--\r\n".encode())
    return file, form


def upload(device, form):
    """Returns whether the upload succeeded."""
    headers = {"Content-Type": f"multipart/form-data; boundary={BOUNDARY}", "Content-Length": str(form.stat().st_size)}
    with open(form, "rb") as body:
        answer = ask(device.http_port, "POST", "/qorapp/v1/device/update", body, headers)
    return answer == f'{{"taskid": "{DEVICE_ID}" }}'.encode()


def timed(act):
    """Returns the milliseconds and the result of a call."""
    start = time.monotonic()
    result = act()
    return (time.monotonic() - start) * 1000, result


def large_rows(device, service, folder):
    file, form = make_form(folder, LARGE)
    target = device.path("/update/host.swu")
    for _ in range(TIMES):
        service.reset_peak()
        before = service.memory_kib("VmRSS")
        with Repeated(lambda: ask(device.http_port, "GET", "/qorapp/v1/device/status")) as others:
            took, answered = timed(lambda: upload(device, form))
        peak = service.memory_kib("VmHWM") - before
        equal = answered and filecmp.cmp(file, target, shallow=False)
        copy, _ = timed(lambda: subprocess.run(["cp", file, target.with_name("copy")], check=True))
        target.with_name("copy").unlink()
        yield (LARGE, "yes" if equal else "NO", f"{took:.0f}", f"{copy:.0f}", f"{peak * 1024 / (LARGE * MEGABYTE):.2f}",
               f"{statistics.median(others.times) * 1000:.1f}", f"{max(others.times) * 1000:.0f}")


options = begin("Firmware uploads", count=(50, "uploads in a row"))
with VirtualDevice(options.build, nginx=True, site=UNLIMITED) as device, tempfile.TemporaryDirectory() as folder:
    service = Process(device.pids["service"])
    upload(device, make_form(folder, 1)[1])
    large = list(large_rows(device, service, folder))
    print_table(("MB", "equal bytes", "upload ms", "cp ms", "peak memory / file", "other client's median ms",
                 "longest ms"), large)
    form = make_form(folder, SMALL)[1]
    found = in_a_row(service, options.count, lambda _: upload(device, form))
print_table(("uploads", "MB each", "lost", "seconds", "VmRSS before KiB", "after KiB", "leaked descriptors"),
            [(options.count, SMALL, found.lost, f"{found.seconds:.1f}", found.before_kib, found.after_kib,
              found.leaked)])
sys.exit(not found.is_good or any(row[1] == "NO" for row in large))
