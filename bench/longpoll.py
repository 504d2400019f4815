#!/usr/bin/python3
"""Clients that wait for updates through nginx, while the simulation changes variables at a steady pace.

The service looks for changes at most every 100 ms: a tick. What a variable is at a tick, every client that waits gets to
know; a value that is overwritten before the next tick never existed for them (it is coalesced). Whether each client got
every value that was current at a tick is decided so:

    same       A tick's answer is one document for all who wait. A client that was not back in time misses a document that
               others have: so all must hold the same documents in the same order.
    complete   A tick at which nobody waited leaves no document. But the simulation's values can be foretold: each
               variable goes through a cycle, one step at a time. From its values in two documents that name it follows
               how many steps lie between; more than one are either coalesced or lost. Ticks are 100 ms apart (the
               heartbeat sees to it: a connection whose records the service wakes up for and passes over). So if
               consecutive documents are less than 180 ms apart, there was no other tick between them and the steps are
               coalesced; else they count as lost. A stall of the machine can only add to the lost.
    counted    An observer counts the changes that pass through the broker, for each variable: as many as the steps that
               the documents tell, and none for a variable that they do not name. In a short cycle (a truth value) steps
               are known but for whole turns.

When the simulation has ended the clients still wait, and the service must be idle. A last change sets them free: all get
the same document, so no request was lost on the way. When the web server has ended, the service has the descriptors that
it had before.
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

from measure import (FINISHED_SECONDS, REPOSITORY, Process, Repeated, ask, begin, connect, exchange, print_table,
                     progress)
from virtualdevice import VirtualDevice

CLIENTS = 28
CHANGES, INTERVAL_MS = 50, 100
NEAR_SECONDS = 0.180
TELLING_CYCLE = 10  # values; in a shorter one a jump may look like a step
MOST_COMPLAINTS = 10
EVENT_SUBSCRIBE_ALL = 3
ABORT_REQUEST = bytes([1, 2, 0, 1, 0, 0, 0, 0])


class Client(threading.Thread):
    """Asks for updates again and again until the document that names the last change, or a failure."""

    def __init__(self, port, texts):
        super().__init__(daemon=True)
        self.documents = []  # (when it was complete, text)
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
        with open(REPOSITORY / "gen" / "model" / "ledger.csv", newline="") as file:
            names = {int(line["event"]): line["name"] for line in csv.DictReader(file)}
        return {names[event]: count for event, count in self.counts.items()}


def place_in_cycle(value):
    """Where a variable's JSON value stands in its cycle, and the cycle's length: the rule of device/simulation/soak.h."""
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
    """For each variable that changes, the documents that name it: (index of the document, value)."""
    found = defaultdict(list)
    for index, text in enumerate(texts):
        for variables in json.loads(text)["variables"].values():
            for name, value in variables.items():
                found[name].append((index, value))
    return {name: sequence for name, sequence in found.items() if len(sequence) > 1}


def count_steps(sequence, gaps):
    """Steps of a variable from the first to the last document, and how many of them were coalesced and how many lost.

    A value may be told twice: a tick between a store and its event shows it, and the event shows it again.
    """
    steps = coalesced = lost = 0
    for (before, old), (now, new) in zip(sequence, sequence[1:]):
        place, cycle = place_in_cycle(new)
        distance = (place - place_in_cycle(old)[0]) % cycle
        steps += distance
        if cycle >= TELLING_CYCLE and distance > 1:
            coalesced += distance - 1 if gaps[now] == gaps[before] else 0
            lost += distance - 1 if gaps[now] != gaps[before] else 0
    return steps, coalesced, lost


def tells(steps, observed, cycle):
    """Whether the documents tell as many steps as were observed."""
    return steps == observed if cycle >= TELLING_CYCLE else (steps - observed) % cycle == 0


def judge(tree, clients, observed):
    """Figures and complaints about what the clients got after the tree. The last document is the one that set them free."""
    complaints = [client.failure for client in clients if client.failure]
    most = max((client.texts() for client in clients), key=len)
    alike = [client.documents for client in clients if client.texts() == most]
    if len(alike) < len(clients):
        complaints.append(f"only {len(alike)} clients have the same documents")
    # When the first client had each. The tree is from before the changes began: nothing is late behind it.
    times = [min(when for when, _ in same) for same in zip(*alike)][:-1]
    late = (after - before >= NEAR_SECONDS for before, after in zip(times, times[1:]))
    gaps = [0, 0, *itertools.accumulate(late)]  # before each document
    coalesced = lost = 0
    counted = sequences([tree, *most[:-1]])
    for name, sequence in counted.items():
        steps, few, none = count_steps(sequence, gaps)
        coalesced, lost = coalesced + few, lost + none
        if not tells(steps, observed.get(name, 0), place_in_cycle(sequence[-1][1])[1]):
            complaints.append(f"{name}: {steps} changes told, {observed.get(name, 0)} observed")
    complaints += [f"{name}: observed, never told" for name in observed if name not in counted]
    if lost:
        complaints.append(f"{lost} values may have been current at a tick without a document")
    answers = sum(len(client.documents) for client in clients)
    missed = len(clients) * len(most) - answers
    return (len(clients), answers, len(most), sum(observed.values()), coalesced, missed, lost), complaints


def set_brightness(device, value):
    ask(device.http_port, "POST", "/api/v1/set.cgi", b'{"MemPersistent": {"DisplayBrightness": %d}}' % value)


def hold_simulation(device, observer):
    """Stops the simulation half-way between two steps."""
    observer.heard.clear()
    observer.heard.wait()
    time.sleep(INTERVAL_MS / 2000)
    os.kill(device.pids["simulation"], signal.SIGSTOP)


def start_clients(device, service, descriptors):
    """Returns when the service holds a connection for each client, or after a while; how many it holds, too."""
    texts, end = {}, time.monotonic() + 10
    clients = [Client(device.http_port, texts) for _ in range(CLIENTS)]
    for client in clients:
        client.start()
    while service.descriptors() < descriptors + CLIENTS and time.monotonic() < end:
        time.sleep(0.01)
    return clients, service.descriptors() - descriptors


def measure_busy(device, service, seconds):
    """Lets the simulation go on for a while and ends it. Returns the service's processor share."""
    with socket.create_connection(("127.0.0.1", device.fcgi_port)) as heartbeat, \
            Repeated(lambda: heartbeat.sendall(ABORT_REQUEST), 0.01):
        os.kill(device.pids["simulation"], signal.SIGCONT)
        share = service.processor_share(seconds)
        device.end("simulation")
        time.sleep(FINISHED_SECONDS)  # its last changes
    return share


def run(device, options):
    """One run: figures in the order of the table, and complaints."""
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
    progress(f"{options.idle} s of silence")
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


options = begin("Long polls", seconds=(60, "time of changes"), idle=(10, "time of silence behind it"))
load = ("--changes", str(CHANGES), "--interval", str(INTERVAL_MS))
with VirtualDevice(options.build, simulation=load, nginx=True) as device:
    figures, complaints = run(device, options)
print(f"{CHANGES} variables change every {INTERVAL_MS} ms for {options.seconds} s.\n")
print_table(("clients", "answers", "documents", "changes observed", "coalesced", "documents missed", "values lost",
             "descriptors more", "processor % busy", "% idle"), [figures])
for complaint in complaints[:MOST_COMPLAINTS]:
    print(f"- {complaint}")
sys.exit(bool(complaints))
