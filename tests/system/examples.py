"""The worked examples of the API reference, run for real.

    python3 examples.py <page>...            runs each page's commands and writes what they gave behind them

A page is Markdown. In its blocks

    ```console
    $ curl -s $A/api/v1/all.cgi | head -c 20
    what came
    ```

the lines behind "$ ", continued by "> ", are commands of one shell, all on one fresh virtual device, whose web server
is $A. A comment "<!-- examples: --speed 4 -->" gives the arguments of its simulation. What differs by nature from run
to run is written as if it did not.
"""

import os
import re
import select
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from systemdevice import SystemDevice, wait_until

COMMAND_SECONDS = 60
END = "=== end of the command, jobs: "
BLOCK = re.compile(r"(?<=^```console\n).*?(?=^```$)", re.MULTILINE | re.DOTALL)
ARGUMENTS = re.compile(r"<!-- examples:(.*?)-->")
CURL_THAT_TELLS = 'curl() { command curl --trace-ascii .sent.$BASHPID "$@"; }\n'
# Texts that no page and no simulation changes.
FORGOTTEN = ("EditValueStringBackup_Local", "TempLensFileName_Local", "ELEMENT_4", "ELEMENT_5")
# What differs by nature, and what stands in its place.
SAME = [
    (re.compile(r"\[ *\d+\.\d{6}\]"), "[   42.123456]"),  # time since the start
    (re.compile(r"(\.cpp: </span><span style=''>) *\d+"), r"\g<1> 100"),  # lines of the sources
    (re.compile(r'("space_total": )\d+'), r"\g<1>3758096384"),
    (re.compile(r'("space_available": )\d+'), r"\g<1>1073741824"),
    (re.compile(r"^\d{4,6}$", re.MULTILINE), "3378"),  # length of the log
]


class Shell:
    """A shell in a folder of its own, as somebody uses it at a device."""

    def __init__(self, device, folder):
        self._device = device
        self._folder = Path(folder)
        self._process = subprocess.Popen(
            ["bash", "--norc"], cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "A": device.url})
        self._send(CURL_THAT_TELLS)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.stdin.close()
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()

    def run(self, command):
        """What the command prints. Requests that it leaves in the background have reached the service."""
        self._wait_for_log()
        is_left_waiting = command.endswith(("&", "& done"))
        if is_left_waiting:
            self._forget_changes()
        self._send(f'rm -f .sent.*\n{command}\necho; jobs -r > .jobs; echo "{END}$(wc -l < .jobs)"\n')
        output, _, jobs = self._read().rpartition("\n" + END)
        if is_left_waiting:
            wait_until(lambda: self._sent() == int(jobs), "the requests in the background")
            self._sync()
        return output

    def _send(self, words):
        self._process.stdin.write(words.encode())
        self._process.stdin.flush()

    def _read(self):
        end, output = time.monotonic() + COMMAND_SECONDS, b""
        while not re.search(re.escape(END).encode() + rb"\d+\n$", output):
            ready, _, _ = select.select([self._process.stdout], [], [], max(0, end - time.monotonic()))
            data = os.read(self._process.stdout.fileno(), 65536) if ready else b""
            assert data, f"no end of the command; it printed {output!r}"
            output += data
        return output.decode(errors="replace")

    def _sent(self):
        """How many curls of the last command have sent their request."""
        return sum(b"=> Send header" in trace.read_bytes() for trace in self._folder.glob(".sent.*"))

    def _sync(self):
        """Returns when web server and service have taken all that was sent to them before: each has one thread, which
        takes what comes first. Nothing is logged and nothing changes."""
        assert self._device.http("/api/v1/set.cgi")[0] == 200
        self._device.ping()

    def _forget_changes(self):
        """Returns when no change from before can reach a request that begins to wait now."""
        # An answer may still come for changes from before, and then the one that is made here is on its way. So that it
        # is known by its name, each is another one.
        for name in FORGOTTEN:
            with self._device.connect() as waiting:
                waiting.send_request("/api/v1/update.cgi")
                self._sync()
                self._device.ask("/api/v1/set.cgi", f'{{"MemGuiLocal": {{"{name}": ""}}}}'.encode())
                if name.encode() in waiting.answer().body:  # a text is told with every set
                    return
        raise AssertionError("changes go on")

    def _wait_for_log(self):
        """Returns when log.cgi has all that was logged."""
        def is_there():
            with self._device.connect() as connection:
                log = connection.ask("/api/v1/log.cgi").output
            _, _, text = log.partition(b"\r\n\r\n")[2].partition(b"\r\n")
            return text.count(b"\n") == self._device.log().count("\n")

        wait_until(is_there, "the log")


def run_page(text):
    """The page with what its commands give now."""
    arguments = ARGUMENTS.search(text)
    with SystemDevice(simulation=tuple(arguments[1].split()) if arguments else ("--still",), display=(),
                      nginx=True) as device, tempfile.TemporaryDirectory() as folder, Shell(device, folder) as shell:
        return BLOCK.sub(lambda block: run_block(shell, block[0]), text)


def run_block(shell, block):
    lines = []
    for command in re.findall(r"^\$ .*\n(?:> .*\n)*", block, re.MULTILINE):
        output = shell.run(re.sub(r"^[$>] ", "", command, flags=re.MULTILINE).rstrip("\n"))
        lines.append(command + shown(output))
    return "".join(lines)


def shown(output):
    """The output as the page has it: line ends of this system, and one at the end."""
    text = output.replace("\r\n", "\n").replace("\r", "")
    for pattern, replacement in SAME:
        text = pattern.sub(replacement, text)
    return text if text.endswith("\n") or not text else text + "\n"


def main():
    for page in map(Path, sys.argv[1:]):
        print(f"Running the examples of {page}", flush=True)
        before = page.read_text()
        after = run_page(before)
        page.write_text(after)
        print("  as they were" if after == before else "  written anew", flush=True)


if __name__ == "__main__":
    main()
