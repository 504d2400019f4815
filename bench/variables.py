#!/usr/bin/python3
"""The tool variables: from a store to the line of "watch", beside update.cgi, and from its start to the first output.

A process stores 50 variables every 100 ms and posts their events, as the device's processes do. The tool prints a line
for each change; a client waits for updates through nginx at the same time. Each store has its own value, so lines and
documents name the store that they show. Updates come at ticks of 100 ms, and values that are overwritten before a tick
are not in them.

The emulator counts the instructions of the ARM build, if it is there, with those of the loader and the libraries and without
those of the kernel.
"""

import contextlib
import json
import mmap
import multiprocessing
import os
import statistics
import subprocess
import sys
import time

from measure import REPOSITORY, UNLIMITED, Process, begin, connect, exchange, print_table
from virtualdevice import VirtualDevice

sys.path.insert(0, str(REPOSITORY / "tests" / "system"))

from brokerclient import BrokerClient

VARIABLES, INTERVAL_SECONDS, SIZE_WORD = 50, 0.1, 4
STARTS = 100
COMMANDS = (("get", "FocusTorque"), ("list",), ("get", "--json", "*"))
ARM_BUILD = REPOSITORY / "build" / "armhf"
FIRST_VALUE = 1000
MEMORIES = ("MemGuiLocal", "MemCamera", "MemDistanceMeasure")
PATTERNS = [f"{memory}.*" for memory in MEMORIES]


def store(device, rows, rounds, times):
    """Stores and posts all variables in each round; sends {(name, value): time}."""
    stored = {}
    with BrokerClient(device) as broker, contextlib.ExitStack() as stack:
        files = {name: stack.enter_context(open(device.segment(name), "r+b")) for name in MEMORIES}
        memories = {name: stack.enter_context(mmap.mmap(file.fileno(), 0)) for name, file in files.items()}
        for number in range(rounds):
            start = time.monotonic()
            for row in rows:
                value, at = FIRST_VALUE + number, SIZE_WORD + row["location"]
                memory = memories[row["variable"].split(".")[0]]
                stored[row["variable"], value] = time.monotonic()
                memory[at:at + row["size"]] = value.to_bytes(row["size"], "little")
                broker.post(row["event"])
            broker.posted()  # what the broker returns does not pile up
            time.sleep(max(0.0, start + INTERVAL_SECONDS - time.monotonic()))
    times.send(stored)


def poll(port, last, times):
    """Waits for updates until one has the value `last`; sends {(name, value): time}."""
    seen = {}
    with contextlib.closing(connect(port)) as connection:
        while last not in seen:
            variables = json.loads(exchange(connection, "GET", "/api/v1/update.cgi"))["variables"]
            arrived = time.monotonic()
            for memory, values in variables.items():
                for name, value in values.items():
                    seen.setdefault((f"{memory}.{name}", int(value["value"])), arrived)
    times.send(seen)


def lines_until(watch, last):
    """{(name, value): time of the line}"""
    seen, rest = {}, b""
    while last not in seen:
        rest += os.read(watch.stdout.fileno(), 65536)
        arrived = time.monotonic()
        *lines, rest = rest.split(b"\n")
        for change in map(json.loads, lines):
            seen[change["variable"], change["value"]] = arrived
    return seen


def in_background(act, *arguments):
    """A pipe that delivers what act(..., pipe) sends from a process of its own."""
    receiver, sender = multiprocessing.Pipe(False)
    multiprocessing.Process(target=act, args=(*arguments, sender), daemon=True).start()
    return receiver


def measure_changes(device, rows, rounds):
    """Times of stores, of lines and of updates."""
    last = rows[-1]["variable"], FIRST_VALUE + rounds - 1
    with subprocess.Popen(device.command("variables", "watch", "--json", *PATTERNS), env=device.environment(),
                          stdout=subprocess.PIPE) as watch:
        time.sleep(1)  # it has subscribed
        updates, stores = in_background(poll, device.http_port, last), in_background(store, device, rows, rounds)
        lines = lines_until(watch, last)
        print(f"CPU time of watch: {1e6 * Process(watch.pid).processor_seconds() / len(lines):.1f} µs for each line.\n")
        watch.terminate()
    return stores.recv(), lines, updates.recv()


def figures(name, delays):
    ordered = sorted(1000 * delay for delay in delays)
    return [name, len(ordered), f"{statistics.median(ordered):.2f}", f"{ordered[len(ordered) * 99 // 100]:.2f}",
            f"{ordered[-1]:.2f}"]


def first_output(device, *words):
    start = time.monotonic()
    with subprocess.Popen(device.command("variables", *words), stdout=subprocess.PIPE,
                          env=device.environment()) as tool:
        tool.stdout.read(1)
        delay = time.monotonic() - start
        tool.stdout.read()
    return delay


def instructions(device, *words):
    emulator, *rest = device.command("variables", *words)
    with subprocess.Popen([emulator, "-singlestep", "-d", "exec,nochain", *rest], env=device.environment(),
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as tool:
        return sum(line.startswith(b"Trace") for line in tool.stderr)


def count_instructions():
    with VirtualDevice(ARM_BUILD, service=False) as device:
        rows = [(" ".join(words), f"{instructions(device, *words) / 1e6:.2f}") for words in (("--version",), *COMMANDS)]
    print_table(["run on ARM", "million instructions"], rows)


def main():
    options = begin("The tool variables", seconds=(30, "time of the changes"))
    with VirtualDevice(options.build, nginx=True, site=UNLIMITED) as device:
        listing = subprocess.run(device.command("variables", "list", "--json", "--long", *PATTERNS), check=True,
                                 env=device.environment(), capture_output=True).stdout
        rows = [row for row in json.loads(listing) if row["type"] == "int"][:VARIABLES]
        assert len(rows) == VARIABLES
        stored, lines, updates = measure_changes(device, rows, int(options.seconds / INTERVAL_SECONDS))
        assert lines.keys() == stored.keys(), f"{len(stored.keys() - lines.keys())} changes have no line"
        print(f"{VARIABLES} changes every {1000 * INTERVAL_SECONDS:.0f} ms for {options.seconds} s.\n")
        print_table(["from a store to", "changes", "median ms", "99 % ms", "largest ms"],
                    [figures("the line of watch", (lines[key] - stored[key] for key in stored)),
                     figures("the update", (updates[key] - stored[key] for key in updates))])
        print_table(["from the start to the first output of", "runs", "median ms", "99 % ms", "largest ms"],
                    [figures(" ".join(words), (first_output(device, *words) for _ in range(STARTS)))
                     for words in COMMANDS])
    if (ARM_BUILD / "bin" / "variables").exists():
        count_instructions()


main()
