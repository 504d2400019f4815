#!/usr/bin/python3
"""Version 2 of the API through nginx: events to many clients while another process of the device stores values.

The values are the storing process's clock in microseconds, so the delay from store to client is in each message. A client
notes when a piece arrives and looks into it after the run. update.cgi has clients in the same run.

    delay         30 clients, 50 variables every 100 ms
    slow client   one more client does not read for 14 s while 10,000 values a second are stored
    disconnects   clients that disconnect at random moments and continue with their last id
    connections   1,000 clients at once: memory, and processor time while nothing changes
    first load    bytes of catalogue and values, processor time of values beside that of all.cgi
"""

import contextlib
import json
import random
import re
import selectors
import socket
import struct
import sys
import threading
import time

from measure import Process, Repeated, ask, begin, exchange, connect, lift, print_table, progress
from virtualdevice import VirtualDevice

sys.path.insert(0, str(__import__("pathlib").Path(__file__).resolve().parents[1] / "tests" / "system"))
from catalogue import Catalogue  # pylint: disable=wrong-import-position  # found there

CLIENTS, VARIABLES, INTERVAL = 30, 50, 0.1
SLOW_SECONDS, SLOW_RATE = 14, 10000
BUFFER = 1 << 16
DATA = re.compile(rb"id: (\d+)\ndata: ([^\n]*)\n\n")
CHUNK = re.compile(rb"\r\n[0-9a-f]+\r\n")
CLOCK_BITS = 0x7FFFFFFF
NOTIFY = struct.Struct("<III")


def clock():
    """Microseconds in 31 bits."""
    return time.monotonic_ns() // 1000 & CLOCK_BITS


def percentile(values, share):
    values = sorted(values)
    return values[min(len(values) - 1, int(len(values) * share))] if values else float("nan")


def figures(delays):
    """Median and 99th percentile in milliseconds."""
    return tuple(f"{percentile(delays, share) / 1000:.2f}" for share in (0.5, 0.99))


class Store:
    """Another process of the device: writes words into the memories and posts their events."""

    def __init__(self, device):
        words = [(memory.name, variable) for memory in Catalogue().memories.values() for variable in memory.variables
                 if variable.type == "int" and memory.name not in ("MemApp", "MemPersistent")][:VARIABLES]
        self.names = [f"{memory}.{variable.name}" for memory, variable in words]
        self._files = {memory: open(device.segment(memory), "r+b", buffering=0) for memory, _ in words}
        self._places = [(self._files[memory], 4 + int(variable.at), int(variable.event)) for memory, variable in words]
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(device.path("/var/volatile/message-broker.socket")))
        self.last = {}

    def store(self, number):
        file, at, event = self._places[number % len(self._places)]
        value = clock()
        file.seek(at)
        file.write(struct.pack("<i", value))
        self._socket.sendall(NOTIFY.pack(event, 0, 0))
        self.last[self.names[number % len(self._places)]] = value

    def burst(self):
        for number in range(VARIABLES):
            self.store(number)

    def steadily(self, seconds, rate):
        """Stores `rate` values a second, a millisecond's worth at a time."""
        number, begun = 0, time.monotonic()
        while (elapsed := time.monotonic() - begun) < seconds:
            while number < elapsed * rate:
                self.store(number)
                number += 1
            time.sleep(0.001)
        return number / elapsed


def open_stream(port, query, last=None):
    stream = socket.create_connection(("127.0.0.1", port))
    header = f"Last-Event-ID: {last}\r\n" if last else ""
    stream.sendall(f"GET /api/v2/events?{query} HTTP/1.1\r\nHost: localhost\r\n{header}\r\n".encode())
    return stream


def messages(received):
    """(id, values) of the events in the bytes of an answer."""
    text = CHUNK.sub(b"", received.replace(b"\r\n\r\n", b"\r\n\r\n\r\n", 1))
    return [(int(sequence), json.loads(data)) for sequence, data in DATA.findall(text)]


