"""The companion app's API without a web server: device info, uploads that fail, and the log lines of requests."""

import json
import os
import re
import shutil

import pytest

from fastcgi import JSON_HEADER
from systemdevice import LEVEL_ALL, LEVEL_NORMAL, wait_until

OUR_ID = "K1-K1-00042"
ACCESSORY = "Ultrasonic Ranger-5512"
NO_DASH = b'{"result": "\'deviceid\' has to be in the form DEVICE-SERIAL." }'
NO_SUCH_FILE = b'{"result": "No such file" }'
OPEN_ERROR = b'{"result": "Open error" }\r\n'
SUCCESS = b'{"result": "Success" }'
FORM_TYPE = 'multipart/form-data; boundary="----b0undary"'


def form(content, device_id):
    """The body of an upload, as a browser builds it from an HTML form; FORM_TYPE is its type."""
    head = "Content-Disposition: form-data; name="
    return (f'------b0undary\r\n{head}"deviceid"\r\n\r\n{device_id}\r\n------b0undary\r\n{head}"file"; '
            'filename="a.swu"\r\nContent-Type: application/octet-stream\r\n\r\n').encode() + content + \
        b"\r\n------b0undary--\r\n"


def ask(device, path, method="GET", body=b"", request_id=1):
    """The output after the header; empty if the service ends the request without an answer."""
    with device.connect() as connection:
        return connection.ask("/qorapp/v1", body, request_id=request_id, PATH_INFO=path, REQUEST_METHOD=method,
                              CONTENT_TYPE=FORM_TYPE).output.removeprefix(JSON_HEADER)


def upload(device, device_id, content=b"firmware", **options):
    return ask(device, "/device/update", "POST", form(content, device_id), **options)


@pytest.fixture
def traced(device):
    """A device whose service logs everything."""
    device.write("MemApp", 0, LEVEL_ALL)
    yield device
    device.write("MemApp", 0, LEVEL_NORMAL)


def test_device_info_has_identity_and_space(device):
    def info():
        return json.loads(ask(device, "/device/info"))

    assert (info()["_id"], info()["serialnumber"], info()["name"]) == (OUR_ID, "K1-00042", "Lens Control")
    # Other programs of this machine may change the space between the two questions.
    wait_until(lambda: [info()["space_total"], info()["space_available"]] == space(), "the space of the root folder")


def space():
    root = os.statvfs("/")
    return [blocks * root.f_bsize % 2 ** 32 for blocks in (root.f_blocks, root.f_bavail)]


def test_accessory_texts_may_fill_their_fields(device, catalogue):
    at, size = catalogue.variable("MemExternalDevices", "RBusDeviceList").at, 116
    before = device.read("MemExternalDevices", at, size)
    name, version = 49 * "n" + "!", 49 * "v" + "!"
    device.write("MemExternalDevices", at, b"\1\0\0\0\7\0\0\0" + (name + version).encode())
    accessory = json.loads(ask(device, "/device/info"))["devices"][0]
    assert accessory == {"_id": name + "-7", "name": name, "serialnumber": "7", "firmwareversion": version}
    device.write("MemExternalDevices", at, before)


@pytest.mark.parametrize("device_id, answer, level, text", [
    ("NOSERIAL", NO_DASH, "Warn", "'deviceid' has to be in the form DEVICE-SERIAL, but it is NOSERIAL."),
    ("DEV-x12", b"", "Error", "'x12' is not a serial number"),
    ("A-B-7", b'{"taskid": "A-B-7" }', "LogLight",
     f"Received update file for device ID A-B-7, our device ID is {OUR_ID}."),
], ids=["no dash", "no number", "two dashes"])
def test_upload_device_id_is_name_dash_serial(device, catalogue, device_id, answer, level, text):
    assert upload(device, device_id) == answer
    assert re.search(rf"  {level} .*{re.escape(text)}$", device.log(), re.MULTILINE)
    if answer.startswith(b'{"taskid"'):
        name, serial = (catalogue.variable("MemExternalDevices", f"RBusUpdateDevice{what}").at
                        for what in ("Name", "Serial"))
        assert device.read("MemExternalDevices", name, 4) == b"A-B\0"
        assert device.read("MemExternalDevices", serial, 4) == b"\7\0\0\0"


