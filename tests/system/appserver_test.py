"""The companion app's API through each web server, with a simulation that carries updates out."""

import json
import random
import re

import pytest

from app_test import ACCESSORY, FORM_TYPE, NO_SUCH_FILE, OUR_ID, SUCCESS, form
from systemdevice import LEVEL_ALL, LEVEL_NORMAL, wait_until

ORDER = ["FileValid", "CopyingFile", "Rebooting", "Success"]
PARTS = 4  # of the accessory's update
FOLDERS = {"lenstables": "/var/LDA", "focusrings": "/var/FOR", "setups": "/var/SETUPS"}


@pytest.fixture(scope="module")
def device_options(web_server):
    return {web_server: True, "simulation": ("--speed", "8")}


def app(device, path, method="GET", body=b""):
    """The answer's body, with status 200."""
    status, _, answer = device.http("/qorapp/v1" + path, body, method)
    assert status == 200
    return answer


def upload(device, content, device_id):
    status, _, answer = device.http("/qorapp/v1/device/update", form(content, device_id), **{"Content-Type": FORM_TYPE})
    assert (status, answer) == (200, f'{{"taskid": "{device_id}" }}'.encode())


def poll_until(device, end):
    """Polls as the app does, and returns the states and the progress values up to the state `end`.

    The final state of an update remains until the next update begins.
    """
    seen = []

    def is_over():
        seen.append(json.loads(app(device, "/device/status")))
        return seen[-1]["status"] == end

    wait_until(is_over, f"an update with {end}")
    return [status["status"] for status in seen], [status["progress"] for status in seen]


def noise(size):
    """Random bytes with many pieces of multipart syntax."""
    pieces = [b"\r\n", b"\n", b"\r", b"\0", b"\r\n--", b"------b0undar", b"\r\n\r\n", b"--", random.randbytes(50)]
    return b"".join(random.choices(pieces, k=size))


def accessory(device):
    return next(row for row in json.loads(app(device, "/device/info"))["devices"] if row["_id"] == ACCESSORY)


@pytest.mark.parametrize("kind", FOLDERS)
def test_file_is_stored_listed_fetched_and_deleted(device, kind):
    content = noise(20_000)
    name = "Cooke S4 32mm (é).tab"
    path = f"/{kind}/file/Cooke%20S4%2032mm%20(%C3%A9).tab"
    assert app(device, f"/{kind}/list") == b"[\r\n]"
    assert app(device, path, "PUT", content) == SUCCESS
    assert device.path(f"{FOLDERS[kind]}/{name}").read_bytes() == content
    assert app(device, f"/{kind}/list") == f'[\r\n"{name}"\r\n]'.encode()
    assert app(device, path) == content
    assert app(device, path, "DELETE") == SUCCESS
    assert app(device, path) == app(device, path, "DELETE") == NO_SUCH_FILE


def test_own_update_runs_to_its_end(device, events):
    content = b"firmware;Lens Control;4.3.0;1\n" + noise(100_000)
    before = device.read("MemExternalDevices", 3396, 264)
    upload(device, content, OUR_ID)
    assert device.path("/update/host.swu").read_bytes() == content
    assert not device.path("/update/file-from-app").exists()
    states, progresses = poll_until(device, "Success")
    assert "Rebooting" in states, "a valid file is reported as rebooting"
    assert set(progresses) == {0}
    assert json.loads(app(device, "/device/info"))["firmwareversion"] == "4.3.0"
    assert device.read("MemExternalDevices", 3396, 264) == before, "the accessories' update variables are unchanged"
    seen = []
    wait_until(lambda: seen.extend(event[0] for event in events.posted()) or seen.count(884) >= 2, "the start flag")
    assert seen.count(884) == 2, "raised once and lowered once"
    upload(device, b"not firmware", OUR_ID)
    assert "CopyingFile" not in poll_until(device, "FileCorrupt")[0]


def test_accessory_update_runs_part_by_part(device):
    device.end("service")
    device.start_service()
    body = b"firmware;Ultrasonic Ranger;2.0.0;%d\n" % PARTS
    assert accessory(device) == {"_id": ACCESSORY, "name": "Ultrasonic Ranger", "serialnumber": "5512",
                                 "firmwareversion": "1.9.0"}
    upload(device, body, ACCESSORY)
    assert device.path("/update/client.cmf").read_bytes() == body
    states, progresses = poll_until(device, "Success")
    assert "FileValid" in states, "the poll that reads this state starts the update"
    places = [ORDER.index(state) for state in states[states.index("FileValid"):]]
    assert places == sorted(places), "a slow poll may miss states"
    assert progresses[-1] == max(progresses) == 100
    # Part and percent are two words: a poll between the two stores reads too much.
    descents = sum(after < before for before, after in zip(progresses, progresses[1:]))
    assert descents < PARTS, "only where one part ends and the next begins"
    wait_until(lambda: accessory(device)["firmwareversion"] == "2.0.0", "the accessory's new version")
    upload(device, body.replace(b"\n", b";fails\n"), ACCESSORY)  # the same file name is a change, too
    poll_until(device, "Failed")
    upload(device, body, "Motor Controller-31044")
    poll_until(device, "FileNotCompatible")


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
