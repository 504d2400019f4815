#!/usr/bin/python3
"""The cost of a screen capture, and the delay that captures cause for clients that wait for updates.

First table: CPU time and peak memory of a capture, compared with libpng alone, which encodes the same pixels from
memory to memory. One process runs both in turn. The pixels are the controller's screen and, as the worst case, noise.
The capture sends its image in pieces, so its memory does not include the image.

Second table: one client sets a variable repeatedly while another waits for the update, first without and then with a
third client that requests pictures without pause. The service looks for changes every 100 ms, so an update takes up to
that long even without pictures. While the service encodes a picture it serves no other client.
"""

import json
import random
import statistics
import subprocess
import time
from functools import partial

from measure import UNLIMITED, Process, Repeated, begin, connect, exchange, print_table, progress
from framebuffer import BUFFERS  # module of the launcher; importing measure makes it available
from virtualdevice import VirtualDevice

SIZES = ((480, 272), (800, 480), (1920, 1080))


def devices(options):
    """Yields a device of each size, with the size as text."""
    for width, height in SIZES:
        with VirtualDevice(options.build, screen=(width, height), display=(), nginx=True, site=UNLIMITED) as device:
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
    """Milliseconds from a set request to the update with its value: median and longest."""
    waiting, setting = connect(port), connect(port)
    times = []
    for turn in range(count):
        waiting.request("GET", "/api/v1/update.cgi")
        time.sleep(random.Random(turn).uniform(0.1, 0.2))  # at any point of the service's 100 ms interval
        start = time.monotonic()
        brightness = {"MemPersistent": {"DisplayBrightness": turn % 10 + 1}}
        exchange(setting, "POST", "/api/v1/set.cgi", json.dumps(brightness))
        assert b"DisplayBrightness" in waiting.getresponse().read()
        times.append((time.monotonic() - start) * 1000)
    return f"{statistics.median(times):.0f}", f"{max(times):.0f}"


def delay_rows(options):
    for device, size in devices(options):
        progress(f"updates with pictures of {size}")
        service = Process(device.pids["service"])
        alone = update_times(device.http_port, options.updates)
        capturing = connect(device.http_port)
        before = service.processor_seconds()
        with Repeated(partial(exchange, capturing, "GET", "/api/v1/screen.cgi")) as pictures:
            with_pictures = update_times(device.http_port, options.updates)
        count = len(pictures.times)
        work = (service.processor_seconds() - before) * 1000 / count
        yield (size, count, f"{work:.1f}", *alone, *with_pictures)


options = begin("Captures", updates=(60, "updates for each row"))
print_table(("size", "pixels", "by", "median ms", "longest ms", "peak KiB", "image bytes"), capture_rows(options))
print_table(("size", "pictures", "service's ms per picture", "update without pictures: median ms", "longest",
             "with pictures: median ms", "longest"), delay_rows(options))
