"""The companion app's API: through the web server as the app uses it, with an updater that answers."""

import json
import os
import random
import shutil
import struct

import pytest

from systemdevice import wait_until

OUR_ID = "K1-K1-00042"
ACCESSORY = "Ultrasonic Ranger-5512"
PARTS = 4  # of the accessory's update
SUCCESS = b'{"result": "Success" }'
NO_SUCH_FILE = b'{"result": "No such file" }'
OPEN_ERROR = b'{"result": "Open error" }\r\n'
FOLDERS = {"lenstables": "/var/LDA", "focusrings": "/var/FOR", "setups": "/var/SETUPS"}
LEVEL_ALL, LEVEL_DEBUG, LEVEL_NORMAL = 0, 1, 5


@pytest.fixture(scope="module")
def device_options(web_server):
    return {web_server: True, "simulation": ("--speed", "8")}


def set_log_level(device, level):
    device.write("MemApp", 0, struct.pack("<i", level))


@pytest.fixture
def all_lines(device):
    """The service logs everything."""
    set_log_level(device, LEVEL_ALL)
    yield
    set_log_level(device, LEVEL_NORMAL)


def app(device, path, method="GET", body=b""):
    """The answer's body, with status 200."""
    status, _, answer = device.http("/qorapp/v1" + path, body, method)
    assert status == 200
    return answer


def form(content, device_id):
    """What an HTML form would send, and its type."""
    head = 'Content-Disposition: form-data; name='
    return (f'------b0undary\r\n{head}"deviceid"\r\n\r\n{device_id}\r\n------b0undary\r\n{head}"file"; '
            'filename="a.swu"\r\nContent-Type: application/octet-stream\r\n\r\n').encode() + content + \
        b"\r\n------b0undary--\r\n", 'multipart/form-data; boundary="----b0undary"'


def upload(device, content, device_id):
    """Status and body of the answer."""
    body, kind = form(content, device_id)
    return device.http("/qorapp/v1/device/update", body, **{"Content-Type": kind})[::2]


def states_to_end(device, end):
    """Polls as the app does, and returns the states and the progresses on the way to the end.

    The end of the update before is told until the next begins.
    """
    seen = []

    def is_over():
        seen.append(json.loads(app(device, "/device/status")))
        return seen[-1]["status"] == end

    wait_until(is_over, f"an update with {end}")
    return [status["status"] for status in seen], [status["progress"] for status in seen]


def are_in_order(states, wanted):
    """Whether all states are among the wanted ones and none comes again. A slow poll may miss some."""
    places = [wanted.index(state) for state in states]
    return places == sorted(places)


def noise(size):
    """Bytes that are full of what a reader of forms could take for its own."""
    pieces = [b"\r\n", b"\n", b"\r", b"\0", b"\r\n--", b"------b0undar", b"\r\n\r\n", b"--", random.randbytes(50)]
    return b"".join(random.choices(pieces, k=size))


def ranger(device):
    """What the device tells of the accessory."""
    return next(row for row in json.loads(app(device, "/device/info"))["devices"] if row["_id"] == ACCESSORY)


def test_the_device_tells_what_it_is_and_which_accessories_it_has(device):
    info = json.loads(app(device, "/device/info"))
    assert (info["_id"], info["serialnumber"], info["name"]) == (OUR_ID, "K1-00042", "Lens Control")
    space = os.statvfs("/")
    assert info["space_total"] == space.f_blocks * space.f_bsize % 2 ** 32
    assert ranger(device) == {"_id": ACCESSORY, "name": "Ultrasonic Ranger", "serialnumber": "5512",
                              "firmwareversion": "1.9.0"}


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
    states, progresses = states_to_end(device, "Success")
    assert "Rebooting" in states, "a valid file is told as rebooting"
    assert set(progresses) == {0}
    assert json.loads(app(device, "/device/info"))["firmwareversion"] == "4.3.0"
    assert device.read("MemExternalDevices", 3396, 264) == before
    seen = []
    wait_until(lambda: seen.extend(event[0] for event in events.posted()) or seen.count(884) >= 2, "the start's flag")
    assert seen.count(884) == 2, "raised once, and lowered"
    upload(device, b"not firmware", OUR_ID)
    assert "CopyingFile" not in states_to_end(device, "FileCorrupt")[0]


