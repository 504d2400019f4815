"""FastCGI over TCP, with clients that misbehave. Framing is tested in tests/unit/service."""

import socket
import struct

import pytest

from fastcgi import request
from systemdevice import wait_until

UPDATE = "/api/v1/update.cgi"


@pytest.fixture
def device(device):
    """Fails a test that leaves a descriptor open in the service."""
    before = device.descriptors()
    yield device
    wait_until(lambda: device.descriptors() == before, "the number of descriptors from before")


def test_disconnected_clients_leave_nothing(device):
    whole = request("/qorapp/v1", b"half a file", PATH_INFO="/setups/file/half", REQUEST_METHOD="PUT")
    streams = [whole[:4], whole[:20], whole[:-1], b"", whole[:-8], request(UPDATE), request(UPDATE, keep=True),
               request("/api/v1/all.cgi")]
    for number in range(800):
        with device.connect() as connection:
            connection.send(streams[number % len(streams)])
            if number % 5 < 2:  # closes with a reset
                connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        if number % 8 == 7:
            device.ping()  # the listener's queue holds ten connections
    assert device.comes_to_rest()
    assert not device.path("/var/SETUPS/half").exists()
