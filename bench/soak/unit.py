"""Runs the service as systemd does with the packaged units: socket, readiness, watchdog, restarts."""

import os
import re
import select
import signal
import socket
import subprocess
import threading
import time
from dataclasses import dataclass

from desk import dies_with_launcher
from virtualdevice import PACKAGING

# systemd does not take an end by these signals for a failure.
CLEAN = {0, -signal.SIGHUP, -signal.SIGINT, -signal.SIGTERM, -signal.SIGPIPE}
UNITS = PACKAGING / "systemd"
START_SECONDS = 90  # systemd's default
LOOK_SECONDS = 0.05


def setting(name, unit="webservice.service"):
    """A setting of a unit: text, a whole number, or seconds."""
    value = re.search(rf"^{name}=(.*)$", (UNITS / unit).read_text(), re.MULTILINE)[1]
    for suffix, factor in (("ms", 0.001), ("s", 1), ("", 1)):
        if number := re.fullmatch(rf"(\d+){suffix}", value):
            return int(number[1]) * factor
    return value


@dataclass
class Life:
    """One process of the service. Times are those of time.time(); `end` is 0 while it runs."""
    pid: int
    begin: float
    end: float = 0
    code: int = 0
    is_ready: bool = False


class Unit(threading.Thread):
    """Starts the service in a thread, again and again until stop().

    lives     all processes so far
    """

    def __init__(self, device, environment):
        super().__init__(daemon=True)
        assert setting("Restart") == "on-failure" and setting("StandardInput") == "socket"
        self.lives = []
        self._device = device
        self._notifications = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._notifications.bind(f"\0{device.name}notify")
        self._watchdog = setting("WatchdogSec")
        self._environment = {**environment, "NOTIFY_SOCKET": f"@{device.name}notify",
                             "WATCHDOG_USEC": str(int(self._watchdog * 1_000_000))}
        self._listener = socket.socket()
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._listener.bind(("127.0.0.1", device.fcgi_port))
        self._listener.listen(int(setting("Backlog", "webservice.socket")))
        self._end = threading.Event()

    @property
    def life(self):
        return self.lives[-1]

    def is_ready(self):
        return bool(self.lives) and self.life.is_ready and not self.life.end

    def signal(self, number):
        """Sends a signal to the present process, if there is one."""
        if self.lives and not self.life.end:
            os.kill(self.life.pid, number)

    def stop(self):
        """Ends the service. Returns its exit code."""
        self._end.set()
        self.signal(signal.SIGTERM)
        self.join()
        self._listener.close()
        return self.life.code

    def run(self):
        while not self._end.is_set():
            self._live()
            if self.life.code in CLEAN:
                self._wait_for_connection()
            else:
                self._end.wait(setting("RestartSec"))

    def _wait_for_connection(self):
        while not self._end.is_set() and not select.select([self._listener], [], [], LOOK_SECONDS)[0]:
            pass

    def _live(self):
        with open(self._device.root / "log" / "service.txt", "ab") as output:
            process = subprocess.Popen(  # pylint: disable=subprocess-popen-preexec-fn
                self._device.command("webservice"), env={**self._device.environment(), **self._environment},
                stdin=self._listener, stdout=output, stderr=subprocess.STDOUT, preexec_fn=dies_with_launcher,
                start_new_session=True)
        self.lives.append(Life(process.pid, time.time()))
        self._watch(process, self.life)
        self.life.code = process.wait()
        self.life.end = time.time()

    def _watch(self, process, life):
        """Returns when the process has ended, which it has to if its signs of life fail to appear."""
        limit = time.monotonic() + START_SECONDS
        while process.poll() is None:
            if not select.select([self._notifications], [], [], LOOK_SECONDS)[0]:
                if time.monotonic() > limit:
                    self._abort(process)
                continue
            message = self._notifications.recv(4096)
            life.is_ready |= message == b"READY=1"
            limit = time.monotonic() + (0 if message == b"WATCHDOG=trigger" else self._watchdog)

    def _abort(self, process):
        process.send_signal(signal.SIGABRT)
        try:
            process.wait(setting("TimeoutStopSec"))
        except subprocess.TimeoutExpired:
            process.kill()
