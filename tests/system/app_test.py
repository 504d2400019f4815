"""The companion app's API: through the web server as the app uses it, with an updater that answers."""

import http.client
import json
import os
import random
import shutil
import struct

import pytest

from systemdevice import wait_until

OUR_ID = "K1-K1-00042"
ACCESSORY = "Ultrasonic Ranger-5512"
SUCCESS = b'{"result": "Success" }'
NO_SUCH_FILE = b'{"result": "No such file" }'
OPEN_ERROR = b'{"result": "Open error" }\r\n'
UNKNOWN = b'{"result": "Unknown request" }'
FOLDERS = {"lenstables": "/var/LDA", "focusrings": "/var/FOR", "setups": "/var/SETUPS"}
NAMES, LEVEL_ALL, LEVEL_NORMAL = "/qorapp/v1/lenstables/file/", 0, 5


@pytest.fixture(scope="module")
def device_options(web_server):
    return {web_server: True, "simulation": ("--speed", "8")}


@pytest.fixture
def all_lines(device):
    """The service logs everything."""
    device.write("MemApp", 0, struct.pack("<i", LEVEL_ALL))
    yield
    device.write("MemApp", 0, struct.pack("<i", LEVEL_NORMAL))


def http_ask(device, method, path, body=None, headers=None):
    """Status and body of the answer. The path goes out as it is."""
    connection = http.client.HTTPConnection("127.0.0.1", device.http_port, timeout=30)
    try:
        connection.request(method, path, body, headers or {})
        response = connection.getresponse()
        return response.status, response.read()
    finally:
        connection.close()


def app(device, path, method="GET", body=b""):
    """The answer's body, with status 200."""
    status, answer = http_ask(device, method, "/qorapp/v1" + path, body)
    assert status == 200
    return answer


def form(content, device_id, boundary="----b0undary"):
    """What an HTML form would send, and its type."""
    head = 'Content-Disposition: form-data; name='
    return (f'--{boundary}\r\n{head}"deviceid"\r\n\r\n{device_id}\r\n--{boundary}\r\n{head}"file"; filename="a.swu"\r\n'
            "Content-Type: application/octet-stream\r\n\r\n").encode() + content + f"\r\n--{boundary}--\r\n".encode(), \
        f'multipart/form-data; boundary="{boundary}"'


def upload(device, content, device_id):
    body, kind = form(content, device_id)
    return http_ask(device, "POST", "/qorapp/v1/device/update", body, {"Content-Type": kind})


def statuses_to_end(device, after=None):
    """Polls as the app does, and returns the states and the progresses on the way to an end.

    `after` is the end of the update before, which is told until the next begins.
    """
    ends = ("Success", "Failed", "CopyingFailed", "FileCorrupt", "FileNotCompatible", "DeviceNotFound")
    seen = []

    def is_over():
        seen.append(json.loads(app(device, "/device/status")))
        return seen[-1]["status"] in ends and seen[-1]["status"] != after

    wait_until(is_over, "the end of the update")
    states = [status["status"] for status in seen]
    return [state for i, state in enumerate(states) if i == 0 or state != states[i - 1]], \
        [status["progress"] for status in seen]


def wait_for_events(events, wanted, count):
    seen = []

    def are_there():
        seen.extend(event[0] for event in events.posted())
        return seen.count(wanted) >= count

    wait_until(are_there, f"event {wanted}")
    assert seen.count(wanted) == count


def noise(size):
    """Bytes that are full of what a reader of forms could take for its own."""
    pieces = [b"\r\n", b"\n", b"\r", b"\0", b"\r\n--", b"------b0undar", b"\r\n\r\n", b"--", random.randbytes(50)]
    return b"".join(random.choices(pieces, k=size))


def accessories(device):
    return json.loads(app(device, "/device/info"))["devices"]


def test_the_device_tells_what_it_is_and_which_accessories_it_has(device):
    info = json.loads(app(device, "/device/info"))
    assert (info["_id"], info["serialnumber"]) == (OUR_ID, "K1-00042")
    assert info["name"] == "Lens Control"
    space = os.statvfs("/")
    assert info["space_total"] == space.f_blocks * space.f_bsize % 2 ** 32
    assert {"_id": ACCESSORY, "name": "Ultrasonic Ranger", "serialnumber": "5512",
            "firmwareversion": "1.9.0"} in info["devices"]


@pytest.mark.parametrize("kind", FOLDERS)
def test_a_file_is_stored_listed_fetched_and_deleted_in_the_folder_of_its_kind(device, kind):
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


