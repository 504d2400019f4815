#!/usr/bin/python3
"""Firmware uploads as the companion app sends them, through nginx.

First one large file: it has to be equal in the device's update folder. How long it takes stands beside `cp` of the same
file to the same folder; the service's peak memory as a multiple of the file. While it goes on another client asks for a
small answer without a pause: the longest answer is how long a client is held up, which is while the form is read and the
file stored.

Then many uploads in a row: none may be lost, and the memory has to be back where it was.
"""

import filecmp
import http.client
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from measure import Process, parser, print_conditions, print_table, progress
from virtualdevice import VirtualDevice

KEPT_KIB = 2 * 1024  # the heap keeps what is below its trim threshold, however many uploads there were
BOUNDARY = "----------------------------appupload"
MEGABYTE = 1_000_000


class Witness(threading.Thread):
    """A client that asks for the update's status again and again, and notes how long each answer takes."""

    def __init__(self, port):
        super().__init__(daemon=True)
        self.times = []
        self._port = port
        self._end = threading.Event()

    def run(self):
        while not self._end.is_set():
            begin = time.monotonic()
            connection = http.client.HTTPConnection("127.0.0.1", self._port, timeout=60)
            connection.request("GET", "/qorapp/v1/device/status")
            connection.getresponse().read()
            connection.close()
            self.times.append(time.monotonic() - begin)

    def stop(self):
        self._end.set()
        self.join()
        return self.times


def form(file, device_id, folder):
    """A file with the form that holds `file`; so the client streams it and takes no time to build it."""
    path = Path(folder) / "form"
    head = "Content-Disposition: form-data; name="
    with open(path, "wb") as out, open(file, "rb") as content:
        out.write(f'--{BOUNDARY}\r\n{head}"deviceid"\r\n\r\n{device_id}\r\n'
                  f'--{BOUNDARY}\r\n{head}"file"; filename="host.swu"\r\n\r\n'.encode())
        shutil.copyfileobj(content, out)
        out.write(f"\r\n--{BOUNDARY}--\r\n".encode())
    return path


def upload(device, path, device_id):
    """Returns whether the upload got its answer."""
    connection = http.client.HTTPConnection("127.0.0.1", device.http_port, timeout=120)
    try:
        with open(path, "rb") as body:
            connection.request("POST", "/qorapp/v1/device/update", body,
                               {"Content-Type": f"multipart/form-data; boundary={BOUNDARY}",
                                "Content-Length": str(path.stat().st_size)})
        return connection.getresponse().read() == f'{{"taskid": "{device_id}" }}'.encode()
    except (OSError, http.client.HTTPException) as error:
        progress(f"lost: {error!r}")
        return False
    finally:
        connection.close()


def timed(act):
    begin = time.monotonic()
    result = act()
    return time.monotonic() - begin, result


def make_file(folder, megabytes):
    path = Path(folder) / f"{megabytes}.swu"
    path.write_bytes(os.urandom(megabytes * MEGABYTE))
    return path


def measure_large(device, service, folder, options):
    file = make_file(folder, options.large)
    body = form(file, options.device_id, folder)
    target = device.path("/update/host.swu")
    rows = []
    for _ in range(options.repeat):
        service.reset_peak()
        before = service.memory_kib("VmRSS")
        witness = Witness(device.http_port)
        witness.start()
        seconds, answered = timed(lambda: upload(device, body, options.device_id))
        times = witness.stop()
        peak = service.memory_kib("VmHWM") - before
        equal = answered and filecmp.cmp(file, target, shallow=False)
        copy, _ = timed(lambda: subprocess.run(["cp", file, target.with_name("copy")], check=True))
        target.with_name("copy").unlink()
        rows.append((options.large, "yes" if equal else "NO", f"{seconds * 1000:.0f}", f"{copy * 1000:.0f}",
                     f"{peak * 1024 / (options.large * MEGABYTE):.2f}", f"{statistics.median(times) * 1000:.1f}",
                     f"{max(times) * 1000:.0f}"))
    print_table(("MB", "equal bytes", "upload ms", "cp ms", "peak memory / file", "other client's median ms",
                 "its longest ms"), rows)
    return all(row[1] == "yes" for row in rows)


def measure_many(device, service, folder, options):
    body = form(make_file(folder, options.small), options.device_id, folder)
    before, descriptors = service.memory_kib("VmRSS"), service.descriptors()
    lost = 0
    begin = time.monotonic()
    for i in range(options.count):
        lost += not upload(device, body, options.device_id)
        if (i + 1) % 10 == 0:
            progress(f"{i + 1} of {options.count} uploads")
    seconds = time.monotonic() - begin
    time.sleep(0.5)  # finished requests go with the next turn
    after, leaked = service.memory_kib("VmRSS"), service.descriptors() - descriptors
    print_table(("uploads", "MB each", "lost", "seconds", "VmRSS before KiB", "after KiB", "descriptors more"),
                [(options.count, options.small, lost, f"{seconds:.1f}", before, after, leaked)])
    return lost == 0 and leaked <= 0 and after <= before + KEPT_KIB


def main():
    arguments = parser("Firmware uploads through nginx.")
    arguments.add_argument("--large", type=int, default=64, help="size of the large file in MB (%(default)s)")
    arguments.add_argument("--repeat", type=int, default=3, help="times that it is sent (%(default)s)")
    arguments.add_argument("--count", type=int, default=50, help="uploads in a row (%(default)s)")
    arguments.add_argument("--small", type=int, default=20, help="size of each in MB (%(default)s)")
    arguments.add_argument("--device-id", default="K1-K1-00042", help="the device's own (%(default)s)")
    options = arguments.parse_args()
    print("## Firmware uploads\n")
    print_conditions()
    with VirtualDevice(options.build, nginx=True) as device, tempfile.TemporaryDirectory() as folder:
        service = Process(device.pids["service"])
        upload(device, form(make_file(folder, 1), options.device_id, folder), options.device_id)
        good = measure_large(device, service, folder, options)
        good = measure_many(device, service, folder, options) and good
    sys.exit(not good)


main()
