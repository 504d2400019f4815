"""Faults that are put in at random, one after the other."""

import os
import signal
import time

from measure import progress
from tally import EVERYTHING

READY_SECONDS = 120
NONE = frozenset()
STORING = frozenset({"files", "firmware"})
HARMLESS = (signal.SIGCHLD, signal.SIGURG, signal.SIGWINCH, signal.SIGCONT)
CLEAN = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)
CRASHES = (signal.SIGKILL, signal.SIGABRT, signal.SIGSEGV, signal.SIGUSR1)
YEAR_S = 365 * 24 * 3600


class Injector:
    """Each fault is a method. A fault that ends the service returns when the next process is ready."""

    def __init__(self, device, unit, switches, busy, tally, rng):
        self._device = device
        self._unit = unit
        self._switches = switches
        self._busy = busy
        self._tally = tally
        self._rng = rng
        # (fault, weight, kinds of requests that may fail meanwhile)
        self._survived = ((self.stop, 3, NONE), (self.signals, 2, NONE), (self.short_reads, 3, NONE),
                          (self.clock_step, 2, NONE), (self.full_disk, 2, STORING),
                          (self.out_of_descriptors, 2, EVERYTHING))
        self._ending = ((self.kill, 3, EVERYTHING), (self.terminate, 2, EVERYTHING), (self.broker, 1, EVERYTHING),
                        (self.hang, 0.3, EVERYTHING))

    def one(self, may_end):
        """Puts in one fault and takes it out again."""
        faults = self._survived + (self._ending if may_end else ())
        act, _, excuses = self._rng.choices(faults, [weight for _, weight, _ in faults])[0]
        progress(f"{time.strftime('%T')} {act.__name__}")
        with self._tally.window(act.__name__.replace("_", " "), excuses):
            act()

    # Faults that the service survives

    def stop(self):
        """The device's clock stops, too: the service would miss ten minutes of it, more events than wait in the broker."""
        self._device.hold_simulation()
        self._unit.signal(signal.SIGSTOP)
        time.sleep(self._rng.uniform(0.2, 6))
        self._unit.signal(signal.SIGCONT)
        self._device.continue_simulation()

    def signals(self):
        for _ in range(self._rng.randint(1, 200)):
            self._unit.signal(self._rng.choice(HARMLESS))
            time.sleep(0.005)

    def short_reads(self):
        self._switch("read_bytes", self._rng.choice((1, 2, 7, 64, 1000)))

    def clock_step(self):
        self._switch("clock_step_s", self._rng.randint(-YEAR_S, YEAR_S))

    def full_disk(self):
        self._switch("full_disk", 1)

    def out_of_descriptors(self):
        used = len(os.listdir(f"/proc/{self._unit.life.pid}/fd"))
        self._switch("descriptors", max(used + self._rng.randint(-5, 3), 1))

    def _switch(self, name, value):
        self._switches.set(name, value)
        time.sleep(self._rng.uniform(0.5, 4))
        self._switches.set(name, 0)

    # Faults that end it

    def kill(self):
        self._restart(lambda: self._unit.signal(self._rng.choice(CRASHES)))

    def terminate(self):
        self._restart(lambda: self._unit.signal(self._rng.choice(CLEAN)))

    def hang(self):
        """Until the watchdog ends the process."""
        self._restart(lambda: self._unit.signal(signal.SIGSTOP))

    def broker(self):
        """The device's processes restart with the broker; the service ends later. Until then each set writes a line into
        the log, so only few are sent."""
        self._busy.allowed.clear()
        self._restart(self._restart_broker)
        self._busy.allowed.set()

    def _restart_broker(self):
        self._device.end("simulation", signal.SIGKILL)  # otherwise it removes the memories
        self._device.end("broker")
        self._device.start_broker()
        self._device.restart_simulation()

    def _restart(self, act):
        lives = len(self._unit.lives)
        act()
        wait_until(lambda: len(self._unit.lives) > lives and self._unit.is_ready(), READY_SECONDS, "the next process")


def wait_until(is_so, seconds, what):
    """Raises TimeoutError with `what` if the condition does not come true."""
    end = time.monotonic() + seconds
    while not is_so():
        if time.monotonic() > end:
            raise TimeoutError(f"no {what} within {seconds} s")
        time.sleep(0.02)
