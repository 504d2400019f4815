"""A virtual device for programs that are not written in Python. Takes a command a line and answers each with a line.

    {"do": "store", "variable": "MemPersistent.DisplayBrightness", "value": 7}
    {"result": 1763736000.25}

The first line tells the device's address and folder. An "error" instead of a result has the text. At the end of the
input the device ends; status 0 says that all of its processes ended well and no sanitizer complained.
"""

import json
import os
import signal
import struct
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))

from brokerclient import BrokerClient
from catalogue import Catalogue
from systemdevice import SystemDevice

CATALOGUE = Catalogue()


class Commands:
    """What can be asked for; each public function is a command."""

    def __init__(self, device):
        self._device = device

    def store(self, variable, value):
        """Stores as another process of the device does, tells the broker, and returns when that was (seconds).

        Null stores bytes that are no text: the service cannot print them.
        """
        memory, name = variable.split(".")
        row = CATALOGUE.variable(memory, name)
        with BrokerClient(self._device) as broker:
            now = time.time()
            self._device.write(memory, row.at, b"\xff\0" if value is None else encode(row, value))
            broker.post(row.event)
            broker.posted()
        return now

    def load(self, variable):
        """What a variable holds, as the tree would tell it; of a variable that is not a structure only the value."""
        memory, name = variable.split(".")
        data = self._device.read(memory, 0, CATALOGUE.memories[memory].size)
        value = CATALOGUE.decode(memory, data)[name]
        return value["value"] if isinstance(value, dict) and "type" in value else value

    def end_service(self):
        self._device.end("service")

    def start_service(self):
        self._device.start_service()

    def service(self):
        """The service's process id."""
        return self._device.pids["service"]


def encode(row, value):
    if entries := CATALOGUE.entries(row):
        return struct.pack("<I", entries.index(value))
    if row.type == "string":
        return value.encode().ljust(row.length, b"\0")
    return struct.pack({"int": "<i", "float": "<f"}[row.type], value)


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
        print(json.dumps({"url": device.url, "root": str(device.root)}), flush=True)
        commands = Commands(device)
        for line in sys.stdin:
            print(json.dumps(answer(commands, line)), flush=True)
        assert device.ended() == [], device.ended()


main()
