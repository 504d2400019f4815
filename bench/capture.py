#!/usr/bin/python3
"""What a picture of the display costs, and what it costs those who wait for updates.

First table: processor time and peak memory of a capture, beside libpng writing the same pixels from memory to memory on its own.
Both are done in turn by one process. The pixels are the controller's screen and, as the worst that can be on display,
noise. The capture's image leaves piece by piece, so it is not part of its memory.

Second table: a client sets a variable again and again while another one waits for the update, first alone and then while
a third one asks for pictures without a pause. The service looks for changes every 100 ms, so an update alone takes up
to that long. The service's own work for a picture is the time in which it cannot turn to anybody else.
"""

import json
import random
import statistics
import subprocess
import time

from measure import Process, Repeated, begin, connect, exchange, print_table, progress
from framebuffer import BUFFERS  # the launcher's, on the path since measure
from virtualdevice import VirtualDevice

SIZES = ((480, 272), (800, 480), (1920, 1080))


def devices(options):
    """A device of each size, with the size as text."""
    for width, height in SIZES:
        with VirtualDevice(options.build, screen=(width, height), display=(), nginx=True) as device:
            yield device, f"{width}x{height}"


def capture_rows(options):
    for device, size in devices(options):
        for content in ("screen", "noise"):
            progress(f"capturing {size}, {content}")
            pixels = device.path("/dev/fb0")
            if content == "noise":
                bytes_each = pixels.stat().st_size // BUFFERS
                pixels.write_bytes(random.Random(1).randbytes(bytes_each) * BUFFERS)
            costs = subprocess.run([device.build / "bin" / "capturecost"], env=device.environment(), check=True,
                                   text=True, stdout=subprocess.PIPE).stdout
            for name, *values in (line.split() for line in costs.splitlines()):
                yield size, content, "libpng alone" if name == "alone" else name, *values


def update_times(port, count):
    """Milliseconds from a set to the update that tells of it: median and longest."""
    waiting, setting = connect(port), connect(port)
    times = []
    for turn in range(count):
        waiting.request("GET", "/api/v1/update.cgi")
        time.sleep(random.Random(turn).uniform(0.1, 0.2))  # any time within the service's 100 ms
        start = time.monotonic()
        brightness = {"MemPersistent": {"DisplayBrightness": turn % 10 + 1}}
        exchange(setting, "POST", "/api/v1/set.cgi", json.dumps(brightness))
        assert b"DisplayBrightness" in waiting.getresponse().read()
        times.append((time.monotonic() - start) * 1000)
    return f"{statistics.median(times):.0f}", f"{max(times):.0f}"


def held_up_rows(options):
    for device, size in devices(options):
        progress(f"updates beside {size}")
        service = Process(device.pids["service"])
        alone = update_times(device.http_port, options.updates)
        photographer = connect(device.http_port)
        before = service.processor_seconds()
        with Repeated(lambda: exchange(photographer, "GET", "/api/v1/screen.cgi")) as pictures:
            beside = update_times(device.http_port, options.updates)
        count = len(pictures.times)
        work = (service.processor_seconds() - before) * 1000 / count
        yield (size, count, f"{work:.1f}", *alone, *beside)


options = begin("Captures", updates=(60, "updates for each row"))
print_table(("size", "pixels", "by", "median ms", "longest ms", "peak KiB", "image bytes"), capture_rows(options))
print_table(("size", "pictures", "service's ms per picture", "update alone: median ms", "longest", "beside pictures",
             "longest"), held_up_rows(options))
