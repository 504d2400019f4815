#!/usr/bin/python3
"""Attacks of one address, without the web server's limits and with them.

First table: four clients send requests that the service logs. The service keeps the log in memory, so the table shows by how
much the log text grows, and after which time it has 128 MB. The string that holds it then needs 384 MB to grow, more than
the limit of the systemd unit.

Second table: many FastCGI connections at the same time, to a service that listens itself and to one that inherits a
listening socket with a longer queue, as from the systemd unit.
"""

import contextlib
import http.client
import socket
import subprocess
import threading
import time

from measure import UNLIMITED, Repeated, ask, begin, print_table, progress
from virtualdevice import VirtualDevice
from desk import is_listening

LARGEST_TEXT = 128 * 1024 * 1024
CONNECTIONS = 100
LONG = "x" * 900
REQUESTS = {
    "unknown scripts": ("GET", f"/api/v1/{LONG}"),
    "all.cgi, long header": ("GET", "/api/v1/all.cgi", None, {"User-Agent": 5 * LONG}),
    "set.cgi, unknown memory": ("POST", "/api/v1/set.cgi", f'{{"{LONG}": {{"a": 1}}}}'),
    "update status": ("GET", "/qorapp/v1/device/status"),
}
RECORDS = (b"\1\1\0\1\0\x08\0\0" b"\0\1\0\0\0\0\0\0"  # begin
           b"\1\4\0\1\0\x19\0\0" b"\x0b\x0cSCRIPT_NAME/qorapp/v1x?"  # parameters: an unknown script
           b"\1\4\0\1\0\0\0\0" b"\1\5\0\1\0\0\0\0")


def log_length(device):
    return int(ask(device.http_port, "GET", "/api/v1/log.cgi?offset=-1").split()[0])


def growth(device, request, seconds):
    """Requests per second, and bytes by which the log text grows per second, after a possible burst."""
    statuses = []

    def send():
        with contextlib.closing(http.client.HTTPConnection("127.0.0.1", device.http_port, timeout=60)) as connection:
            connection.request(*request)
            response = connection.getresponse()
            response.read()
            statuses.append(response.status)

    with contextlib.ExitStack() as stack:
        for _ in range(4):
            stack.enter_context(Repeated(send))
        time.sleep(seconds)
        start, before, count = time.monotonic(), log_length(device), statuses.count(200)
        time.sleep(seconds)
        elapsed = time.monotonic() - start
        return (statuses.count(200) - count) / elapsed, (log_length(device) - before) / elapsed


def cold_connections(device, stdin):
    """Milliseconds until the first, the median and the last of many new connections have their answer."""
    times, barrier = [], threading.Barrier(CONNECTIONS)

    def connect():
        barrier.wait()
        start = time.monotonic()
        with socket.create_connection(("127.0.0.1", device.fcgi_port)) as connection:
            connection.sendall(RECORDS)
            while connection.recv(65536):
                pass
        times.append((time.monotonic() - start) * 1000)

    with subprocess.Popen(device.command("webservice"), env=device.environment(), stdin=stdin) as service:
        while not is_listening(device.fcgi_port):
            time.sleep(0.01)
        time.sleep(0.5)
        threads = [threading.Thread(target=connect) for _ in range(CONNECTIONS)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        service.terminate()
    times.sort()
    return [f"{times[index]:.0f}" for index in (0, CONNECTIONS // 2, -1)]


options = begin("Attacks", seconds=(5, "length of each attack, and of the time before it is measured"))
rows = []
for limits, site in (("none", UNLIMITED), ("packaged", None)):
    for name, request in REQUESTS.items():
        with VirtualDevice(options.build, nginx=True, site=site) as device:
            progress(f"{name}, limits: {limits}")
            rate, size = growth(device, request, options.seconds)
        hours = LARGEST_TEXT / size / 3600 if size else float("inf")
        rows.append((name, limits, f"{rate:.1f}", f"{size / 1024:.2f}", f"{hours:.2f}"))
print_table(("requests", "limits", "answered per s", "log KiB/s", "hours to 128 MB"), rows)
print()
rows = []
for queue in (10, 1024):
    with VirtualDevice(options.build, service=False) as device, socket.socket() as listener:
        if queue == 1024:
            listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            listener.bind(("127.0.0.1", device.fcgi_port))
            listener.listen(queue)
        progress(f"{CONNECTIONS} connections, queue of {queue}")
        rows.append((CONNECTIONS, queue, *cold_connections(device, listener if queue == 1024 else subprocess.DEVNULL)))
print_table(("connections", "queue", "first ms", "median ms", "last ms"), rows)
