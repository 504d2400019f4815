"""The service at rest: nothing changes, and then no client is connected. What is lost or has grown shows here.

First nothing changes: every poller's picture has to equal the tree, the tree the memories, the page and the log's followers
have to show the last value and the last line. Then the web server ends and starts again: descriptors, memory and processor
time of the service without any client, then the cost of a request.
"""

import csv
import json
import struct
import time
from collections import namedtuple
from contextlib import closing
from pathlib import Path

from desk import has_pending_connections
from faults import wait_until
from measure import REPOSITORY, Process, ask, connect, exchange, progress
from pollers import TREE, flat

WAIT_SECONDS = 60
EXACT_SECONDS = 2  # by then every document has been compared with those of the others
IDLE_SECONDS = 3
SAME_TURNS, TURN_SECONDS = 20, 0.1  # an idle service runs every 100 ms
BATCHES = 5  # the least cost of several counts, because the machine is shared
TREES, SETS = 20, 100
NOTHING = ("POST", "/api/v1/set.cgi", b"")
FORMS = {"int": "=i", "float": "=f", "bool": "=?"}
UNUSED_AT = 32  # of a variable of the counter's memory that nothing changes
LEAKED = 3

Rest = namedtuple("Rest", "when life descriptors resident_kib log_kib idle_percent tree_us set_us tree_ms set_ms page_kib")


class Resting:
    """rests   the figures of all rests so far"""

    def __init__(self, soak):
        self._soak = soak
        self._tally = soak.tally
        self.rests = []

    def rest(self, prove=()):
        """Stops the load, checks and measures. Defects in `prove`, "loss" or "leak", are put in."""
        soak = self._soak
        with soak.without_load():
            progress("the service rests")
            soak.counter.pause()
            page_kib = self._compare("loss" in prove)
            log_kib = soak.log_size() // 1024
            leaked = leak(soak.device.fcgi_port) if "leak" in prove else []
            with self._tally.window("web server restart"):
                soak.device.end("nginx")
                figures = self._measure_idle(log_kib)
                soak.device.start_nginx()
                costs = self._measure_cost()
                soak.counter.resume()
            self.rests.append(Rest(*figures, *costs, page_kib))
            progress(str(self.rests[-1]))
            del leaked

    # Nothing lost

    def _compare(self, loses_change):
        soak = self._soak
        self._bring_up_to_date(soak.pollers, soak.counter)
        last, line = soak.counter.value, soak.counter.line
        self._expect(lambda: all(follower.line == line for follower in soak.followers),
                     lambda: f"followers have {[f.line for f in soak.followers]} instead of the last line {line}")
        time.sleep(EXACT_SECONDS)
        if loses_change:
            soak.counter.store(UNUSED_AT, 4711)
        tree = flat(json.loads(ask(soak.device.http_port, "GET", TREE)))
        for poller in soak.pollers:
            picture = poller.picture()
            for name, value in tree.items():
                if picture.get(name) != value:
                    self._tally.complain(f"{poller.name}: {'.'.join(name)} is {picture.get(name)!s:.90}, "
                                         f"in memory {value!s:.90}")
        for name, text in different(soak.device, tree):
            self._tally.complain(f"all.cgi: {name} is {text}")
        return soak.browser.check(last)

    def _bring_up_to_date(self, pollers, counter):
        """A poller that did not wait for the last change notices its gap with the next, so others follow it."""
        for _ in range(WAIT_SECONDS):
            try:
                return wait_until(lambda: all(p.number == counter.value and not p.has_gap for p in pollers), 1, "rest")
            except TimeoutError:
                counter.tick()
        return self._tally.complain(f"pollers have {[p.number for p in pollers]} instead of the last change {counter.value}")

    def _expect(self, is_so, text):
        try:
            wait_until(is_so, WAIT_SECONDS, "rest")
        except TimeoutError:
            self._tally.complain(text())

    # Nothing grown

    def _measure_idle(self, log_kib):
        life = self._soak.unit.life
        process = Process(life.pid)
        wanted = self.rests[0].descriptors if self.rests else 0
        settle(process, wanted)
        used = process.processor_share(IDLE_SECONDS)
        return (time.time(), len(self._soak.unit.lives), process.descriptors(), process.memory_kib("VmRSS"), log_kib,
                used)

    def _measure_cost(self):
        """For a tree and a small set: microseconds of the service's processor, milliseconds until the quickest answer."""
        process = Process(self._soak.unit.life.pid)
        with closing(connect(self._soak.device.http_port)) as connection:
            (tree_us, tree_ms), (set_us, set_ms) = (
                min(cost(process, connection, count, request) for _ in range(BATCHES))
                for count, request in ((TREES, ("GET", TREE)), (SETS, NOTHING)))
        return tree_us, set_us, tree_ms, set_ms


def cost(process, connection, count, request):
    before, times = process.processor_seconds(), []
    for _ in range(count):
        begin = time.monotonic()
        exchange(connection, *request)
        times.append(time.monotonic() - begin)
    return (process.processor_seconds() - before) / count * 1e6, min(times) * 1000


def leak(port):
    """Connections that the service has accepted: before, it has no descriptors of them."""
    connections = [connect(port) for _ in range(LEAKED)]
    for connection in connections:
        connection.connect()
    wait_until(lambda: not has_pending_connections(port), WAIT_SECONDS, "leaked connections")
    return connections


def settle(process, wanted):
    """Waits until the process has as many descriptors as wanted, or until their number has stayed the same in SAME_TURNS
    turns of its loop. A process that gets no processor closes nothing, so only looks between which it has run count."""
    last, ran, same, end = -1, 0, 0, time.monotonic() + WAIT_SECONDS
    while last != wanted and same < SAME_TURNS and time.monotonic() < end:
        time.sleep(TURN_SECONDS)
        now, seconds = process.descriptors(), process.processor_seconds()
        same = same + (seconds > ran) if now == last else 0
        last, ran = now, seconds


def different(device, tree):
    """Numbers and bools of the tree that are not those of the memories."""
    segments = {}
    with open(REPOSITORY / "gen/model/ledger/variables.csv") as file:
        for row in csv.DictReader(file):
            memory, form = row["memory"], FORMS.get(row["type"])
            value = tree.get((memory, row["name"]))
            if form is None or value is None:
                continue
            data = segments.setdefault(memory, Path(device.segment(memory)).read_bytes())
            stored, = struct.unpack_from(form, data, 4 + int(row["location"]))
            if not is_same(stored, value["value"]):
                yield f"{memory}.{row['name']}", f"{value['value']}, in memory {stored}"


def is_same(stored, text):
    if isinstance(stored, bool):
        return text == ("true" if stored else "false")
    return abs(float(text) - stored) <= 1e-5 * max(1, abs(stored))
