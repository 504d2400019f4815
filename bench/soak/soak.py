#!/usr/bin/python3
"""Hours of load with faults: does anything grow, is anything lost?

The service runs behind nginx on a virtual device as systemd runs it, while 20 clients follow the updates, 5 the log and a
browser shows the console; others set, upload, capture, vanish, and keep it busy (wrk). Faults are put in at random: stops,
signals, short reads, clock steps, a full disk, no descriptors; in the first third of each hour, or of a shorter run, also
faults that end the service: kill, clean signals, a hang that the watchdog ends, a broker that restarts. Then a process lives
long enough to show growth. Now and then everything rests, and is compared and measured.
"""

import argparse
import os
import random
import shlex
import signal
import sys
import threading
import time
from contextlib import ExitStack, contextmanager
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from measure import REPOSITORY, UNLIMITED, ask, print_conditions, progress  # and the launcher
from faultswitches import FaultSwitches
from virtualdevice import VirtualDevice

from browser import Browser
from counter import Counter, Observer
from faults import Injector, wait_until
from followers import Follower
from load import Busy, Load
from pollers import Documents, Poller
from rest import Resting
from tally import Tally
from unit import Unit
from verdict import LIMITS, judge, print_report
from watch import Watch

POLLERS, FOLLOWERS = 20, 5
HOUR = 3600
ENDING_SHARE = 1 / 3
RESTS = 10  # of an hour or a shorter run
CALM_SECONDS = (0.5, 4)  # between two faults
WARM_SECONDS = 60
READY_SECONDS = 120
MOST_COMPLAINTS = 40
QUIET_LEVEL = b'{"MemApp": {"AppServiceLogLevel": "Warn"}}'


class SoakDevice(VirtualDevice):
    """A virtual device with a fast clock, whose service a Unit runs."""

    def __init__(self, build, speed):
        self._arguments = ("--speed", str(speed))
        super().__init__(build, simulation=self._arguments, display=(), service=False, nginx=True, site=UNLIMITED)

    def restart_simulation(self):
        self.start_simulation(*self._arguments)

    def hold_simulation(self):
        """Stops the process while it waits, not in the middle of a step."""
        process = Path(f"/proc/{self.pids['simulation']}")

        def waits():
            """Whether it sleeps in its loop; a kernel without names of places says 0."""
            state = (process / "stat").read_text().rpartition(")")[2].split()[0]
            place = (process / "wchan").read_text()
            return state == "S" and ("ep" in place or place == "0")
        wait_until(waits, READY_SECONDS, "pause of the simulation")
        os.kill(self.pids["simulation"], signal.SIGSTOP)

    def continue_simulation(self):
        os.kill(self.pids["simulation"], signal.SIGCONT)


