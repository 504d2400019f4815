#!/usr/bin/python3
"""What a picture of the display costs, and what it costs those who wait for updates.

First table: processor time and peak memory of a capture, beside libpng writing the same pixels from memory to memory on its own.
Both are done in turn by one process. The pixels are the controller's screen and, as the worst that can be on display,
noise. The capture's image leaves piece by piece, so it is not part of its memory.

Second table: a client sets a variable again and again while another one waits for the update, first alone and then while
a third one asks for pictures without a pause. The service looks for changes every 100 ms, so an update alone takes up
to that long. The service's own work for a picture is the time in which it cannot turn to anybody else.
"""

import http.client
import json
import random
import statistics
import subprocess
import threading
import time

from measure import Process, parser, print_conditions, print_table, progress
from framebuffer import BUFFERS, BYTES_PER_PIXEL  # the launcher's, on the path since measure
from virtualdevice import VirtualDevice

SIZES = ((480, 272), (800, 480), (1920, 1080))
SCREEN, UPDATE, SET = "/api/v1/screen.cgi", "/api/v1/update.cgi", "/api/v1/set.cgi"


def device(options, size):
    return VirtualDevice(options.build, screen=size, display=(), nginx=True)


def show_noise(running, size):
    pixels = random.Random(1).randbytes(size[0] * size[1] * BYTES_PER_PIXEL)
    running.path("/dev/fb0").write_bytes(pixels * BUFFERS)


def costs(running):
    """Time, longest time, memory and image size by name."""
    result = subprocess.run([running.build / "bin" / "capturecost"], env=running.environment(), check=True, text=True,
                            stdout=subprocess.PIPE)
    return {name: values for name, *values in (line.split() for line in result.stdout.splitlines())}


def capture_rows(options):
    for size in SIZES:
        with device(options, size) as running:
            for content in ("screen", "noise"):
                progress(f"capturing {size[0]}x{size[1]}, {content}")
                if content == "noise":
                    show_noise(running, size)
                for name, values in costs(running).items():
                    yield f"{size[0]}x{size[1]}", content, "libpng alone" if name == "alone" else name, *values


class Photographer(threading.Thread):
    """Asks for pictures without a pause until told to end."""

    def __init__(self, port):
        super().__init__(daemon=True)
        self.pictures = 0
        self.is_over = False
        self._connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)

    def run(self):
        while not self.is_over:
            self._connection.request("GET", SCREEN)
            self._connection.getresponse().read()
            self.pictures += 1


def update_times(port, count):
    """Milliseconds from a set to the update that tells of it."""
    waiting = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    setting = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    times = []
    for turn in range(count):
        waiting.request("GET", UPDATE)
        time.sleep(random.Random(turn).uniform(0.1, 0.2))  # any time within the service's 100 ms
        begin = time.monotonic()
        setting.request("POST", SET, json.dumps({"MemPersistent": {"DisplayBrightness": turn % 10 + 1}}))
        setting.getresponse().read()
        assert b"DisplayBrightness" in waiting.getresponse().read()
        times.append((time.monotonic() - begin) * 1000)
    return times


def held_up_rows(options):
    for size in SIZES:
        with device(options, size) as running:
            progress(f"updates beside {size[0]}x{size[1]}")
            service = Process(running.pids["service"])
            alone = update_times(running.http_port, options.updates)
            photographer = Photographer(running.http_port)
            before = service.processor_seconds()
            photographer.start()
            beside = update_times(running.http_port, options.updates)
            photographer.is_over = True
            photographer.join()
            work = (service.processor_seconds() - before) * 1000 / photographer.pictures
            yield (f"{size[0]}x{size[1]}", photographer.pictures, f"{work:.1f}", *summary(alone), *summary(beside))


def summary(times):
    return f"{statistics.median(times):.0f}", f"{max(times):.0f}"


def main():
    arguments = parser(__doc__.splitlines()[0])
    arguments.add_argument("--updates", type=int, default=60, help="updates for each row (%(default)s)")
    options = arguments.parse_args()
    print("## Captures\n")
    print_conditions()
    print_table(("size", "pixels", "by", "median ms", "longest ms", "peak KiB", "image bytes"), capture_rows(options))
    print_table(("size", "pictures", "service's ms per picture", "update alone: median ms", "longest", "beside pictures",
                 "longest"), held_up_rows(options))


main()
