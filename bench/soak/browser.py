"""The browser with the console's page, if the machine has one."""

import json
import os
import subprocess

from counter import MEMORY, VARIABLE
from measure import REPOSITORY

GROWTH_BYTES = 8 * 1024 * 1024


class Browser:
    """is_open   whether there is a browser"""

    def __init__(self, build, url, tally):
        self._tally = tally
        self._heap = 0
        command = [REPOSITORY / "tests/browser/run", build, REPOSITORY / "bench/soak/page.mjs", url, f"{MEMORY}.{VARIABLE}"]
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                         start_new_session=True, env={**os.environ})
        first = self._process.stdout.readline()
        self.is_open = first != ""
        if self.is_open:
            self._heap = json.loads(first)["heap"]

    def check(self, value):
        """Complains if the page does not show the counter's value, or if its heap has grown. Returns the heap's KiB."""
        if not self.is_open:
            return 0
        self._process.stdin.write(f"{value}\n")
        self._process.stdin.flush()
        answer = json.loads(self._process.stdout.readline() or '{"shows": "the browser has ended", "heap": 0, "faults": []}')
        if answer["shows"] is not True:
            self._tally.complain(f"the page does not show the last value: {answer['shows']:.300}")
        for fault in answer["faults"]:
            self._tally.complain(f"the page: {fault:.300}")
        if answer["heap"] > self._heap + GROWTH_BYTES:
            self._tally.complain(f"the page's heap grows from {self._heap} to {answer['heap']} bytes")
        return answer["heap"] // 1024

    def close(self):
        self._process.stdin.close()
        try:
            self._process.wait(30)
        except subprocess.TimeoutExpired:
            self._process.kill()
