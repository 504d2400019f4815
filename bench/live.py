#!/usr/bin/python3
"""Version 2 of the API through nginx: events to many clients while another process of the device stores values.

The values are the storing process's clock in microseconds, so the delay from store to client is in each message. A client
notes when a piece arrives and looks into it after the run. update.cgi has clients in the same run.

    delay         30 clients, 50 variables every 100 ms; the same with clients that accept gzip, as browsers do
    slow client   one more client does not read for 14 s while 10,000 values a second are stored, in turn with 14 s
                  without it
    disconnects   clients that disconnect at random moments and continue with their last id
    connections   1,000 clients at once: memory, and processor time while nothing changes
    load          bytes of catalogue and values with their headers, at first and again; processor time of values beside
                  that of all.cgi

Other programs of the machine disturb the delays; "chrt -r 10" in front of the command gives all processes of the run
precedence.
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
import zlib
from collections import deque

from measure import MANY_STREAMS, Process, Repeated, ask, begin, connect, exchange, print_table, progress
from virtualdevice import VirtualDevice

sys.path.insert(0, str(__import__("pathlib").Path(__file__).resolve().parents[1] / "tests" / "system"))
from catalogue import Catalogue  # pylint: disable=wrong-import-position  # found there

CLIENTS, VARIABLES, INTERVAL = 30, 50, 0.1
SLOW_SECONDS, SLOW_RATE = 14, 10000
BUFFER = 1 << 16
DATA = re.compile(rb"id: (\d+)\ndata: ([^\n]*)\n\n")
CHUNK = re.compile(rb"([0-9a-f]+)\r\n")
GZIP = "Accept-Encoding: gzip\r\n"
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
        self._bounds = [(int(variable.min or -CLOCK_BITS), int(variable.max or CLOCK_BITS)) for _, variable in words]
        self._files = {memory: open(device.segment(memory), "r+b", buffering=0) for memory, _ in words}
        self._places = [(self._files[memory], 4 + int(variable.at), int(variable.event)) for memory, variable in words]
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(device.path("/var/volatile/message-broker.socket")))
        self.last = {}

    def store(self, number, value=None):
        """Stores a value, the clock's without one."""
        file, at, event = self._places[number % len(self._places)]
        value = clock() if value is None else value
        file.seek(at)
        file.write(struct.pack("<i", value))
        self._socket.sendall(NOTIFY.pack(event, 0, 0))
        self.last[self.names[number % len(self._places)]] = value

    def burst(self):
        for number in range(VARIABLES):
            self.store(number)

    def burst_within_bounds(self):
        for number, bounds in enumerate(self._bounds):
            self.store(number, random.randint(*bounds))

    def steadily(self, seconds, rate):
        """Stores `rate` values a second, a millisecond's worth at a time."""
        number, begun = 0, time.monotonic()
        while (elapsed := time.monotonic() - begun) < seconds:
            while number < elapsed * rate:
                self.store(number)
                number += 1
            time.sleep(0.001)
        return number / elapsed


def open_stream(port, query, last=None, headers=""):
    stream = socket.create_connection(("127.0.0.1", port))
    headers += f"Last-Event-ID: {last}\r\n" if last else ""
    stream.sendall(f"GET /api/v2/events?{query} HTTP/1.1\r\nHost: localhost\r\n{headers}\r\n".encode())
    return stream


class Answer:
    """Decodes the answer of a stream piece by piece."""

    def __init__(self):
        self._rest = b""  # undecoded
        self._text = b""  # of an event that is not complete
        self._inflate = None
        self._has_head = False

    def add(self, piece):
        """(id, values) of the events that the piece completes."""
        self._rest += piece
        if not self._has_head:
            head, end, rest = self._rest.partition(b"\r\n\r\n")
            if not end:
                return []
            self._has_head, self._rest = True, rest
            self._inflate = zlib.decompressobj(31) if b"Content-Encoding: gzip" in head else None
        text = b"".join(self._chunks())
        self._text += self._inflate.decompress(text) if self._inflate else text
        events, complete = [], 0
        for event in DATA.finditer(self._text):
            events.append((int(event[1]), json.loads(event[2])))
            complete = event.end()
        self._text = self._text[complete:]
        return events

    def _chunks(self):
        while (size := CHUNK.match(self._rest)) and len(self._rest) >= (end := size.end() + int(size[1], 16)) + 2:
            yield self._rest[size.end():end]
            self._rest = self._rest[end + 2:]


def messages(received):
    """(id, values) of the events in the bytes of an answer."""
    return Answer().add(received)


class Streams(threading.Thread):
    """Clients of events, all of them read by one thread."""

    def __init__(self, port, query, count, headers):
        super().__init__(daemon=True)
        self.sockets = [open_stream(port, query, headers=headers) for _ in range(count)]
        self._pieces = [deque() for _ in self.sockets]  # (time, bytes) of each client, not decoded yet
        self._answers = [Answer() for _ in self.sockets]
        self._events = [[] for _ in self.sockets]  # (time, values)
        self._selector = selectors.DefaultSelector()
        self._end = threading.Event()
        for number, stream in enumerate(self.sockets):
            self._selector.register(stream, selectors.EVENT_READ, number)

    def run(self):
        while not self._end.is_set():
            for key, _ in self._selector.select(0.1):
                self._pieces[key.data].append((clock(), key.fileobj.recv(BUFFER)))

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
        for number in range(len(self.sockets)):
            self.events(number).clear()

    def events(self, number):
        """(time, values) of what a client has got since forget()."""
        while self._pieces[number]:
            when, piece = self._pieces[number].popleft()
            self._events[number] += [(when, values) for _, values in self._answers[number].add(piece)]
        return self._events[number]

    def values(self, number):
        """The values that a client has."""
        return dict(pair for _, values in self.events(number) for pair in values.items())

    def delays(self):
        return [(when - value) & CLOCK_BITS for number in range(len(self.sockets))
                for when, values in self.events(number) for value in values.values()]


