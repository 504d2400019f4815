"""Shared by the benchmarks: path of the launcher, command line, conditions, process figures, requests, tables."""

import argparse
import datetime
import http.client
import os
import platform
import re
import shlex
import sys
import threading
import time
from collections import namedtuple
from contextlib import closing
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPOSITORY / "device" / "launcher"))

FINISHED_SECONDS = 0.5  # by then the service has deleted finished requests
KEPT_KIB = 2 * 1024  # the heap keeps memory below its trim threshold


def lift(limits):
    """limits.conf of nginx for a program that sends more and larger requests than any client."""
    limits = re.sub(r"rate=\d+r/[sm]", "rate=1000000r/s", limits)
    limits = re.sub(r"(limit_conn \w+_of_address) +\d+", r"\1 1000", limits)
    return limits.replace("client_max_body_size 1m", "client_max_body_size 64m")


def lift_numbers(limits):
    """A limits.conf for as many connections of one address as the process for version 2 of the API serves."""
    return re.sub(r"(limit_conn \w+ +)\d+", r"\1 4000", lift(limits))


# For the argument "site" of VirtualDevice.
UNLIMITED = {"limits.conf": lift}
MANY_STREAMS = {"limits.conf": lift_numbers, "live/http.conf": lift, "live/limits.conf": lift_numbers}


def begin(title, **numbers):
    """Parses the command line: the build folder, and numeric options given as name=(default, help). Prints title,
    date, machine and command, without which figures cannot be compared."""
    parser = argparse.ArgumentParser(description=sys.modules["__main__"].__doc__.splitlines()[0])
    parser.add_argument("--build", default=REPOSITORY / "build" / "release", help="build folder (build/release)")
    for name, (default, about) in numbers.items():
        parser.add_argument(f"--{name}", type=int, default=default, help=f"{about} (%(default)s)")
    options = parser.parse_args()
    print_conditions(title, shlex.join(["bench/" + Path(sys.argv[0]).name, *sys.argv[1:]]))
    return options


def print_conditions(title, command):
    cpu = next((line.split(":")[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                if line.startswith("model name")), platform.machine())
    load = os.getloadavg()[0]
    print(f"## {title}\n")
    print(f"{datetime.date.today()}, {os.cpu_count()} x {cpu}, Linux {platform.release()}, load at start {load:.1f}, "
          f"`{command}`\n", flush=True)


def print_table(header, rows):
    for cells in (header, ["---"] * len(header), *rows):
        print("| " + " | ".join(str(cell) for cell in cells) + " |")
    print(flush=True)


def progress(text):
    """Prints to standard error; standard output holds only the tables."""
    print(text, file=sys.stderr, flush=True)


class Process:
    """Figures of a running process from /proc."""

    def __init__(self, pid):
        self._folder = Path("/proc") / str(pid)

    def memory_kib(self, field):
        """A memory field of the status file, for example "VmRSS"."""
        lines = (self._folder / "status").read_text().splitlines()
        return int(next(line for line in lines if line.startswith(field + ":")).split()[1])

    def reset_peak(self):
        """Resets VmHWM, the peak of VmRSS."""
        (self._folder / "clear_refs").write_text("5")

    def processor_seconds(self):
        """CPU time of the main thread so far. The stat file would count in ticks and miss short runs."""
        return int((self._folder / "schedstat").read_text().split()[0]) / 1e9

    def processor_share(self, seconds):
        """Percent of one CPU over the next `seconds`."""
        before, start = self.processor_seconds(), time.monotonic()
        time.sleep(seconds)
        return (self.processor_seconds() - before) / (time.monotonic() - start) * 100

    def descriptors(self):
        return len(os.listdir(self._folder / "fd"))


def connect(port):
    return http.client.HTTPConnection("127.0.0.1", port, timeout=120)


def exchange(connection, method, path, body=None, headers=None):
    """Returns the response body; raises unless the status is 200."""
    connection.request(method, path, body, headers or {})
    response = connection.getresponse()
    content = response.read()
    if response.status != 200:
        raise http.client.HTTPException(f"{path}: status {response.status}")
    return content


def ask(port, *request):
    """An exchange on a new connection."""
    with closing(connect(port)) as connection:
        return exchange(connection, *request)


class Repeated(threading.Thread):
    """Repeats an action while its block runs and records the seconds that each run took."""

    def __init__(self, act, pause=0):
        super().__init__(daemon=True)
        self.times = []
        self._act = act
        self._pause = pause
        self._end = threading.Event()

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self._end.set()
        self.join()

    def run(self):
        while not self._end.wait(self._pause):
            start = time.monotonic()
            self._act()
            self.times.append(time.monotonic() - start)


class InARow(namedtuple("InARow", "lost seconds processor before_kib after_kib leaked")):
    """The cost of many uploads in a row for the service."""

    @property
    def is_good(self):
        return self.lost == 0 and self.leaked <= 0 and self.after_kib <= self.before_kib + KEPT_KIB


def in_a_row(service, count, upload):
    """Calls upload(number), which returns whether the upload succeeded, `count` times."""
    before, descriptors = service.memory_kib("VmRSS"), service.descriptors()
    processor, start = service.processor_seconds(), time.monotonic()
    lost = 0
    for number in range(count):
        try:
            lost += not upload(number)
        except (OSError, http.client.HTTPException) as error:
            progress(f"lost: {error!r}")
            lost += 1
        if (number + 1) % 10 == 0:
            progress(f"{number + 1} of {count} uploads")
    seconds, processor = time.monotonic() - start, service.processor_seconds() - processor
    time.sleep(FINISHED_SECONDS)
    return InARow(lost, seconds, processor, before, service.memory_kib("VmRSS"), service.descriptors() - descriptors)
