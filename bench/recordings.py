#!/usr/bin/python3
"""Recordings: bytes per change, megabytes per hour, and replays that are recorded again on a fresh device.

The usual scene, and the busiest one, in which 50 variables change every 100 ms. Recording and second recording are compared
entry by entry: "same events" are those of the same variables with the same arguments in the same order, "same values" those
with equal bytes, too. A recorder that gets no processor for a while reads the value of a later change.

With --other, for example build/armhf, the recordings of each build play on a device of the other one.
"""

import argparse
import contextlib
import os
import shlex
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from itertools import cycle, islice
from pathlib import Path

from measure import REPOSITORY, print_conditions, print_table, progress  # and the launcher
from virtualdevice import VirtualDevice

sys.path.append(str(REPOSITORY / "docs"))
from recording import entries, frames  # pylint: disable=wrong-import-position

VARIABLES = 816
SCENES = {"usual": (), "busiest": ("--changes", "50", "--interval", "100")}
SPEEDS = (1, 10)
WAIT_SECONDS = 60
PRIORITIES = {"replay": 10, "broker": 11, "record": 12}  # and the simulation as the broker


class Bench:
    """Records and plays. With is_real_time, the programs of a device are in the real-time class on one processor, and the
    recorder and the broker go before the replay: it stores nothing while an event is on its way to the recorder."""

    def __init__(self, is_real_time):
        self._is_real_time = is_real_time
        self._processors = cycle(os.sched_getaffinity(0))
        self._processor_of = {}

    @contextlib.contextmanager
    def device(self, build, scene=("--still",)):
        with VirtualDevice(build, simulation=scene, service=False) as device:
            if self._is_real_time:
                self._pin(device, next(self._processors))
            yield device

    def _pin(self, device, processor):
        for pid in device.pids.values():
            os.sched_setaffinity(pid, {processor})
            os.sched_setscheduler(pid, os.SCHED_FIFO, os.sched_param(PRIORITIES["broker"]))
        self._processor_of[device.name] = processor

    def tool(self, device, command, *words):
        program = device.command("variables", command, *words)
        if device.name in self._processor_of:
            processor, priority = str(self._processor_of[device.name]), str(PRIORITIES[command])
            program = ["taskset", "-c", processor, "chrt", "-f", priority, *program]
        return subprocess.Popen(program, env=device.environment(), stdout=subprocess.DEVNULL)

    @contextlib.contextmanager
    def recorded(self, device, file):
        """Records from the beginning to the end of the block."""
        file.unlink(missing_ok=True)
        recorder = self.tool(device, "record", str(file))
        wait_until(lambda: file.exists() and file.stat().st_size > 8 and count(frames(file.read_bytes())) > 1)
        yield
        recorder.terminate()
        assert recorder.wait(WAIT_SECONDS) == 0

    def record(self, build, scene, seconds, file):
        with self.device(build, SCENES[scene]) as device, self.recorded(device, file):
            time.sleep(seconds)

    def replay(self, build, file, speed, again):
        """Plays a recording on a fresh device and records that; returns the seconds that the replay took."""
        with self.device(build) as device, self.recorded(device, again):
            begin = time.monotonic()
            assert self.tool(device, "replay", "--speed", str(speed), str(file)).wait() == 0
            seconds = time.monotonic() - begin
            wait_until(lambda: last(changes(again)) == last(changes(file)))
        return seconds


def wait_until(is_so):
    end = time.monotonic() + WAIT_SECONDS
    while not is_so() and time.monotonic() < end:
        time.sleep(0.1)


def changes(file):
    """(variable, arguments, value) of each entry after the start values."""
    return ((words[0], arguments, value)
            for _, words, arguments, value in islice(entries(file.read_bytes()), VARIABLES, None))


def count(items):
    return sum(1 for _ in items)


def last(items):
    found = None
    for found in items:
        pass
    return found


def size_row(file):
    data = file.read_bytes()
    # The length of a frame of changes has one or two bytes, its checksum four.
    size = sum(len(content) + (5 if len(content) < 128 else 6) for content in islice(frames(data), 2, None))
    seconds, found = last(entries(data))[0], count(changes(file))
    hour = len(data) - size + size / seconds * 3600
    return (f"{seconds:.0f}", found, len(data) - size, f"{size / found:.2f}", f"{hour / 1e6:.2f}")


def compared(file, again):
    """Counts of the changes, of the same events and of the same values. The second recording begins with the start values
    that differ from those of a fresh device."""
    found = count(changes(file))
    events = values = 0
    for one, other in zip(changes(file), islice(changes(again), max(0, count(changes(again)) - found), None)):
        events += one[:2] == other[:2]
        values += one == other
    return found, events, values


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, default=REPOSITORY / "build" / "release", help="build folder (build/release)")
    parser.add_argument("--other", type=Path, help="another build folder to exchange recordings with")
    parser.add_argument("--seconds", type=int, default=60, help="length of a recording (%(default)s)")
    parser.add_argument("--scene", choices=SCENES, action="append", help="one scene instead of all")
    parser.add_argument("--real-time", action="store_true",
                        help="the programs of a device are in the real-time class on one processor")
    parser.add_argument("--side-by-side", action="store_true", help="the replays of a recording run at the same time")
    parser.add_argument("--folder", type=Path, help="an existing folder, in which the recordings are kept")
    options = parser.parse_args()
    print_conditions("Recordings", shlex.join(["bench/recordings.py", *sys.argv[1:]]))
    directions = [(options.build, options.build)]
    if options.other:
        directions = [(options.build, options.other), (options.other, options.build)]
    bench = Bench(options.real_time)
    sizes, replays = [], []
    with tempfile.TemporaryDirectory() as name, ThreadPoolExecutor(2 if options.side_by_side else 1) as pool:
        for scene in options.scene or SCENES:
            for one, other in directions:
                file = (options.folder or Path(name)) / f"{scene}-{one.name}.rec"
                progress(f"{scene}, {one.name}")
                bench.record(one, scene, options.seconds, file)
                sizes.append((scene, one.name, *size_row(file)))
                progress(" ".join(map(str, sizes[-1])))

                def play(speed, other=other, file=file):
                    again = file.with_suffix(f".x{speed}")
                    seconds = bench.replay(other, file, speed, again)
                    return f"{seconds:.1f}", *compared(file, again)

                for speed, row in zip(SPEEDS, pool.map(play, SPEEDS)):
                    replays.append((scene, one.name, other.name, speed, *row))
    print_table(("scene", "recorded on", "seconds", "changes", "bytes at start", "bytes per change", "MB per hour"), sizes)
    print_table(("scene", "recorded on", "played on", "speed", "seconds", "changes", "same events", "same values"), replays)


main()
