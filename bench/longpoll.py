#!/usr/bin/python3
"""Clients that wait for updates through nginx, while the simulation changes variables at a steady pace.

The service looks for changes at most every 100 ms: a tick. At a tick every waiting client gets the current values of
the changed variables; values that are overwritten before the next tick are coalesced. Each client has to get every
value that was current at a tick. Three checks:

    same       A tick produces one document for all waiting clients. A client whose next request is late misses a
               document that others get, so all clients must have the same documents in the same order.
    complete   A tick without a waiting client produces no document. The simulation's values are predictable: each
               variable runs through a cycle, one step at a time, so the values in two documents give the number of
               steps between them. Additional steps are either coalesced or lost. Ticks are 100 ms apart (a heartbeat
               connection, whose records the service reads and ignores, wakes it up often enough). If consecutive
               documents are less than 180 ms apart, no tick lies between them and the steps are coalesced; otherwise
               they count as lost. A stall of the machine can only add to the lost ones.
    counted    An observer counts the changes of each variable that pass through the broker. The count must equal the
               number of steps in the documents, and be zero for variables that no document names. For a short cycle
               (a bool) the number of steps is known modulo the cycle's length.

After the end of the simulation the clients still wait, and the service must be idle. A last change then has to reach
all of them in the same document, so no request was lost. After the end of the web server the service must have as many
descriptors as before.
"""

import csv
import http.client
import itertools
import json
import os
import signal
import socket
import struct
import sys
import threading
import time
from collections import Counter, defaultdict

from measure import (FINISHED_SECONDS, REPOSITORY, UNLIMITED, Process, Repeated, ask, begin, connect, exchange,
                     print_table, progress)
from virtualdevice import VirtualDevice

CLIENTS = 28
CHANGES, INTERVAL_MS = 50, 100
NEAR_SECONDS = 0.180
LONG_CYCLE = 10  # values; in a shorter cycle several steps may look like one
MOST_COMPLAINTS = 10
EVENT_SUBSCRIBE_ALL = 3
ABORT_REQUEST = bytes([1, 2, 0, 1, 0, 0, 0, 0])


class Client(threading.Thread):
    """Polls for updates until the document with the last change, or until a failure."""

    def __init__(self, port, texts):
        super().__init__(daemon=True)
        self.documents = []  # (time of completion, text)
        self.failure = None
        self._texts = texts
        self._connection = connect(port)

    def run(self):
        try:
            while not (self.documents and b'"DisplayBrightness"' in self.documents[-1][1]):
                text = exchange(self._connection, "GET", "/api/v1/update.cgi")
                # One copy for all clients.
                self.documents.append((time.monotonic(), self._texts.setdefault(text, text)))
        except (OSError, http.client.HTTPException) as error:
            self.failure = repr(error)

    def texts(self):
        return [text for _, text in self.documents]


