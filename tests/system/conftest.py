"""Fixtures of the system tests."""

import pytest

from brokerclient import BrokerClient
from catalogue import Catalogue
from systemdevice import SystemDevice


@pytest.fixture(scope="session")
def catalogue():
    return Catalogue()


@pytest.fixture(scope="module", params=["nginx", "lighttpd"])
def web_server(request):
    """Each web server in turn."""
    return request.param


@pytest.fixture(scope="module")
def device_options(request):
    """A module's DEVICE, if its device needs more than the service."""
    return getattr(request.module, "DEVICE", {})


@pytest.fixture(scope="module")
def shared_device(device_options):
    with SystemDevice(**device_options) as device:
        yield device


@pytest.fixture
def device(shared_device):
    """The module's device, whose service has to run and answer after each test."""
    yield shared_device
    assert shared_device.ended() == []
    shared_device.ping()


@pytest.fixture
def events(device):
    """Another process of the device, subscribed to all events."""
    with BrokerClient(device) as client:
        yield client
