"""Clients that set, upload, capture, keep the service busy, and vanish."""

import json
import os
import random
import re
import shutil
import socket
import struct
import subprocess
import threading
import time
from contextlib import closing, suppress
from pathlib import Path

from measure import connect, exchange
from pollers import FAILURES

BOUNDARY = "----soak"
HALF_HEADER = b"GET /api/v1/all.cgi HTTP/1.1\r\nHo"
REQUEST = b"GET %s HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
HALF_BODY = b"PUT /qorapp/v1/lenstables/file/h HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 9999\r\n\r\n" + bytes(5000)
HALF_RECORD = b"\1\1\0\1\0\x08\0\0\0\1"
RESET = struct.pack("ii", 1, 0)  # SO_LINGER: closing sends a reset
SLICE_SECONDS = 5
CONNECTIONS = 4
BUSY_TIMEOUT = 60


class Client(threading.Thread):
    """Repeats an action while it is allowed to. Actions raise one of FAILURES, or return the kind that they have done."""

    def __init__(self, kind, act, pause, tally, end):
        super().__init__(daemon=True, name=kind)
        self.allowed = threading.Event()
        self.is_busy = False
        self._act = act
        self._pause = pause
        self._tally = tally
        self._end = end

    def run(self):
        while not self._end.wait(self._pause):
            self.allowed.wait()
            self.is_busy = True
            self._try()
            self.is_busy = False

    def _try(self):
        begin = time.time()
        try:
            self._act()
            self._tally.done(self.name)
        except FAILURES as error:
            self._tally.failed(self.name, begin, repr(error))


class Load:
    """The clients' actions on a device. Each checks its answer."""

    def __init__(self, device, tally, seed):
        self._device = device
        self._tally = tally
        self._random = {}
        self._seed = seed

    def clients(self, end):
        actions = (("set.cgi, read back", self.set_and_read, 0.5), ("files", self.exchange_file, 1),
                   ("firmware", self.upload_firmware, 4), ("screen.cgi", self.capture, 2),
                   ("vanishing clients", self.vanish, 0.3), ("probe", self.probe, 0.25))
        for kind, act, _ in actions:
            self._random[act.__name__] = random.Random(f"{self._seed} {kind}")
        return [Client(kind, act, pause, self._tally, end) for kind, act, pause in actions]

    def ask(self, *request):
        with closing(connect(self._device.http_port)) as connection:
            return exchange(connection, *request)

    def probe(self):
        """A request without effect: the time of its answer is the answer time of the service."""
        begin = time.time()
        expect(self.ask("POST", "/api/v1/set.cgi", b""), b'{"result": 0, "error": "" }')
        self._tally.times.append((begin, time.time() - begin))

    def set_and_read(self):
        value = self._random["set_and_read"].randint(-1000, 1000)
        body = json.dumps({"MemGuiLocal": {"EditValueIntegerBackup_Local": value}}).encode()
        expect(self.ask("POST", "/api/v1/set.cgi", body), b'{"result": 1 }')
        tree = json.loads(self.ask("GET", "/api/v1/all.cgi"))
        expect(tree["variables"]["MemGuiLocal"]["EditValueIntegerBackup_Local"]["value"], str(value))

    def exchange_file(self):
        """Stores a file, reads it and removes it."""
        rng = self._random["exchange_file"]
        path, content = "/qorapp/v1/lenstables/file/soak.tab", rng.randbytes(rng.randint(1, 200_000))
        expect(self.ask("PUT", path, content), b'{"result": "Success" }')
        expect(self.ask("GET", path), content)
        expect(self.ask("DELETE", path), b'{"result": "Success" }')

    def upload_firmware(self):
        """A file that the updater refuses, because it is none."""
        content = os.urandom(self._random["upload_firmware"].randint(1, 8) * 1_000_000)
        head = f'--{BOUNDARY}\r\nContent-Disposition: form-data; name='
        form = (f'{head}"deviceid"\r\n\r\nK1-K1-00042\r\n{head}"file"; filename="f"\r\n\r\n'.encode() + content +
                f"\r\n--{BOUNDARY}--\r\n".encode())
        headers = {"Content-Type": f"multipart/form-data; boundary={BOUNDARY}"}
        expect(self.ask("POST", "/qorapp/v1/device/update", form, headers), b'{"taskid": "K1-K1-00042" }')

    def capture(self):
        picture = self.ask("GET", "/api/v1/screen.cgi")
        expect((picture[:8], picture[-8:-4]), (b"\x89PNG\r\n\x1a\n", b"IEND"))

    def vanish(self):
        """A client that closes its connection, or resets it, before it has its answer; or a web server that does so."""
        rng = self._random["vanish"]
        port, text = rng.choice(((self._device.http_port, HALF_HEADER), (self._device.http_port, HALF_BODY),
                                 (self._device.http_port, REQUEST % b"/api/v1/all.cgi"),
                                 (self._device.http_port, REQUEST % b"/api/v1/update.cgi"),
                                 (self._device.fcgi_port, HALF_RECORD), (self._device.fcgi_port, b"")))
        with socket.create_connection(("127.0.0.1", port)) as client:
            client.sendall(text)
            time.sleep(rng.uniform(0, 0.2))
            if rng.random() < 0.5:
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)


def expect(found, wanted):
    if found != wanted:
        raise ValueError(f"{found!r:.200} instead of {wanted!r:.100}")


class Busy:
    """Many small requests, by wrk."""

    def __init__(self, device, tally):
        self._command = ["wrk", "-t1", f"-c{CONNECTIONS}", "--timeout", str(BUSY_TIMEOUT), "-s",
                         Path(__file__).with_name("load.lua"), device.url]
        self._tally = tally
        self.allowed = threading.Event()
        self.is_busy = False
        self.is_installed = shutil.which("wrk") is not None

    def start(self, end):
        if self.is_installed:
            threading.Thread(target=self._run, args=(end,), daemon=True).start()

    def _run(self, end):
        while not end.is_set():
            self.allowed.wait()
            self.is_busy = True
            with suppress(subprocess.CalledProcessError):
                self._slice()
            self.is_busy = False

    def _slice(self):
        begin = time.time()
        output = subprocess.run([*self._command, f"-d{SLICE_SECONDS}s"], check=True, capture_output=True, text=True).stdout
        figures = re.findall(r"^(sent|failed|broken|unanswered) (\d+) ?(.*)$", output, re.MULTILINE)
        for word, number, rest in figures:
            if word in ("sent", "unanswered"):
                self._tally.done(rest, int(number) * (1 if word == "sent" else -1))
            elif word == "failed":
                self._tally.failed("busy", int(number), f"{rest} answers of a second", end=int(number) + 1)
            elif word == "broken" and number != "0":
                self._tally.failed("busy", begin, f"{number} broken or late connections")
