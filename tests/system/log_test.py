"""The kernel log on the web: log.cgi, and the life of the child that reads the log."""

import contextlib
import os
import re
import signal
from pathlib import Path

import pytest

from systemdevice import LOG_REQUESTS, SystemDevice, wait_until

LOG = "/api/v1/log.cgi"
UPDATE = "/api/v1/update.cgi"
HEADER = b"Content-type: text/html\r\n\r\n"
GONE = "dmesg exited, no more log output for web gui."


class Feed:
    """A dmesg that prints what the test writes, and ends when the test closes. It stays below a shell."""

    def __init__(self, folder):
        self._fifo = folder / "fifo"
        self._pids = folder / "pids"
        os.mkfifo(self._fifo)
        tool = folder / "dmesg"
        tool.write_text(f'#!/bin/sh\ncat "{self._fifo}" & echo $PPID $$ $! > "{self._pids}"\nwait\n')
        tool.chmod(0o755)
        self.environment = {"PATH": f"{folder}:{os.environ['PATH']}"}

    def open(self):
        self._end = open(self._fifo, "wb", buffering=0)
        wait_until(lambda: self._pids.exists() and self._pids.read_text().endswith("\n"), "the tool")

    def write(self, data):
        self._end.write(data)

    def close(self):
        self._end.close()

    def running(self):
        """The processes of the tool that still run."""
        return [pid for pid in self._pids.read_text().split() if stat(pid)[0] not in ("", "Z")]


