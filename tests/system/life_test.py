"""How the service begins and ends, with and without the processes that it lives with."""

import contextlib
import os
import re
import signal
import socket
import struct
import time

import pytest

from brokerclient import BrokerClient
from systemdevice import SystemDevice, wait_until
from virtualdevice import DeviceError

UPDATE = "/api/v1/update.cgi"
SET = "/api/v1/set.cgi"
BRIGHTER = b'{"MemPersistent":{"DisplayBrightness":%d}}'
DONE = b'{"result": 1 }'
END_ONLY = b"\1\3\0\1\0\x08\0\0" + bytes(8)
ABORTED = -signal.SIGABRT


@pytest.fixture(scope="module")
def shared_device():
    """Its service is started by each test and ended by it."""
    with SystemDevice(service=False) as device:
        yield device


@pytest.fixture
def device(shared_device):
    shared_device.write("MemApp", 0, struct.pack("<i", 5))
    shared_device.start_service()
    yield shared_device
    assert "service" not in shared_device.pids or shared_device.end("service") == 0


def log_line(level, source, text):
    """A whole line of the service in the kernel log."""
    return re.compile(rf"^{'webservice':>20}  {level:12}{source:>20}: *\d+ {re.escape(text)}$", re.MULTILINE)


# The end


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_right_after_an_answer_ends_with_status_0(device, number):
    for value in range(4):
        assert device.ask(SET, BRIGHTER % value) == DONE
    assert device.end("service", number) == 0
    assert log_line("LogLight", "eventpoll.cpp", f"SIG {number}: {signal.strsignal(number)}").search(device.log())


@pytest.mark.parametrize("keep", [False, True])
def test_a_signal_ends_requests_that_wait(device, keep):
    waiting = [device.wait_for_update(keep=keep) for _ in range(3)]
    answered = device.connect()
    answered.ask("a", keep=True)
    begin = time.monotonic()
    assert device.end("service") == 0
    assert time.monotonic() - begin < 5
    for connection in waiting:
        assert connection.answer().raw == END_ONLY
        assert connection.is_closed()
    assert answered.is_closed()


def test_a_signal_in_the_middle_of_everything_ends_with_status_0(device):
    connections = []
    for number in range(40):
        connections.append(device.connect())
        connections[-1].send_request((UPDATE, "/api/v1/all.cgi", SET, "a")[number % 4], keep=number % 3 == 0)
    assert device.end("service") == 0
    for connection in connections:
        connection.close()


def test_a_service_that_was_killed_starts_again_at_once(device):
    with device.wait_for_update():
        assert device.end("service", signal.SIGKILL) == -signal.SIGKILL
        device.start_service()
    assert device.ask(SET, BRIGHTER % 1) == DONE


# The beginning


@pytest.fixture
def bare(catalogue):
    """A device of which the service makes no more than it needs to find out that something is missing."""
    with SystemDevice(simulation=None, service=False, may_fail=["service", "broker"]) as device:
        device.make_segments(catalogue.sizes())
        yield device


def fails_to_start(device):
    """The service's last words."""
    with pytest.raises(DeviceError):
        device.start_service()
    assert device.end("service") == ABORTED
    return device.output("service")


@pytest.mark.parametrize("memory", ["MemPersistent", "MemLens", "MemApp"])
def test_a_missing_segment_ends_the_start(bare, memory):
    bare.segment(memory).unlink()
    text = f"/{memory}: No such file or directory"
    assert text in fails_to_start(bare)
    assert log_line("Error", "sharedmemory.cpp", text).search(bare.log())


@pytest.mark.parametrize("content, size", [
    (struct.pack("<I", 64) + bytes(68), 64),
    (struct.pack("<I", 72) + bytes(72), 72),
    (struct.pack("<I", 0xFFFFFFFF) + bytes(68), 4294967295),
    (struct.pack("<I", 68) + bytes(60), 60),  # cut off
    (b"", 0),
    (b"\x44", 0),
], ids=["smaller", "larger", "huge", "cut off", "empty", "one byte"])
def test_a_segment_of_another_size_ends_the_start(bare, content, size):
    bare.segment("MemApp").write_bytes(content)
    text = f"Memory size missmatch for /MemApp, requested 68, is {size}."
    assert text in fails_to_start(bare)
    assert log_line("Error", "sharedmemory.cpp", text).search(bare.log())