class Observer(threading.Thread):
    """Counts the events that pass through the broker, by id."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.counts = Counter()
        self.heard = threading.Event()
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(path))
        self._socket.sendall(struct.pack("<3I", EVENT_SUBSCRIBE_ALL, 0, 0))

    def run(self):
        with self._socket.makefile("rb") as stream:
            while record := stream.read(12):
                self.counts[struct.unpack("<3I", record)[0]] += 1
                self.heard.set()

    def by_name(self):
        with open(REPOSITORY / "gen" / "model" / "ledger" / "variables.csv", newline="") as file:
            names = {int(line["event"]): line["name"] for line in csv.DictReader(file)}
        return {names[event]: count for event, count in self.counts.items()}


def place_in_cycle(value):
    """The position of a variable's JSON value in its cycle, and the cycle's length; see device/simulation/soak.h."""
    if value["type"] == "bool":
        return int(value["value"] == "true"), 2
    low, high = float(value["min"]), float(value["max"])
    low = low if low > -1e6 else 0
    distance = min(high - low, 1000)
    steps = float(value["value"]) - low
    if value["type"] == "int":
        return int(steps), min(int(distance) + 1, 1000)
    return round(steps / distance * 1000), 1000


def sequences(texts):
    """For each variable that changes, its (index of the document, value) in all documents that name it."""
    found = defaultdict(list)
    for index, text in enumerate(texts):
        for variables in json.loads(text)["variables"].values():
            for name, value in variables.items():
                found[name].append((index, value))
    return {name: sequence for name, sequence in found.items() if len(sequence) > 1}


def count_steps(sequence, gaps):
    """Steps of a variable from the first to the last document, and how many of them were coalesced and how many lost.

    Two documents may have the same value: one from a tick between the store and its event, one after the event.
    """
    steps = coalesced = lost = 0
    for (before, old), (now, new) in zip(sequence, sequence[1:]):
        place, cycle = place_in_cycle(new)
        distance = (place - place_in_cycle(old)[0]) % cycle
        steps += distance
        if cycle >= LONG_CYCLE and distance > 1:
            coalesced += distance - 1 if gaps[now] == gaps[before] else 0
            lost += distance - 1 if gaps[now] != gaps[before] else 0
    return steps, coalesced, lost


def matches(steps, observed, cycle):
    """Whether the documents contain as many steps as were observed."""
    return steps == observed if cycle >= LONG_CYCLE else (steps - observed) % cycle == 0


def judge(tree, clients, observed):
    """Figures and complaints about the documents after the tree. The last document has the final change."""
    complaints = [client.failure for client in clients if client.failure]
    most = max((client.texts() for client in clients), key=len)
    alike = [client.documents for client in clients if client.texts() == most]
    if len(alike) < len(clients):
        complaints.append(f"only {len(alike)} clients have the same documents")
    # When the first client had each. The tree is older than all changes, so the first document is never late.
    times = [min(when for when, _ in same) for same in zip(*alike)][:-1]
    late = (after - before >= NEAR_SECONDS for before, after in zip(times, times[1:]))
    gaps = [0, 0, *itertools.accumulate(late)]  # before each document
    coalesced = lost = 0
    counted = sequences([tree, *most[:-1]])
    for name, sequence in counted.items():
        steps, few, none = count_steps(sequence, gaps)
        coalesced, lost = coalesced + few, lost + none
        if not matches(steps, observed.get(name, 0), place_in_cycle(sequence[-1][1])[1]):
            complaints.append(f"{name}: {steps} changes in the documents, {observed.get(name, 0)} observed")
    complaints += [f"{name}: observed, in no document" for name in observed if name not in counted]
    if lost:
        complaints.append(f"{lost} values may have been current at a tick without a document")
    answers = sum(len(client.documents) for client in clients)
    missed = len(clients) * len(most) - answers
    return (len(clients), answers, len(most), sum(observed.values()), coalesced, missed, lost), complaints


def set_brightness(device, value):
    ask(device.http_port, "POST", "/api/v1/set.cgi", b'{"MemPersistent": {"DisplayBrightness": %d}}' % value)


def hold_simulation(device, observer):
    """Stops the simulation between two steps."""
    observer.heard.clear()
    observer.heard.wait()
    time.sleep(INTERVAL_MS / 2000)
    os.kill(device.pids["simulation"], signal.SIGSTOP)


def start_clients(device, service, descriptors):
    """Waits until the service has a connection for each client, at most 10 s. Returns the clients and the number."""
    texts, end = {}, time.monotonic() + 10
    clients = [Client(device.http_port, texts) for _ in range(CLIENTS)]
    for client in clients:
        client.start()
    while service.descriptors() < descriptors + CLIENTS and time.monotonic() < end:
        time.sleep(0.01)
    return clients, service.descriptors() - descriptors


def measure_busy(device, service, seconds):
    """Continues the simulation for `seconds` and ends it. Returns the service's CPU share."""
    with socket.create_connection(("127.0.0.1", device.fcgi_port)) as heartbeat, \
            Repeated(lambda: heartbeat.sendall(ABORT_REQUEST), 0.01):
        os.kill(device.pids["simulation"], signal.SIGCONT)
        share = service.processor_share(seconds)
        device.end("simulation")
        time.sleep(FINISHED_SECONDS)  # its last changes
    return share


def run(device, options):
    """Returns the figures in the order of the table, and complaints."""
    service = Process(device.pids["service"])
    descriptors = service.descriptors()
    observer = Observer(device.path("/var/volatile/message-broker.socket"))
    observer.start()
    hold_simulation(device, observer)
    tree = ask(device.http_port, "GET", "/api/v1/all.cgi")
    set_brightness(device, 5)
    time.sleep(FINISHED_SECONDS)
    observer.counts.clear()
    clients, waiting = start_clients(device, service, descriptors)
    progress(f"{waiting} clients wait, {options.seconds} s of changes")
    busy = measure_busy(device, service, options.seconds)
    observed = observer.by_name()
    progress(f"{options.idle} s without changes")
    idle = service.processor_share(options.idle)
    set_brightness(device, 6)
    for client in clients:
        client.join(10)
    device.end("nginx")
    time.sleep(FINISHED_SECONDS)
    figures, complaints = judge(tree, clients, observed)
    leaked = service.descriptors() - descriptors
    if waiting != CLIENTS or leaked or idle >= 1:
        complaints.append(f"{waiting} clients waited, {leaked} descriptors leaked, {idle:.2f} % idle")
    return (*figures, leaked, f"{busy:.2f}", f"{idle:.2f}"), complaints


options = begin("Long polls", seconds=(60, "duration of changes"), idle=(10, "idle time after them"))
load = ("--changes", str(CHANGES), "--interval", str(INTERVAL_MS))
with VirtualDevice(options.build, simulation=load, nginx=True, site=UNLIMITED) as device:
    figures, complaints = run(device, options)
print(f"{CHANGES} variables change every {INTERVAL_MS} ms for {options.seconds} s.\n")
print_table(("clients", "answers", "documents", "changes observed", "coalesced", "documents missed", "values lost",
             "leaked descriptors", "CPU % busy", "CPU % idle"), [figures])
for complaint in complaints[:MOST_COMPLAINTS]:
    print(f"- {complaint}")
sys.exit(bool(complaints))
