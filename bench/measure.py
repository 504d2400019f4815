"""What the benchmarks share: the launcher on the path, a look at a process, the conditions, tables."""

import argparse
import datetime
import os
import platform
import shlex
import sys
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPOSITORY / "device" / "launcher"))


class Process:
    """A running process as /proc shows it."""

    def __init__(self, pid):
        self._folder = Path("/proc") / str(pid)

    def memory_kib(self, field):
        """A memory field of the status file, for example "VmRSS"."""
        lines = (self._folder / "status").read_text().splitlines()
        return int(next(line for line in lines if line.startswith(field + ":")).split()[1])

    def reset_peak(self):
        """Lets VmHWM, the peak of VmRSS, begin anew."""
        (self._folder / "clear_refs").write_text("5")

    def processor_seconds(self):
        """Time on a processor so far, of the main thread. Exact: the stat file counts in ticks and misses short turns."""
        return int((self._folder / "schedstat").read_text().split()[0]) / 1e9

    def descriptors(self):
        return len(os.listdir(self._folder / "fd"))


def parser(about):
    """An argument parser with what all benchmarks take."""
    result = argparse.ArgumentParser(description=about)
    result.add_argument("--build", default=REPOSITORY / "build" / "release", help="build folder (build/release)")
    return result


def print_conditions():
    """Machine, date and command: a figure without them says nothing."""
    cpu = next((line.split(":")[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                if line.startswith("model name")), platform.machine())
    load = os.getloadavg()[0]
    print(f"{datetime.date.today()}, {os.cpu_count()} x {cpu}, Linux {platform.release()}, load at start {load:.1f}, "
          f"`{shlex.join(['bench/' + Path(sys.argv[0]).name, *sys.argv[1:]])}`\n", flush=True)


def print_table(header, rows):
    for cells in (header, ["---"] * len(header), *rows):
        print("| " + " | ".join(str(cell) for cell in cells) + " |")
    print(flush=True)


def progress(text):
    """On standard error, so that standard output holds the tables and nothing else."""
    print(text, file=sys.stderr, flush=True)