def test_a_missing_broker_ends_the_start(bare):
    assert bare.end("broker") == 0
    assert "sem_open: No such file or directory" in fails_to_start(bare)
    assert log_line("LogLight", "serverconnection.cpp", "Waiting for server").search(bare.log())
    assert log_line("Error", "serverconnection.cpp", "sem_open: No such file or directory").search(bare.log())


def test_a_failed_connect_gives_the_semaphore_back(bare):
    bare.end("broker", signal.SIGKILL)  # its semaphore and its socket stay
    for _ in range(3):
        assert "connect: Connection refused" in fails_to_start(bare)
    bare.path("/var/volatile/message-broker.socket").unlink()
    assert "connect: No such file or directory" in fails_to_start(bare)


def test_a_port_in_use_ends_the_start(bare):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", bare.fcgi_port))
        taken.listen()
        bare.start_service()  # seems ready: somebody listens
        wait_until(lambda: bare.ended() == ["service"], "the end of the service")
    assert bare.end("service") == ABORTED
    assert log_line("Error", "fcgi.cpp", "bind: Address already in use").search(bare.log())


def test_a_good_start_is_told_in_the_log(bare):
    bare.start_service()
    assert re.search(r"serverconnection.cpp: *\d+ Connected after \d+ attempts$", bare.log(), re.MULTILINE)
    bare.ping()
    assert bare.end("service") == 0
    assert bare.output("service") == ""


# Without a broker, and with a new one


def test_the_service_goes_on_without_the_broker(device):
    with device.wait_for_update() as waiting:
        device.end("broker")
        assert b'"MemApp" : {' in device.ask("/api/v1/all.cgi")
        assert b'{"result": ' in device.ask(SET, BRIGHTER % 1) + device.ask(SET, BRIGHTER % 2)
        assert device.is_idle()
        assert waiting.is_silent(0.1)
    assert device.end("service") == 0
    device.start_broker()
    device.start_service()
    with device.wait_for_update() as waiting, BrokerClient(device) as events:
        assert device.ask(SET, BRIGHTER % 5) == DONE
        assert events.posted() == [(221, 0, 0)]
        assert b'"DisplayBrightness" : {"max":"10","min":"0","type":"int","value":"5"}' in waiting.answer().body


# What it is otherwise


def test_the_log_level_is_the_variable(device):
    def logged(level):
        device.ask(SET, b'{"MemApp":{"AppServiceLogLevel":"%s"}}' % level)
        before = len(device.log())
        with device.connect() as connection:
            connection.ask("/api/v1/all.cgi", request_id=7, SCRIPT_FILENAME="all", REMOTE_ADDR="10.0.0.1",
                           SERVER_ADDR="10.0.0.2", HTTP_USER_AGENT="%s test")
        device.ask("nowhere")
        text = device.log()[before:]
        return [bool(log_line(*line).search(text)) for line in (
            ("DebugMost", "requesthandler.cpp", f"REQUEST handle({handle(text)}, 7, /api/v1/all.cgi)"),
            ("LogLight", "requesthandler.cpp", "Request all from 10.0.0.1 to 10.0.0.2 by %s test"),
            ("Warn", "requesthandler.cpp", "Unknown script: 'nowhere'"))]

    def handle(text):
        found = re.search(r"REQUEST handle\((\d+), 7,", text)
        return found[1] if found else "none"

    assert logged(b"DebugAll") == [True, True, True]
    assert logged(b"DebugMost") == [True, True, True]
    assert logged(b"LogLight") == [False, True, True]
    assert logged(b"Warn") == [False, False, True]
    assert logged(b"Error") == [False, False, False]


def test_every_descriptor_is_closed_on_exec(device):
    waiting = device.wait_for_update()
    folder = f"/proc/{device.pids['service']}/fdinfo"
    for descriptor in set(os.listdir(folder)) - {"0", "1", "2"}:
        with contextlib.suppress(FileNotFoundError):  # an answered request's connection, closed meanwhile
            with open(f"{folder}/{descriptor}") as file:
                flags = re.search(r"flags:\s*(\d+)", file.read())[1]
            assert int(flags, 8) & os.O_CLOEXEC, os.readlink(f"{folder[:-4]}/{descriptor}")
    waiting.close()
