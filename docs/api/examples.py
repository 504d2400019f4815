"""Runs the worked examples of the API reference and writes their output into the pages.

    python3 docs/api/examples.py BUILD_FOLDER PAGE...

A page is Markdown. In its blocks

    ```console
    $ curl -s $A/api/v1/all.cgi | head -c 20
    output
    ```

the lines behind "$ ", continued by "> ", are commands of one shell. All commands of a page run on one fresh virtual
device; $A is the address of its web server. A comment "<!-- examples: --speed 4 -->" gives the arguments of the
device's simulation. Output that differs between runs, such as times, is replaced by constants.
"""

import os
import re
import select
import subprocess
import sys
import tempfile
import time
from http.client import HTTPConnection
from pathlib import Path
from urllib.error import HTTPError
from urllib.request import urlopen

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "device" / "launcher"))

from desk import has_pending_connections
from virtualdevice import VirtualDevice

WAIT_SECONDS = 60
END = "=== end of the command, jobs: "
BLOCK = re.compile(r"(?<=^```console\n).*?(?=^```$)", re.MULTILINE | re.DOTALL)
ARGUMENTS = re.compile(r"<!-- examples:(.*?)-->")
TRACING_CURL = 'curl() { command curl --trace-ascii .sent.$BASHPID "$@"; }\n'
# Text variables that no page and no simulation changes.
UNUSED = ("EditValueStringBackup_Local", "TempLensFileName_Local", "ELEMENT_4", "ELEMENT_5")
REPLACEMENTS = [
    (re.compile(r"\[ *\d+\.\d{6}\]"), "[   42.123456]"),  # time since the start
    (re.compile(r"(\.cpp: </span><span style=''>) *\d+"), r"\g<1> 100"),  # source lines
    (re.compile(r'("space_total": )\d+'), r"\g<1>3758096384"),
    (re.compile(r'("space_available": )\d+'), r"\g<1>1073741824"),
    (re.compile(r"^\d{4,6}$", re.MULTILINE), "3378"),  # length of the log
    (re.compile(r"\b\d{16}\b"), "7530150715457648"),  # number of a change
]


def wait_until(is_so, what):
    end = time.monotonic() + WAIT_SECONDS
    while not is_so():
        if time.monotonic() > end:
            raise TimeoutError(f"still waiting for: {what}")
        time.sleep(0.002)


class Shell:
    """A shell in a folder of its own whose commands use the device."""

    def __init__(self, device, folder):
        self._device = device
        self._folder = Path(folder)
        self._process = subprocess.Popen(
            ["bash", "--norc"], cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "A": device.url})
        self._send(TRACING_CURL)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.stdin.close()
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()

    def run(self, command):
        """Returns the command's output. Requests that it leaves in the background have reached the service."""
        wait_until(self._log_is_complete, "the log")
        runs_in_background = command.endswith(("&", "& done"))
        if runs_in_background:
            self._deliver_earlier_changes()
        self._send(f'rm -f .sent.*\n{command}\necho; jobs -r > .jobs; echo "{END}$(wc -l < .jobs)"\n')
        output, _, jobs = self._read().rpartition("\n" + END)
        if runs_in_background:
            wait_until(lambda: self._sent() == int(jobs), "the requests in the background")
            self._sync()
        return output

    def _send(self, words):
        self._process.stdin.write(words.encode())
        self._process.stdin.flush()

    def _read(self):
        end, output = time.monotonic() + WAIT_SECONDS, b""
        while not re.search(re.escape(END).encode() + rb"\d+\n$", output):
            ready, _, _ = select.select([self._process.stdout], [], [], max(0, end - time.monotonic()))
            data = os.read(self._process.stdout.fileno(), 65536) if ready else b""
            if not data:
                raise TimeoutError(f"no end of the command; it printed {output!r}")
            output += data
        return output.decode(errors="replace")

    def _sent(self):
        """How many curls of the last command have sent their request."""
        return sum(b"=> Send header" in trace.read_bytes() for trace in self._folder.glob(".sent.*"))

    def _ask(self, path, body=None):
        """Returns the body of the answer once it has arrived completely."""
        with urlopen(self._device.url + path, body, WAIT_SECONDS) as answer:
            return answer.read()

    def _sync(self):
        """Returns when the service has read all requests sent before: the web server and the service each handle them
        in one thread and in order. The requests made here change nothing and log nothing."""
        self._ask("/api/v1/set.cgi", b"")
        wait_until(lambda: not has_pending_connections(self._device.fcgi_port), "connections of the web server")
        for _ in range(2):
            self._ask("/api/v1/set.cgi", b"")

    def _deliver_earlier_changes(self):
        """Returns when no earlier change can answer the next request for updates."""
        # The waiting request may be answered with earlier changes, or with those of a device that moves. The change made
        # here is then still on its way, so the next round uses another variable.
        for name in 20 * UNUSED:
            waiting = HTTPConnection(self._device.http_address, self._device.http_port, timeout=WAIT_SECONDS)
            waiting.request("GET", "/api/v1/update.cgi")
            self._sync()
            self._ask("/api/v1/set.cgi", f'{{"MemGuiLocal": {{"{name}": ""}}}}'.encode())
            update = waiting.getresponse().read()
            waiting.close()
            if name.encode() in update:  # setting a text always posts its event
                return
        raise TimeoutError("changes go on")

    def _log_is_complete(self):
        """Whether log.cgi has all lines that were logged."""
        try:
            log = self._ask("/api/v1/log.cgi")
        except HTTPError as error:  # 503: as many requests wait as may wait, so no command can read the log either
            return error.code == 503
        return log.partition(b"\r\n")[2].count(b"\n") == self._device.log().count("\n")


def run_page(text, build):
    """Returns the page with the present output of its commands."""
    arguments = ARGUMENTS.search(text)
    simulation = tuple(arguments[1].split()) if arguments else ("--still",)
    with VirtualDevice(build, simulation=simulation, display=(), nginx=True, live=True) as device, \
            tempfile.TemporaryDirectory() as folder, Shell(device, folder) as shell:
        return BLOCK.sub(lambda block: run_block(shell, block[0]), text)


def run_block(shell, block):
    lines = []
    for command in re.findall(r"^\$ .*\n(?:> .*\n)*", block, re.MULTILINE):
        output = shell.run(re.sub(r"^[$>] ", "", command, flags=re.MULTILINE).rstrip("\n"))
        lines.append(command + shown(output))
    return "".join(lines)


def shown(output):
    """The output as the page shows it: LF line ends, and one at the end."""
    text = output.replace("\r\n", "\n").replace("\r", "")
    for pattern, replacement in REPLACEMENTS:
        text = pattern.sub(replacement, text)
    return text if text.endswith("\n") or not text else text + "\n"


def main(build, *pages):
    for page in map(Path, pages):
        print(f"Running the examples of {page}", flush=True)
        before = page.read_text()
        after = run_page(before, build)
        page.write_text(after)
        print("  unchanged" if after == before else "  rewritten", flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