class Streams(threading.Thread):
    """Clients of events, all of them read by one thread."""

    def __init__(self, port, query, count):
        super().__init__(daemon=True)
        self.sockets = [open_stream(port, query) for _ in range(count)]
        self.pieces = [[] for _ in self.sockets]  # (time, bytes) of each client
        self._selector = selectors.DefaultSelector()
        self._end = threading.Event()
        for number, stream in enumerate(self.sockets):
            self._selector.register(stream, selectors.EVENT_READ, number)

    def run(self):
        while not self._end.is_set():
            for key, _ in self._selector.select(0.1):
                self.pieces[key.data].append((clock(), key.fileobj.recv(BUFFER)))

    def stop(self):
        self._end.set()
        self.join()
        for stream in self.sockets:
            stream.close()

    def wait_for(self, names):
        """Waits until each client has the present values, then forgets them."""
        while not all(self.values(number).keys() >= set(names) for number in range(len(self.sockets))):
            time.sleep(0.05)
        self.forget()

    def forget(self):
        for pieces in self.pieces:
            pieces.clear()

    def values(self, number):
        """The values that a client has."""
        found = {}
        for _, values in messages(b"".join(piece for _, piece in self.pieces[number])):
            found.update(values)
        return found

    def delays(self):
        return [(when - value) & CLOCK_BITS for pieces in self.pieces for when, piece in list(pieces)
                for _, values in messages(piece) for value in values.values()]


def site():
    """The web server's limits without those that a bench exceeds."""
    def many(text):
        return lift(text).replace("_of_address 1000", "_of_address 4000")

    return {"limits.conf": many, "live/http.conf": lift,
            "live/limits.conf": lambda text: re.sub(r"(limit_conn \w+ +)\d+", r"\1 4000", text)}


def measure_delay(device, store, seconds):
    """The delays of events and of update.cgi, and the streams, which go on."""
    streams = Streams(device.http_port, "vars=" + ",".join(store.names), CLIENTS)
    streams.start()
    streams.wait_for(store.names)
    old, end = [], threading.Event()

    def poll():
        connection = connect(device.http_port)
        while not end.is_set():
            old.append((exchange(connection, "GET", "/api/v1/update.cgi"), clock()))

    poller = threading.Thread(target=poll, daemon=True)
    poller.start()
    begun = time.monotonic()
    while time.monotonic() < begun + seconds:
        store.burst()
        time.sleep(INTERVAL * (0.5 + random.random()))  # out of step with the service's ticks
    end.set()
    store.burst()
    poller.join()
    time.sleep(1)
    wrong = sum(streams.values(number) != store.last for number in range(CLIENTS))
    polled = [(when - int(value)) & CLOCK_BITS for text, when in list(old)[:-1]
              for value in re.findall(rb'"type":"int","value":"(\d+)"', text)]
    return streams, streams.delays(), polled, wrong


def measure_slow(device, store, streams):
    """The delays of the others while one client does not read; the memory's growth; whether its values are right."""
    process = Process(device.pids["live"])
    query = "vars=" + ",".join(store.names)
    streams.forget()
    rate = store.steadily(SLOW_SECONDS, SLOW_RATE)
    time.sleep(1)
    alone = streams.delays()
    slow = open_stream(device.http_port, query)
    streams.forget()
    before = process.memory_kib("VmRSS")
    store.steadily(SLOW_SECONDS, SLOW_RATE)
    grown = process.memory_kib("VmRSS") - before
    time.sleep(1)
    beside = streams.delays()
    slow.settimeout(2)
    received = b""
    try:
        while piece := slow.recv(BUFFER):
            received += piece
    except TimeoutError:
        pass
    last = {}
    for _, values in messages(received):
        last.update(values)
    return rate, alone, beside, grown, last == store.last