def test_the_controllers_own_update_runs_to_its_end_and_touches_no_accessory(device, events):
    content = b"firmware;Lens Control;4.3.0;1\n" + noise(100_000)
    before = device.read("MemExternalDevices", 3396, 264)
    assert upload(device, content, OUR_ID) == (200, b'{"taskid": "K1-K1-00042" }')
    assert device.path("/update/host.swu").read_bytes() == content
    assert not device.path("/update/file-from-app").exists()
    states, progresses = statuses_to_end(device)
    assert states[-4:] == ["Rebooting", "CopyingFile", "Rebooting", "Success"], "a valid file is told as rebooting"
    assert set(progresses) == {0}
    assert json.loads(app(device, "/device/info"))["firmwareversion"] == "4.3.0"
    assert device.read("MemExternalDevices", 3396, 264) == before
    wait_for_events(events, 884, 2)  # the flag was raised once, and lowered


def test_a_file_that_the_controller_refuses_is_told_and_not_started(device):
    assert upload(device, b"not firmware", OUR_ID)[0] == 200
    assert statuses_to_end(device, after="Success")[0][-1] == "FileCorrupt"


def test_after_a_restart_an_accessorys_update_runs_to_its_end_part_by_part(device, events):
    device.end("service")
    device.start_service()
    body = b"firmware;Ultrasonic Ranger;2.0.0;4\n"
    assert upload(device, body, ACCESSORY) == (200, b'{"taskid": "Ultrasonic Ranger-5512" }')
    assert device.path("/update/client.cmf").read_bytes() == body
    states, progresses = statuses_to_end(device)
    assert states[-4:] == ["FileValid", "CopyingFile", "Rebooting", "Success"]
    assert progresses == sorted(progresses) and progresses[-1] == 100
    assert len(set(progresses)) > 10
    assert {"_id": ACCESSORY, "name": "Ultrasonic Ranger", "serialnumber": "5512",
            "firmwareversion": "2.0.0"} in accessories(device)
    events.posted()
    assert upload(device, body.replace(b"\n", b";fails\n"), ACCESSORY)[0] == 200
    wait_for_events(events, 631, 2)  # the same name is a change, too
    assert statuses_to_end(device)[0][-1] == "Failed"
    assert upload(device, body, "Motor Controller-31044")[0] == 200
    assert statuses_to_end(device, after="Failed")[0][-1] == "FileNotCompatible"


def fastcgi_upload(device, content, device_id):
    """All that the service sends."""
    body, kind = form(content, device_id)
    with device.connect() as connection:
        return connection.ask("/qorapp/v1", body, PATH_INFO="/device/update", REQUEST_METHOD="POST", CONTENT_TYPE=kind)


def test_uploads_that_cannot_be_carried_out_are_told_or_end_without_an_answer(device):
    assert fastcgi_upload(device, b"x", "NOSERIAL").body == \
        b'{"result": "\'deviceid\' has to be in the form DEVICE-SERIAL." }'
    assert len(device.log_lines("'deviceid' has to be in the form DEVICE-SERIAL, but it is NOSERIAL.")) == 1
    assert fastcgi_upload(device, b"x", "DEV-x12").output == b""
    assert len(device.log_lines("'x12' is no serial number")) == 2, "where it happened, and where it ended the request"
    assert device.read("MemExternalDevices", 3452, 19) == b"/update/client.cmf\0", "told before the number was read"
    device.path("/update/host.swu").unlink(missing_ok=True)
    device.path("/update/host.swu").mkdir()
    assert fastcgi_upload(device, b"x", OUR_ID).output == b""
    assert len(device.log_lines("rename: Is a directory")) == 2
    shutil.rmtree(device.path("/update"))
    assert fastcgi_upload(device, b"x", ACCESSORY).output == b""
    assert upload(device, b"x", ACCESSORY)[0] in (500, 502)
    device.path("/update").mkdir()
    assert fastcgi_upload(device, b"x", ACCESSORY).body == b'{"taskid": "Ultrasonic Ranger-5512" }'


def test_the_raw_body_is_kept_for_whoever_looks_for_a_fault(device, all_lines):
    body, kind = form(b"\0\r\nx", "NO")
    assert http_ask(device, "POST", "/qorapp/v1/device/update", body, {"Content-Type": kind})[0] == 200
    assert device.path("/tmp/post-data").read_bytes() == body
    assert len(device.log_lines('  "deviceid": "NO"')) == 1
    device.write("MemApp", 0, struct.pack("<i", 1))
    assert upload(device, b"another", "NO")[0] == 200
    assert device.path("/tmp/post-data").read_bytes() == body


