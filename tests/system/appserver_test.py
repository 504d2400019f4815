"""The companion app's files and uploads through each web server."""

import random
import re

import pytest

from app_test import NO_SUCH_FILE, SUCCESS
from systemdevice import LEVEL_ALL, LEVEL_NORMAL

FOLDERS = {"lenstables": "/var/LDA", "focusrings": "/var/FOR", "setups": "/var/SETUPS"}


@pytest.fixture(scope="module")
def device_options(web_server):
    return {web_server: True}


def app(device, path, method="GET", body=b""):
    """The answer's body, with status 200."""
    status, _, answer = device.http("/qorapp/v1" + path, body, method)
    assert status == 200
    return answer


@pytest.mark.parametrize("kind", FOLDERS)
def test_file_is_stored_listed_fetched_and_deleted(device, kind):
    content = random.randbytes(5_000_000)
    name = "Cooke S4 32mm (é).tab"
    path = f"/{kind}/file/Cooke%20S4%2032mm%20(%C3%A9).tab"
    assert app(device, f"/{kind}/list") == b"[\r\n]"
    assert app(device, path, "PUT", content) == SUCCESS
    assert device.path(f"{FOLDERS[kind]}/{name}").read_bytes() == content
    assert app(device, f"/{kind}/list") == f'[\r\n"{name}"\r\n]'.encode()
    assert app(device, path) == content
    assert app(device, path, "DELETE") == SUCCESS
    assert app(device, path) == app(device, path, "DELETE") == NO_SUCH_FILE


# File names as they are sent, and the paths that the service receives. None: the web server refuses the name; nginx
# answers 400 and lighttpd 404 to a path above the root.
ARRIVALS = {
    "a%20b%3F%23%25": "/lenstables/file/a b?#%",
    "..": "/lenstables/",
    "../../setups/list": "/setups/list",
    "../../../../../etc/passwd": None,
    "..%2f..%2f..%2f..%2f..%2fetc%2fpasswd": None,
    "/etc/passwd": None,
    "%2f%2fx": "/lenstables/file/x",
    "a%2fb": None,
    "a/../../file/x": "/lenstables/file/x",
    "%252e%252e%252fx": "/lenstables/file/%2e%2e%2fx",
    "..%5c..%5cx": None,
    "x%00.tab": None,
    "x%0a": None,
}


def test_no_name_reaches_another_folder(device):
    device.write("MemApp", 0, LEVEL_ALL)
    for name, arrival in ARRIVALS.items():
        known = len(device.log())
        for method in ("GET", "PUT", "DELETE"):
            status, _, answer = device.http("/qorapp/v1/lenstables/file/" + name, b"planted", method)
            assert b"root:" not in answer and (arrival or status in (400, 404)), name
        arrived = re.findall(r"QorApp: (.*)", device.log()[known:])
        assert arrived == ([f"{method} {arrival}" for method in ("GET", "PUT", "DELETE")] if arrival else []), name
    device.write("MemApp", 0, LEVEL_NORMAL)