def disconnect_often(device, store, count):
    """Continues with the last id after each disconnect. Returns the ids that went back, stale values, largest bytes."""
    query = "vars=" + ",".join(store.names)
    wrong = []

    def client(times):
        sequence, values = None, {}
        for number in range(times + 1):
            is_last = number == times
            if is_last:
                rest.wait()
            stream = open_stream(device.http_port, query, sequence)
            stream.settimeout(30 if is_last else random.random() / 50 + 0.001)
            received = b""
            with contextlib.suppress(TimeoutError):
                while piece := stream.recv(BUFFER):
                    received += piece
                    if is_last and {**values, **dict(pair for _, new in messages(received) for pair in new.items())
                                    } == store.last:
                        break
            stream.close()
            for identity, changed in messages(received):
                if sequence is not None and identity < sequence:
                    wrong.append("back")
                sequence = identity
                values.update(changed)
        if values != store.last:
            wrong.append("stale")

    workers = 10
    rest = threading.Event()  # nothing is stored any more
    threads = [threading.Thread(target=client, args=(count // workers,)) for _ in range(workers)]
    with Repeated(store.burst, INTERVAL):
        for thread in threads:
            thread.start()
        rest.wait(count / workers * 0.03)
    time.sleep(1)
    rest.set()
    for thread in threads:
        thread.join()
    return wrong


def reconnect_bytes(device, store):
    """Bytes of a reconnect after 1 s in which all variables changed."""
    query = "vars=" + ",".join(store.names)
    with Repeated(store.burst, INTERVAL):
        stream = open_stream(device.http_port, query)
        time.sleep(0.5)
        last = messages(stream.recv(BUFFER))[-1][0]
        stream.close()
        time.sleep(1)
    stream = open_stream(device.http_port, query, last)
    time.sleep(0.5)
    return len(stream.recv(BUFFER))


def measure_connections(device, count, seconds):
    process = Process(device.pids["live"])
    streams = [open_stream(device.http_port, "vars=MemMotors.*") for _ in range(count)]
    for stream in streams:
        stream.recv(BUFFER)
    time.sleep(1)
    figure = process.memory_kib("VmRSS"), process.processor_share(seconds), process.descriptors()
    for stream in streams:
        stream.close()
    return figure


def measure_load(device, count):
    zipped = {"Accept-Encoding": "gzip"}
    sizes = sum(len(ask(device.http_port, "GET", path, None, zipped)) for path in ("/api/v2/catalogue", "/api/v2/values"))
    shares = {}
    for name, path in (("live", "/api/v2/values"), ("service", "/api/v1/all.cgi")):
        process, connection = Process(device.pids[name]), connect(device.http_port)
        exchange(connection, "GET", path)
        before = process.processor_seconds()
        for _ in range(count):
            exchange(connection, "GET", path)
        shares[name] = (process.processor_seconds() - before) / count * 1e6
    return sizes, shares["live"], shares["service"]


def main():
    options = begin("Events of version 2", seconds=(30, "seconds of changes"), idle=(20, "seconds of rest"),
                    disconnects=(10000, "disconnects"), connections=(1000, "clients at once"))
    with VirtualDevice(options.build, live=True, nginx=True, site=site()) as device:
        store = Store(device)
        streams, delays, polled, wrong = measure_delay(device, store, options.seconds)
        print_table(("", "values", "median ms", "99th ms"),
                    [("events", len(delays), *figures(delays)), ("update.cgi", len(polled), *figures(polled))])
        progress("slow client")
        rate, alone, beside, grown, is_right = measure_slow(device, store, streams)
        streams.stop()
        print_table(("stores/s", "99th alone ms", "99th beside ms", "memory grown KiB", "slow client's values"),
                    [(f"{rate:.0f}", figures(alone)[1], figures(beside)[1], grown, "right" if is_right else "WRONG")])
        progress("disconnects")
        bad = disconnect_often(device, store, options.disconnects)
        print_table(("disconnects", "ids back", "stale", "bytes after 1 s"),
                    [(options.disconnects, bad.count("back"), bad.count("stale"), reconnect_bytes(device, store))])
        progress("connections")
        memory, share, descriptors = measure_connections(device, options.connections, options.idle)
        print_table(("connections", "descriptors", "resident KiB", "idle %"),
                    [(options.connections, descriptors, memory, f"{share:.3f}")])
        first, new, old = measure_load(device, 300)
        print_table(("first load bytes", "values µs", "all.cgi µs"), [(first, f"{new:.0f}", f"{old:.0f}")])
    return 1 if wrong or bad or not is_right else 0


sys.exit(main())
