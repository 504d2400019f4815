"""The virtual device of the system tests, and what they observe of it from outside."""

import contextlib
import http.client
import os
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "device" / "launcher"))

from brokerclient import BrokerClient
from fastcgi import Connection
from virtualdevice import VirtualDevice

BUILD = os.environ.get("SYSTEM_TEST_BUILD", "build/release")
WAIT_SECONDS = 60
TREE, SET, UPDATE, LOG, SCREEN = (f"/api/v1/{name}.cgi" for name in ("all", "set", "update", "log", "screen"))
DONE = b'{"result": 1 }'
SIZE_WORD = 4
LEVEL_ALL, LOG_REQUESTS, LEVEL_NORMAL = (bytes([level, 0, 0, 0]) for level in (0, 1, 5))
# Events of variables that no test and no simulation changes.
UNUSED = {741: b'"EditIntegerMaxValue_Local"', 742: b'"EditIntegerMinValue_Local"',
          743: b'"EditValueInteger_Local"', 744: b'"EditValueIntegerBackup_Local"'}


def wait_until(is_so, what):
    """Waits for a condition and fails with `what` if it does not come true."""
    end = time.monotonic() + WAIT_SECONDS
    while not is_so():
        assert time.monotonic() < end, f"still waiting for: {what}"
        time.sleep(0.002)


@contextlib.contextmanager
def ending(process):
    """Kills the process if the block fails, instead of waiting for an end that does not come."""
    with process:
        try:
            yield process
        except BaseException:
            process.kill()
            raise


class SystemDevice(VirtualDevice):
    """A virtual device whose processes have to end with status 0 and without a sanitizer's report.

    may_fail   names of processes that may end with another status
    """

    def __init__(self, *, build=BUILD, may_fail=(), **options):
        super().__init__(build, **options)
        self._may_fail = {"lighttpd", *may_fail}  # lighttpd ends with a failure when clients are connected
        self._outputs = {}

    def end(self, name, *signals):
        code = super().end(name, *signals)
        self._outputs[name] = self.output(name)
        return code

    def __exit__(self, kind, *_):
        codes = self.stop()
        if kind is None:
            failed = {name for name, code in codes.items() if code != 0} - self._may_fail
            failed |= {name for name, text in self._outputs.items() if "Sanitizer" in text or "runtime error:" in text}
            assert not failed, self._outputs

    def read(self, memory, at, size):
        with open(self.segment(memory), "rb") as file:
            return os.pread(file.fileno(), size, SIZE_WORD + at)

    def write(self, memory, at, data):
        with open(self.segment(memory), "r+b") as file:
            os.pwrite(file.fileno(), data, SIZE_WORD + at)

    def run(self, program, *words, **options):
        """Exit status, standard output and standard error of a program of the build."""
        result = subprocess.run(self.command(program, *words), env=self.environment(), capture_output=True, text=True,
                                check=False, timeout=120, **options)
        return result.returncode, result.stdout, result.stderr

    # FastCGI

    def connect(self):
        return Connection(self.fcgi_port)

    def ask(self, script, body=b""):
        """The body of the answer to a request on a connection of its own."""
        with self.connect() as connection:
            return connection.ask(script, body).body

    def ping(self):
        """Returns when the service has read all that was sent to it before. Changes nothing and logs nothing."""
        assert self.ask(SET) == b'{"result": 0, "error": "" }'

    def wait_for_update(self, request_id=1, keep=False):
        """A connection whose request waits for an update."""
        connection = self.connect()
        connection.send_request(UPDATE, request_id=request_id, keep=keep)
        self.ping()
        return connection

    def forget_changes(self):
        """Returns when no earlier change can answer the next request for updates."""
        with BrokerClient(self) as events:
            # An answer may hold earlier changes only. The event posted here is then still on its way, so the next round
            # posts another one, after the broker has passed this one on.
            for event, name in 20 * list(UNUSED.items()):
                events.posted()
                with self.wait_for_update() as waiting:
                    events.post(event)
                    if name in waiting.answer().body:
                        return
        raise AssertionError("changes go on")

    # The web server

    def send(self, path, body=None, method=None, source="127.0.0.1", **headers):
        """A connection from the address `source` with a request under way. The path is sent as it is."""
        connection = http.client.HTTPConnection("127.0.0.1", self.http_port, WAIT_SECONDS, (source, 0))
        connection.request(method or ("GET" if body is None else "POST"), path, body, headers)
        return connection

    def http(self, path, body=None, method=None, source="127.0.0.1", **headers):
        """Status, headers and body of the answer."""
        with contextlib.closing(self.send(path, body, method, source, **headers)) as connection:
            response = connection.getresponse()
            return response.status, response.headers, response.read()

    # The service's process

    def descriptors(self):
        """The number of descriptors that the service has open."""
        with self.connect() as connection:
            connection.ask("ping", keep=True)
            return len(os.listdir(f"/proc/{self.pids['service']}/fd")) - 1

    def comes_to_rest(self):
        """Whether the service soon uses less than a tenth of a processor; a busy loop uses all of it."""
        def ticks():
            fields = Path(f"/proc/{self.pids['service']}/stat").read_text().rpartition(")")[2].split()
            return int(fields[11]) + int(fields[12])

        def is_at_rest():
            before = ticks()
            time.sleep(0.5)
            return ticks() - before <= 0.05 * os.sysconf("SC_CLK_TCK")

        wait_until(is_at_rest, "an idle service")
        return True

    def handled(self, script):
        """The number of requests for the script that reached the service, whose log level has to be LOG_REQUESTS."""
        return self.log().count(f", {script})\n")