class Soak:
    """Everything that runs, and how it goes on."""

    def __init__(self, device, options):
        self.device = device
        self.begin = self._warm = time.time()
        self.device_seconds = 0
        self._speed = options.speed
        self._random = random.Random(options.seed)
        self._end = threading.Event()
        self.tally = Tally()
        switches = FaultSwitches(device.path("/tmp/faults"))
        self.unit = Unit(device, switches.environment)
        self.unit.start()
        wait_until(self.unit.is_ready, READY_SECONDS, "service")
        ask(device.http_port, "POST", "/api/v1/set.cgi", QUIET_LEVEL)
        self.counter, self.observer = Counter(device, self._end), Observer(device)
        documents = Documents()
        self.pollers = [Poller(f"poller {n}", device.http_port, self.counter, documents, self.tally, self._end)
                        for n in range(POLLERS)]
        self.followers = [Follower(f"follower {n}", device.http_port, self.unit, self.tally, self._end)
                          for n in range(FOLLOWERS)]
        self._busy = Busy(device, self.tally)
        self._injector = Injector(device, self.unit, switches, self._busy, self.tally, self._random)
        self._clients = Load(device, self.tally, options.seed).clients(self._end)
        self.watch = Watch(self.unit, self.log_size, self.tally, self.observer, self._end)
        self.browser = Browser(options.build, device.url, self.tally)
        self.resting = Resting(self)

    def log_size(self):
        return max(follower.size for follower in self.followers)

    def run(self, seconds, prove):
        for thread in (self.counter, self.observer, *self.pollers, *self.followers, *self._clients, self.watch):
            thread.start()
        self._busy.start(self._end)
        self._allow(True)
        time.sleep(min(WARM_SECONDS, seconds / 10))
        wait_until(lambda: all(self.tally.counts[c.name] > 1 for c in self._clients), READY_SECONDS, "warm clients")
        self.resting.rest()
        self._warm = time.time()
        end, period = self._warm + seconds, min(HOUR, seconds)
        is_over = False
        while not is_over:
            self._disturb(min(time.time() + period / RESTS, end), period)
            is_over = time.time() >= end
            self.resting.rest(prove if is_over else ())

    def stop(self):
        """Ends everything. Returns the seconds that it ran."""
        seconds = time.time() - self.begin
        with self.tally.window("end"):
            self._end.set()
            self._allow(True)
            self.browser.close()
            if self.unit.stop() != 0:
                self.tally.complain(f"the service ends with {self.unit.life.code}")
        return seconds

    def _disturb(self, until, period):
        while time.time() < until:
            begin = time.time()
            time.sleep(self._random.uniform(*CALM_SECONDS))
            self._injector.one((time.time() - self._warm) % HOUR < period * ENDING_SHARE)
            self.device_seconds += (time.time() - begin) * self._speed
            if self.device.ended():
                raise RuntimeError(f"{self.device.ended()} ended: {self.device.output(self.device.ended()[0])}")

    @contextmanager
    def without_load(self):
        """Until the block's end, no client but pollers and followers sends requests, and the simulation is held."""
        self._allow(False)
        clients = (*self._clients, self._busy)
        wait_until(lambda: not any(client.is_busy for client in clients), READY_SECONDS, "end of the load")
        self.device.hold_simulation()
        yield
        self.device.continue_simulation()
        self._allow(True)

    def _allow(self, is_allowed):
        for client in (*self._clients, self._busy):
            (client.allowed.set if is_allowed else client.allowed.clear)()


def parse():
    parser = argparse.ArgumentParser(prog="script/soak", description=__doc__, epilog=LIMITS,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--hours", type=float, default=1, help="duration (%(default)s)")
    parser.add_argument("--minutes", type=float, help="duration instead of --hours")
    parser.add_argument("--seed", type=int, default=random.randrange(1_000_000), help="of the faults (a random one)")
    parser.add_argument("--speed", type=float, default=100, help="of the virtual device's clock (%(default)s)")
    parser.add_argument("--build", default=REPOSITORY / "build/release", help="build folder (build/release)")
    parser.add_argument("--picture", type=Path, default=REPOSITORY / "build/soak.png", help="file (build/soak.png)")
    parser.add_argument("--prove", nargs="*", choices=("loss", "leak"), default=(),
                        help="put in defects that have to be found")
    return parser.parse_args()


def main():
    options = parse()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    arguments = [*sys.argv[1:], *(() if "--seed" in sys.argv else ("--seed", str(options.seed)))]
    print_conditions("Soak", shlex.join(["script/soak", *arguments]))
    seconds = options.minutes * 60 if options.minutes else options.hours * HOUR
    with SoakDevice(options.build, options.speed) as device, ExitStack() as stack:
        soak = Soak(device, options)
        stack.callback(soak.stop)
        soak.run(seconds, options.prove)
        stack.pop_all()
        took = soak.stop()
    print_report(soak, took)
    complaints = judge(soak)
    for complaint in complaints[:MOST_COMPLAINTS]:
        print(f"- {complaint}")
    try:
        from picture import draw  # pylint: disable=import-outside-toplevel  # only here: tests run without matplotlib
        draw(soak, options.picture)
    except ImportError as error:
        progress(f"NO PICTURE: {error}")
    sys.exit(bool(complaints))


main()