def measure_delay(device, store, seconds, headers=""):
    """The streams, which go on, the delays of events and of update.cgi, and the number of clients with a wrong value."""
    streams = Streams(device.http_port, "vars=" + ",".join(store.names), CLIENTS, headers)
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


def overwritten(device):
    """The changes that the process did not send because the client was slow."""
    return int(re.search(rb"live_changes_overwritten_total (\d+)", ask(device.http_port, "GET", "/api/v2/metrics"))[1])


def store_fast(store, streams):
    """The rate of the stores, and the 99th percentile of the delays."""
    streams.forget()
    rate = store.steadily(SLOW_SECONDS, SLOW_RATE)
    time.sleep(1)
    return rate, percentile(streams.delays(), 0.99) / 1000


def measure_slow(device, store, streams):
    """A row of the table: the others without and with a client that does not read; that client; the process's memory."""
    process = Process(device.pids["live"])
    rate, alone = store_fast(store, streams)
    slow = open_stream(device.http_port, "vars=" + ",".join(store.names))
    before, late = process.memory_kib("VmRSS"), overwritten(device)
    _, beside = store_fast(store, streams)
    grown, late = process.memory_kib("VmRSS") - before, overwritten(device) - late
    slow.settimeout(2)
    received = b""
    with contextlib.suppress(TimeoutError):
        while piece := slow.recv(BUFFER):
            received += piece
    slow.close()
    is_right = dict(pair for _, values in messages(received) for pair in values.items()) == store.last
    return f"{rate:.0f}", f"{alone:.2f}", f"{beside:.2f}", late, grown, "right" if is_right else "WRONG"


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


def reconnect_bytes(device, store, headers=""):
    """Bytes of header and of events of a reconnect after 1 s in which all variables changed."""
    query = "vars=" + ",".join(store.names)
    with Repeated(store.burst_within_bounds, INTERVAL):
        stream = open_stream(device.http_port, query)
        time.sleep(0.5)
        last = messages(stream.recv(BUFFER))[-1][0]
        stream.close()
        time.sleep(1)
    stream = open_stream(device.http_port, query, last, headers)
    time.sleep(0.5)
    head, _, events = stream.recv(BUFFER).partition(b"\r\n\r\n")
    return len(head) + 4, len(events)


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


def answer_bytes(port, path, headers):
    """All bytes of an answer, and its ETag."""
    with socket.create_connection(("127.0.0.1", port)) as connection:
        connection.sendall(f"GET {path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n{GZIP}{headers}\r\n".encode())
        answer = b"".join(iter(lambda: connection.recv(BUFFER), b""))
    return len(answer), re.search(r'ETag: (\S+)', answer.decode(errors="replace"))[1]


def measure_load(device, count):
    """Bytes of the first load and of a second one, microseconds of processor time of values and all.cgi."""
    first = second = 0
    for path in ("/api/v2/catalogue", "/api/v2/values"):
        size, tag = answer_bytes(device.http_port, path, "")
        first += size
        second += answer_bytes(device.http_port, path, f"If-None-Match: {tag}\r\n")[0]
    shares = []
    for name, path in (("live", "/api/v2/values"), ("service", "/api/v1/all.cgi")):
        process, connection = Process(device.pids[name]), connect(device.http_port)
        exchange(connection, "GET", path)
        before = process.processor_seconds()
        for _ in range(count):
            exchange(connection, "GET", path)
        shares.append(f"{(process.processor_seconds() - before) / count * 1e6:.0f}")
    return first, second, *shares


def main():
    options = begin("Events of version 2", seconds=(30, "seconds of changes"), idle=(40, "seconds of rest"),
                    rounds=(3, "times without and with a slow client"), disconnects=(10000, "disconnects"),
                    connections=(1000, "clients at once"))
    with VirtualDevice(options.build, live=True, nginx=True, site=MANY_STREAMS) as device:
        store = Store(device)
        streams, zipped, _, wrong = measure_delay(device, store, options.seconds, GZIP)
        streams.stop()
        streams, delays, polled, wrong_too = measure_delay(device, store, options.seconds)
        print_table(("", "values", "median ms", "99th ms"),
                    [("events", len(delays), *figures(delays)), ("update.cgi", len(polled), *figures(polled)),
                     ("events with gzip", len(zipped), *figures(zipped))])
        progress("slow client")
        rounds = [measure_slow(device, store, streams) for _ in range(options.rounds)]
        streams.stop()
        print_table(("stores/s", "99th without ms", "99th with ms", "values not sent to slow client", "memory grown KiB",
                     "slow client's values"), rounds)
        progress("disconnects")
        bad = disconnect_often(device, store, options.disconnects)
        print_table(("disconnects", "ids back", "stale"),
                    [(options.disconnects, bad.count("back"), bad.count("stale"))])
        print_table(("reconnect after 1 s", "header bytes", "bytes of events"),
                    [("plain", *reconnect_bytes(device, store)), ("gzip", *reconnect_bytes(device, store, GZIP))])
        progress("connections")
        memory, share, descriptors = measure_connections(device, options.connections, options.idle)
        print_table(("connections", "descriptors", "resident KiB", "idle %"),
                    [(options.connections, descriptors, memory, f"{share:.3f}")])
        print_table(("first load bytes", "second load bytes", "values µs", "all.cgi µs"), [measure_load(device, 1000)])
    return 1 if wrong or wrong_too or bad or any(row[-1] != "right" for row in rounds) else 0


sys.exit(main())
