"""What the system tests share: the devices that they run on."""

import pytest

from brokerclient import BrokerClient
from catalogue import Catalogue
from systemdevice import SystemDevice


@pytest.fixture(scope="session")
def catalogue():
    return Catalogue()


@pytest.fixture(scope="module", params=["nginx", "lighttpd"])
def web_server(request):
    """The name of each web server in turn, for modules that go through both."""
    return request.param


@pytest.fixture(scope="module")
def device_options():
    """Overridden by a module whose device needs more than a service."""
    return {}


@pytest.fixture(scope="module")
def shared_device(device_options):
    with SystemDevice(**device_options) as device:
        yield device


@pytest.fixture
def device(shared_device):
    """The module's device. Each test has to leave a service that runs and answers."""
    yield shared_device
    assert shared_device.ended() == []
    shared_device.ping()


@pytest.fixture
def events(device):
    """A process of the device that has subscribed to all events."""
    with BrokerClient(device) as client:
        yield client
