"""Clients that follow the updates, and what they may miss.

The service builds one document in 100 ms and sends it to all requests that wait. A change for which no request waits is
dropped, so a client reads the whole tree after a gap. The counter's value, a time, is a document's number. A poller has a
gap, and reads the tree again,

    if two documents in a row are 200 ms or more apart, so that the service may have built another one between them
    if it has not received a document that another poller has received. Then its request was late, or, if it had been waiting
    for NEAR_SECONDS or longer, the document is lost
"""

import http.client
import json
import re
import threading
import time
from collections import deque
from contextlib import closing

from counter import MEMORY, VARIABLE
from measure import connect, exchange

UPDATE, TREE = "/api/v1/update.cgi", "/api/v1/all.cgi"
NEAR_SECONDS = 1
CERTAIN_MS = 200
KNOWN_SECONDS = 1  # by then all pollers have received a document
KEPT_SECONDS = 30
RETRY_SECONDS = 0.2
TREE_NUMBER = re.compile(rb'"%s" *: *\{[^}]*"value":"(\d+)"' % VARIABLE.encode())
FAILURES = (OSError, http.client.HTTPException, ValueError)


def flat(document):
    """The variables of a document: (memory, name) to value."""
    return {(memory, name): value for memory, all_of_it in document["variables"].items()
            for name, value in all_of_it.items()}


def number_of(variables):
    """The counter's value in the variables, None if it did not change."""
    value = variables.get((MEMORY, VARIABLE))
    return None if value is None else int(value["value"])


class Documents:
    """All documents: parsed once, and when each was first received."""

    def __init__(self):
        self._first = {}
        self._parsed = deque(maxlen=4)
        self._lock = threading.Lock()

    def parse(self, text):
        """The variables of an update. Documents differ by the request's id, in the line after the first."""
        body = text.split(b"\r\n", 2)[2]
        for known, variables in list(self._parsed):
            if known == body:
                return variables
        variables = flat(json.loads(b"{" + body))
        self._parsed.append((body, variables))
        return variables

    def received(self, number, now):
        with self._lock:
            self._first.setdefault(number, now)
            for old in [n for n, when in self._first.items() if when < now - KEPT_SECONDS]:
                del self._first[old]

    def between(self, first, last, now):
        """(number, when) of the documents between two numbers that every poller has received by now."""
        with self._lock:
            return [(number, when) for number, when in self._first.items()
                    if first < number < last and when < now - KNOWN_SECONDS]


class Poller(threading.Thread):
    """number    of its last document, or of the tree that it has read after it
    has_gap   whether it has to read the tree
    """

    def __init__(self, name, port, counter, documents, tally, end):
        super().__init__(daemon=True, name=name)
        self._tree = b""
        self._changes = {}
        self.number = self._base = 0
        self.has_gap = True
        self._port = port
        self._counter = counter
        self._documents = documents
        self._tally = tally
        self._end = end
        self._sent = time.time()
        self._waits = deque(maxlen=200)
        self._received = deque(maxlen=1000)

    def picture(self):
        """Its variables."""
        return flat(json.loads(self._tree)) | self._changes

    def run(self):
        while not self._end.is_set():
            self.has_gap = True
            try:
                self._follow()
            except FAILURES as error:
                self._tally.failed("update", self._sent, f"{self.name}: {error!r}")
                self._end.wait(RETRY_SECONDS)

    def _follow(self):
        with closing(connect(self._port)) as updates, closing(connect(self._port)) as trees:
            while not self._end.is_set():
                self._sent = time.time()
                updates.request("GET", UPDATE)
                if self.has_gap:  # each change is in the tree or in the answer
                    self._read_tree(trees)
                response = updates.getresponse()
                text = response.read()
                if response.status != 200:
                    raise http.client.HTTPException(f"status {response.status}")
                self._take(self._documents.parse(text))

    def _read_tree(self, connection):
        self._tree = exchange(connection, "GET", TREE)
        self._changes = {}
        self.number = self._base = int(TREE_NUMBER.search(self._tree)[1])
        self.has_gap = False
        self._tally.done("all.cgi after a gap")

    def _take(self, variables):
        now = time.time()
        self._waits.append((self._sent, now))
        self._tally.done("update.cgi")
        number = number_of(variables)
        if number is not None:
            self._documents.received(number, now)
            if number < self._base:
                self.has_gap = True  # older than the tree, and others may follow until the next request
                return
            if number < self.number:
                self._tally.complain(f"{self.name}: the counter goes back from {self.number} to {number}")
            if self._counter.after(number) - self.number >= CERTAIN_MS:
                self.has_gap = True
            self.number = number
            self._received.append(number)
        self._changes.update(variables)
        self._look_for_gap(now)

    def _look_for_gap(self, now):
        received = set(self._received)
        for number, when in self._documents.between(self._base, self.number, now):
            if number not in received:
                self.has_gap = True
                self._count_miss(when)

    def _count_miss(self, when):
        waited = any(sent < when - NEAR_SECONDS and when < answered for sent, answered in self._waits)
        self._tally.done("documents lost" if waited else "documents missed by a late poller")
        if waited:
            self._tally.failed("document", when, f"{self.name} had waited, but did not get a document", end=when)
