"""The kernel log on the web: log.cgi, and the life of the child that reads the log."""

import http.client
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
        self._end = None

    def open(self):
        self._end = open(self._fifo, "wb", buffering=0)
        wait_until(self._pids.exists, "the tool")
        wait_until(self._pids.read_text, "the tool")

    def write(self, data):
        self._end.write(data)

    def close(self):
        self._end.close()

    def running(self):
        """The processes of the tool that still run."""
        return [pid for pid in self._pids.read_text().split() if state(pid) not in ("", "Z")]


def state(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0]
    except FileNotFoundError:
        return ""


def zombies(parent):
    children = Path(f"/proc/{parent}/task/{parent}/children").read_text().split()
    return [child for child in children if state(child) == "Z"]


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
    write(fed, feed, b"\033[31m<tag>&\n", 36)
    text = b"<span style='color: #AA0000'><tag>&\n"
    for query in ("", "offset=0", "offset=37", "x=1&offset=5", "Offset=5"):
        assert ask(fed, query) == b"36\r\n" + text, query
    for query in ("offset=30", "offset= 30", "offset=30x", "offset=+030&x=1"):
        assert ask(fed, query) == b"36\r\n" + text[30:], query


def test_a_request_at_the_end_waits_for_more_and_tells_the_length_that_it_came_with(fed, feed):
    write(fed, feed, b"12345\n", 6)
    with fed.connect() as first, fed.connect() as second, fed.connect() as update:
        for connection in (first, second):
            connection.send_request(LOG, QUERY_STRING="offset=6")
        update.send_request("/api/v1/update.cgi")
        assert first.is_silent() and second.is_silent()
        write(fed, feed, b"78\n", 9)
        for connection in (first, second):
            assert connection.answer().output == HEADER + b"6\r\n78\n"
        assert update.is_silent()


def test_a_large_log_arrives_whole(fed, feed):
    line = b"%0256d\n" % 1
    for count in range(100, 2100, 100):
        write(fed, feed, line * 100, count * len(line))
    assert ask(fed) == b"%d\r\n" % (2000 * len(line)) + line * 2000


@pytest.mark.parametrize("offset", ["abc", "", "-5", "99999999999999", "-99999999999999", "\0"])
def test_a_bad_offset_ends_that_request_and_nothing_else(fed, feed, offset):
    write(fed, feed, b"12345\n", 6)
    with fed.connect() as waiting:
        waiting.send_request(LOG, QUERY_STRING="offset=6")
        assert ask(fed, f"offset={offset}") == b"6\r\n"
        write(fed, feed, b"7", 7)
        assert waiting.answer().output == HEADER + b"6\r\n7"


def test_when_the_child_is_gone_it_is_told_once_and_the_service_rests(fed, feed):
    write(fed, feed, b"12345\n", 6)
    service = fed.pids["service"]
    before = fed.descriptors()
    waiting = fed.connect()
    waiting.send_request(LOG, QUERY_STRING="offset=6")
    feed.close()
    wait_until(lambda: fed.log_lines(GONE), "the line")
    wait_until(lambda: zombies(service) == [] and feed.running() == [], "the end of the child")
    assert fed.is_idle()
    assert ask(fed) == b"6\r\n12345\n"
    assert waiting.is_silent()
    waiting.close()
    wait_until(lambda: fed.descriptors() == before, "descriptors back where they were")
    assert len(fed.log_lines(GONE)) == 1
    assert fed.end("service") == 0


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGKILL])
def test_no_child_outlives_the_service(fed, feed, number):
    write(fed, feed, b"1", 1)
    assert len(feed.running()) >= 2
    fed.end("service", number)
    if number == signal.SIGKILL:
        feed.write(b"2")  # what stayed below the shell ends with the next line
    wait_until(lambda: feed.running() == [], "the end of the child")


def test_without_dmesg_the_log_is_empty(tmp_path):
    (tmp_path / "dmesg").touch(mode=0o644)
    with SystemDevice(environment={"PATH": str(tmp_path)}) as device:
        wait_until(lambda: device.log_lines(GONE), "the line")
        assert ask(device) == ask(device, "offset=0") == b"0\r\n"


def test_lines_of_the_service_appear_coloured(device):
    device.ping()
    line = re.compile(rb"<span style='color: #00AA00'>\[ *\d+\.\d{6}\] </span>"
                      rb"<span style='color: #AAAA00'> +webservice  Warn +requesthandler\.cpp: </span>"
                      rb"<span style=''> *\d+ Unknown script: 'ping'</span>\n")
    wait_until(lambda: line.search(ask(device)), "the line")
    assert device.is_idle()


def test_the_virtual_tool_ends_with_its_reader():
    with SystemDevice(may_fail={"service"}) as device:
        wait_until(lambda: ask(device) != b"0\r\n", "what the tool prints")
        service = device.pids["service"]
        children = Path(f"/proc/{service}/task/{service}/children").read_text().split()
        group = [pid for pid in os.listdir("/proc") if pid.isdigit() and belongs(pid, children)]
        assert group
        device.end("service", signal.SIGKILL)
        wait_until(lambda: [pid for pid in group if state(pid) not in ("", "Z")] == [], "the end of the tool")


def belongs(pid, groups):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[2] in groups
    except OSError:
        return False


def test_the_web_server_lets_thirty_wait_and_shows_colours(feed, web_server):
    with SystemDevice(**{web_server: True}, environment=feed.environment) as device:
        feed.open()
        write(device, feed, b"12345\n", 6)
        response = get(device, LOG)
        assert (response.status, response.headers["Content-Type"]) == (200, "text/html")
        assert "style-src 'unsafe-inline';" in response.headers["Content-Security-Policy"]
        before = device.descriptors()
        device.write("MemApp", 0, LOG_REQUESTS)
        clients = [send(device, path) for path in [f"{LOG}?offset=6", UPDATE] * 15]
        wait_until(lambda: [device.handled(LOG), device.handled(UPDATE)] == [15, 15], "all that wait")
        assert get(device, LOG).status == get(device, UPDATE).status == 503
        feed.write(b"more")
        assert [client.getresponse().read() for client in clients[::2]] == [b"6\r\nmore"] * 15
        for client in clients:
            client.close()
        device.ask("/api/v1/set.cgi", b'{"MemPersistent":{"ProductName":"Hand unit"}}')
        kept = len(clients[::2])  # by the web server, for the next requests
        wait_until(lambda: device.descriptors() <= before + kept, "an end of all that still waited")


def send(device, path):
    connection = http.client.HTTPConnection("127.0.0.1", device.http_port, timeout=20)
    connection.request("GET", path)
    return connection


def get(device, path):
    return send(device, path).getresponse()
