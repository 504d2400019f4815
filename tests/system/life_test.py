"""How the service begins and ends, with and without the processes that it lives with."""

import contextlib
import os
import re
import signal
import socket
import struct

import pytest

from brokerclient import BrokerClient
from systemdevice import SystemDevice, wait_until
from virtualdevice import DeviceError

UPDATE = "/api/v1/update.cgi"
SET = "/api/v1/set.cgi"
BRIGHTER = b'{"MemPersistent":{"DisplayBrightness":%d}}'
DONE = b'{"result": 1 }'
END_ONLY = b"\1\3\0\1\0\x08\0\0" + bytes(8)


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
    assert shared_device.output("service") == ""


def is_logged(device, level, source, text, since=0):
    """Whether there is a whole line of the service in the kernel log."""
    line = rf"^{'webservice':>20}  {level:12}{source:>20}: *\d+ {re.escape(text)}$"
    return re.search(line, device.log()[since:], re.MULTILINE) is not None


# The end


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_requests_that_wait_and_the_service_with_status_0(device, number):
    waiting = [device.wait_for_update(keep=keep) for keep in (False, True)]
    answered = device.connect()
    answered.ask("a", keep=True)
    assert device.end("service", number) == 0
    for connection in waiting:
        assert connection.answer().raw == END_ONLY
        assert connection.is_closed()
    assert answered.is_closed()
    assert is_logged(device, "LogLight", "eventpoll.cpp", f"SIG {number}: {signal.strsignal(number)}")


def test_a_signal_in_the_middle_of_everything_ends_with_status_0(device):
    with contextlib.ExitStack() as stack:
        for number in range(40):
            connection = stack.enter_context(device.connect())
            connection.send_request((UPDATE, "/api/v1/all.cgi", SET, "a")[number % 4], keep=number % 3 == 0)
        assert device.end("service") == 0


def test_a_service_that_was_killed_starts_again_at_once(device):
    with device.wait_for_update():
        assert device.end("service", signal.SIGKILL) == -signal.SIGKILL
        device.start_service()
    assert device.ask(SET, BRIGHTER % 1) == DONE
    assert re.search(r"serverconnection.cpp: *\d+ Connected after \d+ attempts$", device.log(), re.MULTILINE)


# The beginning


def fails_to_start(device, source, text):
    """Whether the last words, on the output and in the log, are what they should be."""
    with contextlib.suppress(DeviceError):  # it may seem ready for a moment
        device.start_service()
    wait_until(lambda: device.ended() == ["service"], "the end of the service")
    assert device.end("service") == -signal.SIGABRT
    return text in device.output("service") and is_logged(device, "Error", source, text)


def test_what_is_missing_ends_the_start(catalogue):
    with SystemDevice(simulation=None, service=False, may_fail=["service", "broker"]) as device:
        sizes = catalogue.sizes()
        device.make_segments(sizes)
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", device.fcgi_port))
            taken.listen()
            assert fails_to_start(device, "fcgi.cpp", "bind: Address already in use")
        for memory in ("MemPersistent", "MemApp"):
            device.segment(memory).unlink()
            assert fails_to_start(device, "sharedmemory.cpp", f"/{memory}: No such file or directory")
            device.make_segments(sizes)
        for content, size in (
            (struct.pack("<I", 64) + bytes(68), 64),
            (struct.pack("<I", 0xFFFFFFFF) + bytes(68), 4294967295),
            (struct.pack("<I", 68) + bytes(60), 60),  # cut off
            (b"\x44", 0),
        ):
            device.segment("MemApp").write_bytes(content)
            text = f"Memory size missmatch for /MemApp, requested 68, is {size}."
            assert fails_to_start(device, "sharedmemory.cpp", text)
        device.make_segments(sizes)
        screen = device.path("/dev/fb0").rename(device.path("/dev/away"))
        assert fails_to_start(device, "fb-linux.cpp", "frambuffer open: No such file or directory")
        screen.rename(device.path("/dev/fb0"))
        assert device.end("broker") == 0
        assert fails_to_start(device, "serverconnection.cpp", "sem_open: No such file or directory")
        assert is_logged(device, "LogLight", "serverconnection.cpp", "Waiting for server")
        device.start_broker()
        device.end("broker", signal.SIGKILL)  # its semaphore and its socket stay
        for _ in range(3):  # a failed start gives the semaphore back
            assert fails_to_start(device, "serverconnection.cpp", "connect: Connection refused")


def test_the_service_goes_on_without_the_broker_and_finds_a_new_one_when_it_starts_again(device):
    with device.wait_for_update() as waiting:
        device.end("broker")
        assert b'"MemApp" : {' in device.ask("/api/v1/all.cgi")
        assert b'{"result": ' in device.ask(SET, BRIGHTER % 1) + device.ask(SET, BRIGHTER % 2)
        assert device.comes_to_rest()
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
    for level, lines in ((b"LogLight", [True, True]), (b"Warn", [False, True]), (b"Error", [False, False])):
        device.ask(SET, b'{"MemApp":{"AppServiceLogLevel":"%s"}}' % level)
        since = len(device.log())
        with device.connect() as connection:
            connection.ask("/api/v1/all.cgi", SCRIPT_FILENAME="all", REMOTE_ADDR="10.0.0.1", SERVER_ADDR="10.0.0.2",
                           HTTP_USER_AGENT="%s test")
        device.ask("nowhere")
        assert lines == [is_logged(device, *line, since) for line in (
            ("LogLight", "requesthandler.cpp", "Request all from 10.0.0.1 to 10.0.0.2 by %s test"),
            ("Warn", "requesthandler.cpp", "Unknown script: 'nowhere'"))]


def test_every_descriptor_is_closed_on_exec(device):
    with device.wait_for_update():
        folder = f"/proc/{device.pids['service']}/fdinfo"
        for descriptor in set(os.listdir(folder)) - {"0", "1", "2"}:
            with contextlib.suppress(FileNotFoundError):  # an answered request's connection, closed meanwhile
                with open(f"{folder}/{descriptor}") as file:
                    flags = re.search(r"flags:\s*(\d+)", file.read())[1]
                assert int(flags, 8) & os.O_CLOEXEC, os.readlink(f"{folder[:-4]}/{descriptor}")
