"""Start and end of the service, with and without broker, memories and screen."""

import contextlib
import json
import os
import re
import signal
import socket
import struct
import subprocess
from pathlib import Path

import pytest

from brokerclient import BrokerClient
from fastcgi import END
from systemdevice import DONE, LEVEL_NORMAL, SET, TREE, UPDATE, WAIT_SECONDS, SystemDevice, ending, wait_until
from virtualdevice import DeviceError

BRIGHTER = b'{"MemPersistent":{"DisplayBrightness":%d}}'
END_ONLY = [(END, 1, bytes(8))]


@pytest.fixture(scope="module")
def shared_device():
    """Each test starts the service and ends it."""
    with SystemDevice(service=False) as device:
        yield device


@pytest.fixture
def device(shared_device):
    shared_device.write("MemApp", 0, LEVEL_NORMAL)
    shared_device.start_service()
    yield shared_device
    assert "service" not in shared_device.pids or shared_device.end("service") == 0
    assert shared_device.output("service") == ""


def is_logged(device, level, text):
    """Whether the kernel log has a line of the service with this level and text."""
    line = rf"^ +webservice  {level:12}.*: *\d+ {re.escape(text)}$"
    return re.search(line, device.log(), re.MULTILINE) is not None


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_signal_ends_waiting_requests_and_the_service(device, number):
    waiting = [device.wait_for_update(keep=keep) for keep in (False, True)]
    assert device.end("service", number) == 0
    for connection in waiting:
        assert connection.answer().records == END_ONLY
        assert connection.is_closed()
    assert is_logged(device, "LogLight", f"SIG {number}: {signal.strsignal(number)}")


def test_requests_in_an_inherited_queue_are_answered_and_miss_no_change():
    with SystemDevice(simulation=["--still"], service=False) as device, \
            socket.create_server(("127.0.0.1", device.fcgi_port)) as listening, device.connect() as waiting:
        waiting.send_request(UPDATE)
        with ending(subprocess.Popen(device.command("webservice"), env=device.environment(), stdin=listening)) as service:
            tree = json.loads(device.ask(TREE))
            assert json.loads(waiting.answer().body) == {**tree, "errors": []}
            service.terminate()
        assert service.returncode == 0


def test_version_names_the_catalogue_of_header_and_console(shared_device):
    build = Path(shared_device.build)
    header = (build / "generated/gen/code/memories.h").read_text()
    catalogue = re.search('#define CATALOGUE_HASH "([0-9a-f]{16})"', header)[1]
    assert json.loads((build / "client/catalogue.json").read_text())["hash"] == catalogue
    status, printed, _ = shared_device.run("webservice", "--version")
    assert status == 0 and re.fullmatch(rf"webservice \d+\.\d+\.\d+\ncatalogue {catalogue}\n", printed)


def test_killed_service_starts_again(device):
    with device.wait_for_update():
        assert device.end("service", signal.SIGKILL) == -signal.SIGKILL
        device.start_service()
    assert device.ask(SET, BRIGHTER % 1) == DONE
    assert re.search(r"serverconnection.cpp: *\d+ Connected after \d+ attempts$", device.log(), re.MULTILINE)


def fails_to_start(device, text):
    """Whether the service aborts with this text on its output and in the log."""
    with contextlib.suppress(DeviceError):  # it may listen for a moment
        device.start_service()
    wait_until(lambda: device.ended() == ["service"], "the end of the service")
    assert device.end("service") == -signal.SIGABRT
    return text in device.output("service") and is_logged(device, "Error", text)


def test_missing_resource_ends_the_start(catalogue):
    with SystemDevice(simulation=None, service=False, may_fail=["service", "broker"]) as device:
        for memory, size in catalogue.sizes().items():
            device.segment(memory).write_bytes(struct.pack("<I", size) + bytes(size))
        whole = device.segment("MemApp").read_bytes()
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", device.fcgi_port))
            taken.listen()
            assert fails_to_start(device, "bind: Address already in use")
        for path, text in ((device.segment("MemPersistent"), "/MemPersistent"), (device.segment("MemApp"), "/MemApp"),
                           (device.path("/dev/fb0"), "frambuffer open"), (device.path("/dev/mem"), "open"),
                           (device.path("/dev/mmcblk1"), "open")):
            away = path.rename(f"{path}-away")
            assert fails_to_start(device, f"{text}: No such file or directory")
            away.rename(path)
        for content, size in ((struct.pack("<I", 64) + bytes(68), 64), (whole[:64], 60)):
            device.segment("MemApp").write_bytes(content)
            assert fails_to_start(device, f"Memory size missmatch for /MemApp, requested 68, is {size}.")
        device.segment("MemApp").write_bytes(whole)
        assert device.end("broker") == 0
        assert fails_to_start(device, "sem_open: No such file or directory")
        assert is_logged(device, "LogLight", "Waiting for server")
        closed = ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", *map(str, device.command("webservice"))]
        assert subprocess.run(closed, env=device.environment(), timeout=60, check=False).returncode == -signal.SIGABRT
        for memory, size in catalogue.sizes().items():  # what the runtime prints goes to no segment
            assert device.segment(memory).read_bytes()[:4] == struct.pack("<I", size)
        device.start_broker()
        device.end("broker", signal.SIGKILL)  # leaves its semaphore and its socket
        for _ in range(3):  # a failed start posts the semaphore again
            assert fails_to_start(device, "connect: Connection refused")


def test_watchdog_needs_the_broker(monkeypatch):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as systemd:
        systemd.bind(b"\0service-manager-%d" % os.getpid())
        systemd.settimeout(WAIT_SECONDS)
        monkeypatch.setenv("NOTIFY_SOCKET", f"@service-manager-{os.getpid()}")
        monkeypatch.setenv("WATCHDOG_USEC", "100000")
        with SystemDevice(simulation=["--still"]) as device:
            assert systemd.recv(100) == b"READY=1"
            assert systemd.recv(100) == b"WATCHDOG=1"
            device.end("broker")
            while (message := systemd.recv(100)) != b"WATCHDOG=trigger":
                assert message == b"WATCHDOG=1"
            systemd.settimeout(1)
            with pytest.raises(TimeoutError):
                systemd.recv(100)


def test_service_goes_on_without_the_broker(device):
    with device.wait_for_update() as waiting:
        device.end("broker")
        assert b'"MemApp" : {' in device.ask(TREE)
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


def test_every_descriptor_is_closed_on_exec(device):
    folder = Path(f"/proc/{device.pids['service']}/fdinfo")
    with device.wait_for_update():
        for name in set(os.listdir(folder)) - {"0", "1", "2"}:
            with contextlib.suppress(FileNotFoundError):  # closed since the folder was read
                flags = re.search(r"flags:\s*(\d+)", (folder / name).read_text())[1]
                assert int(flags, 8) & os.O_CLOEXEC, os.readlink(folder.parent / "fd" / name)