def stat(pid):
    """What the kernel tells of a process behind its name: state, parent, group; of one that has gone nothing."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    except OSError:
        return ["", "", ""]


def children(parent):
    return [pid for pid in os.listdir("/proc") if pid.isdigit() and stat(pid)[1] == str(parent)]


@pytest.fixture
def feed(tmp_path):
    return Feed(tmp_path)


@pytest.fixture
def fed(feed):
    """A device whose kernel log is the feed."""
    with SystemDevice(environment=feed.environment, may_fail={"service"}) as device:
        feed.open()
        yield device
        feed.close()


def ask(device, query=""):
    """What comes behind the header."""
    with device.connect() as connection:
        output = connection.ask(LOG, QUERY_STRING=query).output
    assert output.startswith(HEADER)
    return output[len(HEADER):]


def write(device, feed, data, size):
    """Returns when the log has `size` bytes."""
    feed.write(data)
    wait_until(lambda: ask(device).startswith(b"%d\r\n" % size), f"{size} bytes of log")


def test_an_offset_gives_the_rest_and_anything_else_the_whole(fed, feed):
    assert ask(fed) == ask(fed, "offset=0") == ask(fed, "offset=7") == b"0\r\n"
    text = b"<span style='color: #AA0000'><tag>&\n"
    write(fed, feed, b"\033[31m<tag>&\n", len(text))
    for query in ("", "offset=0", "offset=37", "x=1&offset=5", "Offset=5"):
        assert ask(fed, query) == b"36\r\n" + text, query
    for query in ("offset=30", "offset= 30", "offset=30x", "offset=+030&x=1"):
        assert ask(fed, query) == b"36\r\n" + text[30:], query
    for offset in ("abc", "", "-5", "99999999999999", "-99999999999999", "\0"):
        with fed.connect() as waiting:
            waiting.send_request(LOG, QUERY_STRING=f"offset={len(text)}")
            assert ask(fed, f"offset={offset}") == b"%d\r\n" % len(text), "that request ends and nothing else"
            write(fed, feed, b"7", len(text) + 1)
            assert waiting.answer().output == HEADER + b"%d\r\n7" % len(text)
        text += b"7"


def test_the_pieces_that_two_clients_wait_for_make_the_whole_and_no_update(fed, feed):
    write(fed, feed, b"start\n", 6)
    whole = expected = b"start\n"
    with fed.connect() as update:
        update.send_request(UPDATE)
        for number in range(24):
            with fed.connect() as first, fed.connect() as second:
                for connection in (first, second):
                    connection.send_request(LOG, QUERY_STRING=f"offset={len(whole)}")
                fed.ping()
                feed.write(b"\033[%dm%0*d\033[0m\n" % (30 + number % 8, number * 8 + 1, number))
                answers = [connection.answer().output for connection in (first, second)]
            assert answers[0].startswith(HEADER + b"%d\r\n" % len(whole)), "the length that it came with"
            assert answers[1] == answers[0]
            whole += answers[0].partition(b"\r\n\r\n")[2].partition(b"\r\n")[2]
            colour = b"".join(b"AA" if number & bit else b"00" for bit in (1, 2, 4))
            expected += b"<span style='color: #%s'>%0*d</span>\n" % (colour, number * 8 + 1, number)
        assert update.is_silent(0.1)
    assert whole == expected
    assert ask(fed) == b"%d\r\n" % len(whole) + whole


def test_when_the_child_is_gone_it_is_told_once_and_the_service_rests(fed, feed):
    line, count = b"%01999d\n" % 1, 40  # more than a record holds, in writes that a pipe does not divide
    for number in range(1, count + 1):
        write(fed, feed, line, number * len(line))
    before = fed.descriptors()
    with fed.connect() as waiting:
        waiting.send_request(LOG, QUERY_STRING=f"offset={count * len(line)}")
        feed.close()
        wait_until(lambda: fed.log_lines(GONE), "the line")
        wait_until(lambda: children(fed.pids["service"]) == [] and feed.running() == [], "the end of the child")
        assert fed.comes_to_rest()
        assert ask(fed) == b"%d\r\n" % (count * len(line)) + line * count
        assert waiting.is_silent(0.1)
    wait_until(lambda: fed.descriptors() == before, "descriptors back where they were")
    assert len(fed.log_lines(GONE)) == 1
    assert fed.end("service") == 0


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
def test_no_child_outlives_the_service(fed, feed, number):
    write(fed, feed, b"1", 1)
    assert len(feed.running()) >= 2
    fed.end("service", number)
    if number == signal.SIGKILL:
        feed.write(b"2")  # what stayed below the shell ends with the next line
    wait_until(lambda: feed.running() == [], "the end of the child")


def test_lines_of_the_service_appear_coloured_and_the_virtual_tool_ends_with_its_reader():
    with SystemDevice(may_fail={"service"}) as device:
        device.ask("x")
        line = re.compile(rb"<span style='color: #00AA00'>\[ *\d+\.\d{6}\] </span>"
                          rb"<span style='color: #AAAA00'> +webservice  Warn +requesthandler\.cpp: </span>"
                          rb"<span style=''> *\d+ Unknown script: 'x'</span>\n")
        wait_until(lambda: line.search(ask(device)), "the line")
        assert device.comes_to_rest()
        groups = children(device.pids["service"])
        tools = [pid for pid in os.listdir("/proc") if pid.isdigit() and stat(pid)[2] in groups]
        assert tools
        device.end("service", signal.SIGKILL)
        wait_until(lambda: [pid for pid in tools if stat(pid)[0] not in ("", "Z")] == [], "the end of the tool")


def test_the_web_server_lets_thirty_wait_for_log_or_updates(feed, web_server):
    with SystemDevice(**{web_server: True}, environment=feed.environment) as device, contextlib.ExitStack() as stack:
        feed.open()
        write(device, feed, b"12345\n", 6)
        before = device.descriptors()
        device.write("MemApp", 0, LOG_REQUESTS)
        handled = device.handled(LOG)
        clients = [stack.enter_context(contextlib.closing(device.send(path)))
                   for path in [f"{LOG}?offset=6", UPDATE] * 15]
        wait_until(lambda: [device.handled(LOG) - handled, device.handled(UPDATE)] == [15, 15], "all that wait")
        assert device.http(LOG)[0] == device.http(UPDATE)[0] == 503
        feed.write(b"more")
        assert [client.getresponse().read() for client in clients[::2]] == [b"6\r\nmore"] * 15
        stack.pop_all().close()
        device.ask("/api/v1/set.cgi", b'{"MemPersistent":{"ProductName":"Hand unit"}}')
        kept = 15  # by the web server, for the next requests
        wait_until(lambda: device.descriptors() <= before + kept, "an end of all that still waited")