def test_after_a_restart_an_accessorys_update_runs_to_its_end_part_by_part(device):
    device.end("service")
    device.start_service()
    body = b"firmware;Ultrasonic Ranger;2.0.0;%d\n" % PARTS
    assert upload(device, body, ACCESSORY) == (200, b'{"taskid": "Ultrasonic Ranger-5512" }')
    assert device.path("/update/client.cmf").read_bytes() == body
    states, progresses = states_to_end(device, "Success")
    assert "FileValid" in states, "it starts with the poll that is told so"
    assert are_in_order(states[states.index("FileValid"):], ["FileValid", "CopyingFile", "Rebooting", "Success"])
    assert progresses[-1] == max(progresses) == 100
    # Part and percent are two words: a poll that comes between their stores is told too much.
    descents = sum(after < before for before, after in zip(progresses, progresses[1:]))
    assert descents < PARTS, "only where one part ends and the next begins"
    wait_until(lambda: ranger(device)["firmwareversion"] == "2.0.0", "the accessory's new version")
    upload(device, body.replace(b"\n", b";fails\n"), ACCESSORY)  # the same name is a change, too
    states_to_end(device, "Failed")
    upload(device, body, "Motor Controller-31044")
    states_to_end(device, "FileNotCompatible")


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
    content = b"\0\r\nx"
    upload(device, content, "NO")
    assert device.path("/tmp/post-data").read_bytes() == form(content, "NO")[0]
    assert len(device.log_lines('  "deviceid": "NO"')) == 1
    set_log_level(device, LEVEL_DEBUG)
    upload(device, b"another", "NO")
    assert device.path("/tmp/post-data").read_bytes() == form(content, "NO")[0]


def test_what_the_file_system_refuses_is_answered_and_survived(device):
    tables = device.path(FOLDERS["lenstables"])
    tables.rmdir()
    assert app(device, "/lenstables/list") == b"[]"
    assert app(device, "/lenstables/file/a") == NO_SUCH_FILE
    assert app(device, "/lenstables/file/a", "PUT", b"1") == SUCCESS, "the folder is made"
    (tables / "full").symlink_to("/dev/full")
    assert app(device, "/lenstables/file/full", "PUT", b"1") == b'{"result": "Write error" }'
    for name in ("", 256 * "n"):
        assert app(device, f"/lenstables/file/{name}") == NO_SUCH_FILE
        assert app(device, f"/lenstables/file/{name}", "PUT", b"1") == OPEN_ERROR
        assert app(device, f"/lenstables/file/{name}", "DELETE") == NO_SUCH_FILE
    assert app(device, f"/lenstables/file/{255 * 'n'}", "PUT", b"1") == SUCCESS
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
    "a%20b%3F%23%25": "/lenstables/file/a b?#%",
    "..": "/lenstables/",
    "%2E%2e%2flist": "/lenstables/list",
    "../../setups/list": "/setups/list",
    "../../../../../etc/passwd": REFUSED,
    "..%2f..%2f..%2f..%2f..%2fetc%2fpasswd": REFUSED,
    "%2e%2e/%2e%2e/%2e%2e/%2e%2e/%2e%2e/etc/passwd": REFUSED,
    "/etc/passwd": REFUSED,
    "//x": "/lenstables/file/x",
    "%2f%2fx": "/lenstables/file/x",
    "a%2fb": REFUSED,
    "a/../../file/x": "/lenstables/file/x",
    "%252e%252e%252fx": "/lenstables/file/%2e%2e%2fx",
    "..%255c..%255cx": "/lenstables/file/..%5c..%5cx",
    "..%5c..%5cx": REFUSED,
    "..\\..\\x": REFUSED,
    "%c0%ae%c0%ae%c0%afx": "/lenstables/file/\xc0\xae\xc0\xae\xc0\xafx",
    "x%00.tab": REFUSED,
    "x%0a": REFUSED,
    "x%7f": REFUSED,
}


@pytest.mark.parametrize("name", ARRIVALS)
def test_no_name_reaches_a_file_outside_the_folders(device, web_server, all_lines, name):
    arrival = ARRIVALS[name]
    if web_server == "lighttpd" and "%c0" in name:
        arrival = REFUSED  # it lets UTF-8 in and nothing else
    tables = device.path(FOLDERS["lenstables"])
    device.path("/update/secret").write_text("secret")
    shutil.rmtree(tables)
    tables.mkdir()
    before = outside(device, tables)
    known = device.path("/dev/kmsg").stat().st_size
    for method in ("GET", "PUT", "DELETE"):
        status, _, answer = device.http("/qorapp/v1/lenstables/file/" + name, b"planted", method)
        assert b"secret" not in answer and b"root:" not in answer
        assert arrival is not REFUSED or status in REFUSED
    lines = device.path("/dev/kmsg").read_bytes()[known:].decode("latin-1").splitlines()
    arrived = [line.partition("QorApp: ")[2] for line in lines if "QorApp: " in line]
    assert arrived == ([] if arrival is REFUSED else [f"{method} {arrival}" for method in ("GET", "PUT", "DELETE")])
    assert outside(device, tables) == before


def outside(device, folder):
    """Every path below the device's own folders, but those in `folder`."""
    paths = {path for name in ("update", "var", "tmp") for path in device.path(name).rglob("*")}
    return {path for path in paths if path.parent != folder}