def test_upload_that_cannot_be_stored_is_not_offered(device):
    device.path("/update/host.swu").mkdir()
    assert upload(device, OUR_ID) == b""
    assert device.log_lines("rename: Is a directory")
    assert not device.path("/update/file-from-app").exists()
    shutil.rmtree(device.path("/update"))
    assert upload(device, ACCESSORY) == b'{"result": "Write error" }'
    device.path("/update").mkdir()
    assert upload(device, ACCESSORY) == b'{"taskid": "Ultrasonic Ranger-5512" }'


def test_file_system_errors_are_answered(device):
    tables, setups = device.path("/var/LDA"), device.path("/var/SETUPS")
    tables.rmdir()
    assert ask(device, "/lenstables/list") == b"[]"
    assert ask(device, "/lenstables/file/a") == NO_SUCH_FILE
    assert ask(device, "/lenstables/file/a", "PUT", b"1") == SUCCESS, "creates the folder"
    (tables / "full").symlink_to("/dev/full")
    assert ask(device, "/lenstables/file/full", "PUT", b"1") == SUCCESS, "replaces the link"
    assert ask(device, f"/lenstables/file/{255 * 'n'}", "PUT", b"1") == SUCCESS
    assert ask(device, f"/lenstables/file/{256 * 'n'}", "PUT", b"1") == OPEN_ERROR
    setups.rmdir()
    setups.write_text("not a folder")
    assert ask(device, "/setups/list") == b"[]"
    assert ask(device, "/setups/file/a", "PUT", b"1") == OPEN_ERROR
    assert setups.read_text() == "not a folder"


def test_body_is_copied_only_at_the_lowest_level(traced):
    upload(traced, "NO", b"first")
    traced.write("MemApp", 0, b"\1\0\0\0")
    upload(traced, "NO", b"second")
    assert traced.path("/tmp/post-data").read_bytes() == form(b"first", "NO")


# Level and text; other lines are tested where they are written.
LOGGED = [
    ("DebugAll", r"REQUEST     rx\(4711, 1, 8\)"),
    ("DebugMost", r"REQUEST  begin\(\d+, 4711, false\)"),
    ("DebugMost", r"REQUEST handle\(\d+, 4711, /qorapp/v1\)"),
    ("DebugMost", r"Start of new block"),
    ("DebugMost", r"Block data for fields:"),
    ("DebugAll", r"  filename: a.swu"),
    ("DebugAll", r"Request content:"),
    ("DebugAll", r'  "deviceid": "NO"'),
    ("DebugAll", r"REQUEST     tx\(4711, 3, 8\)"),
    ("DebugMost", r"REQUEST    end\(\d+, 4711\)"),
    ("DebugMost", r"REQUEST remove\(\d+\)"),
    ("DebugMost", r"REQUEST delete\(\d+\)"),
    ("DebugLight", r"Sending all log data to request \d+"),
    ("DebugLight", r"Sending log data with offset 1/\d+ to request \d+"),
    ("Warn", r"Could not read user file: Input/output error"),
]


def test_steps_are_logged_with_their_levels(traced):
    upload(traced, "NO", request_id=4711)
    traced.path("/var/FOR/broken").symlink_to("/proc/self/mem")  # opens, but cannot be read
    ask(traced, "/focusrings/file/broken")
    for query in ("", "offset=1"):
        with traced.connect() as connection:
            connection.ask("/api/v1/log.cgi", QUERY_STRING=query)
    for level, text in LOGGED:
        line = re.compile(rf"^ +webservice  {level:12}.*: *\d+ {text}$", re.MULTILINE)
        wait_until(lambda line=line: line.search(traced.log()), line.pattern)
