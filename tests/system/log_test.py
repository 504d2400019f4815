"""log.cgi: offsets, waiting requests, and the end of the child that reads the log."""

import os
import signal
from pathlib import Path

import pytest

from systemdevice import LOG, SystemDevice, wait_until

HEADER = b"Content-type: text/html\r\n\r\n"


class Feed:
    """A dmesg that prints the bytes that the test writes."""

    def __init__(self, folder):
        self._end = None
        self._fifo = folder / "fifo"
        os.mkfifo(self._fifo)
        tool = folder / "dmesg"
        tool.write_text(f'#!/bin/sh\nexec cat "{self._fifo}"\n')
        tool.chmod(0o755)
        self.environment = {"PATH": f"{folder}:{os.environ['PATH']}"}

    def __enter__(self):
        self._end = open(self._fifo, "wb", buffering=0)
        return self

    def __exit__(self, *_):
        self._end.close()

    def write(self, device, data, size):
        """Returns when the device's log has `size` bytes."""
        self._end.write(data)
        wait_until(lambda: ask(device).startswith(b"%d\r\n" % size), f"{size} bytes of log")


@pytest.fixture
def feed(tmp_path):
    return Feed(tmp_path)


@pytest.fixture
def fed(feed):
    """A device whose kernel log is the feed."""
    with SystemDevice(environment=feed.environment) as device, feed:
        yield device


def ask(device, query=""):
    """The output after the header."""
    with device.connect() as connection:
        return connection.ask(LOG, QUERY_STRING=query).output.removeprefix(HEADER)


def test_offset_selects_the_rest_of_the_text(fed, feed):
    assert ask(fed) == ask(fed, "offset=0") == ask(fed, "offset=7") == b"0\r\n"
    text = b"<span style='color: #AA0000'><tag>&\n"
    feed.write(fed, b"\033[31m<tag>&\n", len(text))
    for query in ("", "offset=0", "offset=37", "x=1&offset=5", "Offset=5"):
        assert ask(fed, query) == b"36\r\n" + text, query
    for query in ("offset=30", "offset= 30", "offset=30x", "offset=+030&x=1"):
        assert ask(fed, query) == b"36\r\n" + text[30:], query
    with fed.connect() as waiting:
        waiting.send_request(LOG, QUERY_STRING=f"offset={len(text)}")
        for offset in ("abc", "", "-5", "99999999999999", "\0"):
            assert ask(fed, f"offset={offset}") == b"36\r\n", "ends this request only"
        feed.write(fed, b"7", 37)
        assert waiting.answer().output == HEADER + b"36\r\n7"


def parent_and_state(pid):
    """From /proc/PID/stat; a process that has gone is like a zombie."""
    try:
        state, parent = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[:2]
        return int(parent), state
    except OSError:
        return 0, "Z"


def test_child_ends_when_the_service_is_killed(feed):
    with SystemDevice(environment=feed.environment, may_fail={"service"}) as device, feed:
        device.ping()  # it listens before it starts the child
        children = [pid for pid in os.listdir("/proc")
                    if pid.isdigit() and parent_and_state(pid)[0] == device.pids["service"]]
        assert children
        device.end("service", signal.SIGKILL)
        wait_until(lambda: all(parent_and_state(pid)[1] == "Z" for pid in children), "the end of the child")
