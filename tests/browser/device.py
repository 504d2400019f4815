"""A virtual device for programs that are not written in Python. Takes a command a line and answers each with a line.

    {"do": "store", "variable": "MemPersistent.DisplayBrightness", "value": 7}
    {"result": 1763736000.25}

The first line tells where the device is. An "error" instead of a result has the text. At the end of the input the device
ends; status 0 says that all of its processes ended well and no sanitizer complained.
"""

import base64
import csv
import json
import os
import random
import signal
import struct
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))

from brokerclient import BrokerClient
from catalogue import MODEL, Catalogue
from systemdevice import SystemDevice

BYTES_PER_PIXEL = 4
CATALOGUE = Catalogue()
with open(MODEL / "ledger.csv", newline="") as ledger:
    EVENTS = {f'{line["memory"]}.{line["name"]}': int(line["event"]) for line in csv.DictReader(ledger)}


class Commands:
    """What can be asked for; each public function is a command."""

    def __init__(self, device):
        self._device = device

    def store(self, variable, value):
        """Stores as another process of the device does, tells the broker, and returns when that was (seconds)."""
        return self._put(variable, encode(CATALOGUE.variable(*variable.split(".")), value))

    def spoil(self, variable):
        """Stores bytes that are no text: the service cannot print them."""
        return self._put(variable, b"\xff\0")

    def load(self, variable):
        """What a variable holds, as the tree would tell it; of a variable that is not a structure only the value."""
        memory, name = variable.split(".")
        data = self._device.read(memory, 0, CATALOGUE.memories[memory]["size"])
        value = CATALOGUE.decode(memory, data)[name]
        return value["value"] if isinstance(value, dict) and "type" in value else value

    def log(self, line):
        """Writes a line into the kernel log."""
        with open(self._device.path("/dev/kmsg"), "a") as file:
            file.write(line + "\n")

    def paint(self, seed):
        """Fills the display with noise and returns its pixels: red, green, blue, alpha."""
        file = self._device.path("/dev/fb0")
        pixels = bytearray(random.Random(seed).randbytes(file.stat().st_size))
        pixels[3::BYTES_PER_PIXEL] = bytes([255]) * (len(pixels) // BYTES_PER_PIXEL)
        with open(file, "r+b") as display:  # it never gets shorter: a picture of it may be on its way
            display.write(pixels)
        pixels[0::4], pixels[2::4] = pixels[2::4], pixels[0::4]
        return base64.b64encode(pixels).decode()

    def file(self, path):
        """A file of the device; null where there is none."""
        file = self._device.path(path)
        return base64.b64encode(file.read_bytes()).decode() if file.exists() else None

    def end_service(self):
        self._device.end("service")

    def start_service(self):
        self._device.start_service()

    def service(self):
        """The service's process id."""
        return self._device.pids["service"]

    def _put(self, variable, data):
        memory, name = variable.split(".")
        with BrokerClient(self._device) as broker:
            now = time.time()
            self._device.write(memory, CATALOGUE.variable(memory, name)["at"], data)
            broker.post(EVENTS[variable])
            broker.posted()
        return now


def encode(row, value):
    if row["type"] in CATALOGUE.enumerations:
        return struct.pack("<I", CATALOGUE.enumerations[row["type"]].index(value))
    width = CATALOGUE.width(row)
    return {
        "int": lambda: struct.pack("<i", value),
        "float": lambda: struct.pack("<f", value),
        "bool": lambda: bytes([value]),
        "string": lambda: value.encode().ljust(width, b"\0"),
    }[row["type"]]()


def answer(commands, line):
    arguments = json.loads(line)
    try:
        return {"result": getattr(commands, arguments.pop("do"))(**arguments)}
    except (AssertionError, LookupError, OSError, RuntimeError, StopIteration) as error:
        return {"error": repr(error)}


def main():
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))
    with SystemDevice(nginx=True, **json.loads(sys.argv[1])) as device:
        print(json.dumps({"url": device.url}), flush=True)
        commands = Commands(device)
        for line in sys.stdin:
            print(json.dumps(answer(commands, line)), flush=True)
        assert device.ended() == [], device.ended()


main()
