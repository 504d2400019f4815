"""The virtual device as the system tests use it: what they look at from outside, and what has to hold at its end."""

import contextlib
import http.client
import os
import struct
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "device" / "launcher"))

from brokerclient import BrokerClient
from fastcgi import Connection
from virtualdevice import VirtualDevice

BUILD = os.environ.get("SYSTEM_TEST_BUILD", "build/release")
IS_SANITIZED = "SANITIZE:BOOL=ON" in Path(BUILD, "CMakeCache.txt").read_text()
WAIT_SECONDS = 60
SIZE_WORD = 4
LEVEL_ALL, LEVEL_NORMAL, LEVEL_ERROR = (bytes([level, 0, 0, 0]) for level in (0, 5, 7))
LOG_REQUESTS = b"\1\0\0\0"
# Events of variables that no test and no simulation changes.
FORGOTTEN = {741: b'"EditIntegerMaxValue_Local"', 742: b'"EditIntegerMinValue_Local"',
             743: b'"EditValueInteger_Local"', 744: b'"EditValueIntegerBackup_Local"'}
SANITIZER_SIGNS = ("Sanitizer", "runtime error:")


def wait_until(is_so, what):
    """Waits for something that the service does on its own account; fails with `what` when it does not come."""
    end = time.monotonic() + WAIT_SECONDS
    while not is_so():
        assert time.monotonic() < end, f"still waiting for: {what}"
        time.sleep(0.002)


class SystemDevice(VirtualDevice):
    """A virtual device with a simulation that keeps still.

    may_fail   names of processes that the test makes fail; all others have to end with status 0. No process may end
               with words of a sanitizer.
    """

    def __init__(self, *, build=BUILD, may_fail=(), **options):
        super().__init__(build, **options)
        # lighttpd counts it as a failure that clients were there when it was told to end.
        self._may_fail = {"lighttpd", *may_fail}
        self._outputs = {}

    def end(self, name, *signals):
        code = super().end(name, *signals)
        self._outputs[name] = self.output(name)
        return code

    def __exit__(self, kind, *_):
        codes = self.stop()
        if kind is not None:
            return
        for name, words in self._outputs.items():
            assert not any(sign in words for sign in SANITIZER_SIGNS), words
        assert {name: code for name, code in codes.items() if code != 0 and name not in self._may_fail} == {}, \
            self._outputs

    # The memories

    def read(self, memory, at, size):
        with open(self.segment(memory), "rb") as file:
            return os.pread(file.fileno(), size, SIZE_WORD + at)

    def write(self, memory, at, data):
        with open(self.segment(memory), "r+b") as file:
            os.pwrite(file.fileno(), data, SIZE_WORD + at)

    def make_segments(self, sizes):
        """The segments as the simulation leaves them, but empty; sizes are those of the size words."""
        for memory, size in sizes.items():
            self.segment(memory).write_bytes(struct.pack("<I", size) + bytes(size))

    # The service

    def connect(self):
        return Connection(self.fcgi_port)

    def ask(self, script, body=b""):
        """The body of the answer to a request on a connection of its own."""
        with self.connect() as connection:
            return connection.ask(script, body).body

    def ping(self):
        """Returns when the service has taken all that was sent to it before. Nothing changes and nothing is logged."""
        assert self.ask("/api/v1/set.cgi") == b'{"result": 0, "error": "" }'

    def wait_for_update(self, request_id=1, keep=False):
        """A connection whose request waits for an update."""
        connection = self.connect()
        connection.send_request("/api/v1/update.cgi", request_id=request_id, keep=keep)
        self.ping()
        return connection

    def forget_changes(self):
        """Returns when no change from before can reach a request that begins to wait now."""
        with BrokerClient(self) as events:
            self.ping()
            # An answer may still come for changes from before, and then the one that is posted here is on its way. So
            # that it is known by its name, each is another one.
            for event, name in FORGOTTEN.items():
                with self.wait_for_update() as waiting:
                    events.post(event)
                    if name in waiting.answer().body:
                        return
        raise AssertionError("changes go on")

    # The web server

    def send(self, path, body=None, method=None, **headers):
        """A connection with a request on its way. The path goes out as it is."""
        connection = http.client.HTTPConnection("127.0.0.1", self.http_port, timeout=WAIT_SECONDS)
        connection.request(method or ("GET" if body is None else "POST"), path, body, headers)
        return connection

    def http(self, path, body=None, method=None, **headers):
        """Status, headers and body of the answer."""
        with contextlib.closing(self.send(path, body, method, **headers)) as connection:
            response = connection.getresponse()
            return response.status, response.headers, response.read()

    # What can be seen from outside

    def descriptors(self):
        """How many the service has open when it has taken all that was sent to it before."""
        with self.connect() as connection:
            connection.ask("ping", keep=True)
            return len(os.listdir(f"/proc/{self.pids['service']}/fd")) - 1

    def handled(self, script):
        """How many requests for the script have reached the service. Its log level has to be LOG_REQUESTS."""
        return len(self.log_lines(f", {script})"))

    def comes_to_rest(self):
        """Whether the service soon uses next to no processor time; a loop that spins takes fifty times of it."""
        def is_at_rest():
            before = self._processor_ticks()
            time.sleep(0.5)
            return self._processor_ticks() - before <= 0.05 * os.sysconf("SC_CLK_TCK")

        wait_until(is_at_rest, "an idle service")
        return True

    def _processor_ticks(self):
        fields = Path(f"/proc/{self.pids['service']}/stat").read_text().rpartition(")")[2].split()
        return int(fields[11]) + int(fields[12])

    def log_lines(self, text):
        return [line for line in self.log().splitlines() if text in line]
