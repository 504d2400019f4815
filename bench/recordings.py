#!/usr/bin/python3
"""Recordings: bytes per change, megabytes per hour, and replays that are recorded again on a fresh device.

The usual scene, and the busiest one, in which 50 variables change every 100 ms. Recording and second recording are compared
entry by entry: "same events" are those of the same variables with the same arguments in the same order, "same values" those
with equal bytes, too. A recorder that gets no processor for a while reads the value of a later change.

With --other, for example build/armhf, the recordings of each build play on a device of the other one.
"""

import argparse
import contextlib
import shlex
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from measure import REPOSITORY, print_conditions, print_table, progress  # and the launcher
from virtualdevice import VirtualDevice

sys.path.append(str(REPOSITORY / "docs"))
from recording import entries, frames  # pylint: disable=wrong-import-position

VARIABLES = 816
SCENES = {"usual": (), "busiest": ("--changes", "50", "--interval", "100")}
WAIT_SECONDS = 60


def tool(device, *words):
    return subprocess.Popen(device.command("variables", *words), env=device.environment(), stdout=subprocess.DEVNULL)


def wait_until(is_so):
    end = time.monotonic() + WAIT_SECONDS
    while not is_so() and time.monotonic() < end:
        time.sleep(0.05)


@contextlib.contextmanager
def recorded(device, file):
    """Records from the beginning to the end of the block."""
    file.unlink(missing_ok=True)
    recorder = tool(device, "record", str(file))
    wait_until(lambda: file.exists() and file.stat().st_size > 8 and len(frames(file.read_bytes())) > 1)
    yield
    recorder.terminate()
    assert recorder.wait(WAIT_SECONDS) == 0


def changes(file):
    return [(words[0], arguments, value) for _, words, arguments, value in entries(file.read_bytes())][VARIABLES:]


def record(build, scene, seconds, file):
    with VirtualDevice(build, simulation=SCENES[scene], service=False) as device, recorded(device, file):
        time.sleep(seconds)


def size_row(scene, file):
    data = file.read_bytes()
    # The length of a frame of changes has one or two bytes, its checksum four.
    size = sum(len(content) + (5 if len(content) < 128 else 6) for content in frames(data)[2:])
    seconds = list(entries(data))[-1][0]
    count = len(changes(file))
    hour = len(data) - size + size / seconds * 3600
    return (scene, f"{seconds:.0f}", count, len(data) - size, f"{size / count:.2f}", f"{hour / 1e6:.2f}")


def replay_row(scene, file, speed, builds, folder):
    """Plays a recording of the first build on a device of the second one."""
    first = changes(file)
    with VirtualDevice(builds[1], service=False) as device, recorded(device, folder / "again"):
        begin = time.monotonic()
        assert tool(device, "replay", "--speed", str(speed), str(file)).wait() == 0
        seconds = time.monotonic() - begin
        wait_until(lambda: changes(folder / "again")[-1:] == first[-1:])
    second = changes(folder / "again")[-len(first):]
    pairs = list(zip(first, second))
    return (scene, builds[0].name, builds[1].name, speed, f"{seconds:.1f}", len(first),
            sum(one[:2] == other[:2] for one, other in pairs), sum(one == other for one, other in pairs))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, default=REPOSITORY / "build" / "release", help="build folder (build/release)")
    parser.add_argument("--other", type=Path, help="another build folder to exchange recordings with")
    parser.add_argument("--seconds", type=int, default=60, help="length of a recording (%(default)s)")
    options = parser.parse_args()
    print_conditions("Recordings", shlex.join(["bench/recordings.py", *sys.argv[1:]]))
    directions = [(options.build, options.build)]
    if options.other:
        directions = [(options.build, options.other), (options.other, options.build)]
    sizes, replays = [], []
    with tempfile.TemporaryDirectory() as name:
        for scene in SCENES:
            for builds in directions:
                file = Path(name) / "recording"
                progress(f"{scene}, {builds[0].name}")
                record(builds[0], scene, options.seconds, file)
                sizes.append(size_row(f"{scene}, {builds[0].name}", file))
                replays += [replay_row(scene, file, speed, builds, Path(name)) for speed in (1, 10)]
    print_table(("scene", "seconds", "changes", "bytes at start", "bytes per change", "MB per hour"), sizes)
    print_table(("scene", "recorded on", "played on", "speed", "seconds", "changes", "same events", "same values"), replays)


main()