def test_what_the_file_system_refuses_is_answered_and_survived(device):
    tables = device.path(FOLDERS["lenstables"])
    tables.rmdir()
    assert app(device, "/lenstables/list") == b"[]"
    assert app(device, "/lenstables/file/a") == NO_SUCH_FILE
    assert app(device, "/lenstables/file/a", "PUT", b"1") == SUCCESS, "the folder is made"
    (tables / "full").symlink_to("/dev/full")
    assert app(device, "/lenstables/file/full", "PUT", b"1") == b'{"result": "Write error" }'
    (tables / "folder").mkdir()
    long_name, too_long = 255 * "n", 256 * "n"
    for name in ("folder", "", too_long, 1000 * "n"):
        assert app(device, f"/lenstables/file/{name}") == NO_SUCH_FILE
        assert app(device, f"/lenstables/file/{name}", "PUT", b"1") == OPEN_ERROR
        assert app(device, f"/lenstables/file/{name}", "DELETE") == NO_SUCH_FILE
    assert app(device, f"/lenstables/file/{long_name}", "PUT", b"1") == SUCCESS
    assert json.loads(app(device, "/lenstables/list")).sort() == [long_name, "a"].sort()
    setups = device.path(FOLDERS["setups"])
    setups.rmdir()
    setups.write_text("no folder")
    assert app(device, "/setups/list") == b"[]"
    assert app(device, "/setups/file/a", "PUT", b"1") == OPEN_ERROR
    assert setups.read_text() == "no folder"


# Web servers refuse in their own ways: paths that lead above the root get 400 from one and 404 from the other.
REFUSED = (400, 404)

# What the app or somebody else sends as a name, and what becomes of it: refused by the web server, or the path that the
# service gets.
ARRIVALS = {
    "plain.tab": "/lenstables/file/plain.tab",
    "a%20b%3F%23%25": "/lenstables/file/a b?#%",
    "..plain..": "/lenstables/file/..plain..",
    "..": "/lenstables/",
    ".": "/lenstables/file/",
    "%2e%2e": "/lenstables/",
    "%2E%2e%2flist": "/lenstables/list",
    "../../setups/list": "/setups/list",
    "../../../v2/x": REFUSED,
    "../../../../etc/passwd": REFUSED,
    "../../../../../etc/passwd": REFUSED,
    "..%2f..%2f..%2f..%2f..%2fetc%2fpasswd": REFUSED,
    "%2e%2e/%2e%2e/%2e%2e/%2e%2e/%2e%2e/etc/passwd": REFUSED,
    "../file/../file/x": "/lenstables/file/x",
    "/etc/passwd": REFUSED,
    "%2fetc%2fpasswd": REFUSED,
    "//x": "/lenstables/file/x",
    "%2f%2fx": "/lenstables/file/x",
    "a/b": REFUSED,
    "a%2fb": REFUSED,
    "a/": REFUSED,
    "a/..": "/lenstables/file/",
    "a/../../file/x": "/lenstables/file/x",
    "%252e%252e%252fx": "/lenstables/file/%2e%2e%2fx",
    "..%255c..%255cx": "/lenstables/file/..%5c..%5cx",
    "..%5c..%5cx": REFUSED,
    "..\\..\\x": REFUSED,
    "%c0%ae%c0%ae%c0%afx": b"/lenstables/file/\xc0\xae\xc0\xae\xc0\xafx",
    "x%00.tab": REFUSED,
    "%00": REFUSED,
    "..%00/": REFUSED,
    "x%0a": REFUSED,
    "x%22": REFUSED,
    "x%7f": REFUSED,
    "..;/x": REFUSED,
}


@pytest.mark.parametrize("name", ARRIVALS)
def test_no_name_reaches_a_file_outside_the_folders(device, web_server, all_lines, name):
    arrival = ARRIVALS[name]
    if web_server == "lighttpd" and isinstance(arrival, bytes):
        arrival = REFUSED  # lighttpd lets UTF-8 in and nothing else
    outside = device.path("/update/secret")
    outside.write_text("secret")
    shutil.rmtree(device.path(FOLDERS["lenstables"]))
    device.path(FOLDERS["lenstables"]).mkdir()
    before = {path for path in tree(device) if path.parent != device.path(FOLDERS["lenstables"])}
    known = len(device.log())
    for method in ("GET", "PUT", "DELETE"):
        status, answer = http_ask(device, method, NAMES + name, b"planted" if method == "PUT" else None)
        assert b"secret" not in answer and b"root:" not in answer
        if arrival is REFUSED:
            assert status in REFUSED
    arrived = [line.partition("QorApp: ")[2] for line in
               device.path("/dev/kmsg").read_bytes()[known:].decode("latin-1").splitlines() if "QorApp: " in line]
    expected = arrival if isinstance(arrival, bytes) else str(arrival).encode()
    assert arrived == ([] if arrival is REFUSED else
                       [f"{method} {expected.decode('latin-1')}" for method in ("GET", "PUT", "DELETE")])
    assert {path for path in tree(device) if path.parent != device.path(FOLDERS["lenstables"])} == before


def tree(device):
    """Every path below the device's own folders."""
    return {path for folder in ("update", "var", "tmp") for path in device.path(folder).rglob("*")}
