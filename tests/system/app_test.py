"""The companion app's API without a web server."""

import json
import os

from fastcgi import JSON_HEADER
from systemdevice import wait_until

OUR_ID = "K1-K1-00042"
ACCESSORY = "Ultrasonic Ranger-5512"
NO_SUCH_FILE = b'{"result": "No such file" }'
SUCCESS = b'{"result": "Success" }'
FORM_TYPE = 'multipart/form-data; boundary="----b0undary"'


def form(content, device_id):
    """The body of an upload, as a browser builds it from an HTML form; FORM_TYPE is its type."""
    head = "Content-Disposition: form-data; name="
    return (f'------b0undary\r\n{head}"deviceid"\r\n\r\n{device_id}\r\n------b0undary\r\n{head}"file"; '
            'filename="a.swu"\r\nContent-Type: application/octet-stream\r\n\r\n').encode() + content + \
        b"\r\n------b0undary--\r\n"


def ask(device, path, method="GET", body=b""):
    """The output after the header; empty if the service ends the request without an answer."""
    with device.connect() as connection:
        return connection.ask("/qorapp/v1", body, PATH_INFO=path, REQUEST_METHOD=method,
                              CONTENT_TYPE=FORM_TYPE).output.removeprefix(JSON_HEADER)


def upload(device, device_id, content):
    return ask(device, "/device/update", "POST", form(content, device_id))


def test_device_info_has_identity_and_space(device):
    def info():
        return json.loads(ask(device, "/device/info"))

    assert (info()["_id"], info()["serialnumber"], info()["name"]) == (OUR_ID, "K1-00042", "Lens Control")
    # Other programs of this machine may change the space between the two questions.
    wait_until(lambda: [info()["space_total"], info()["space_available"]] == space(), "the space of the root folder")


def space():
    root = os.statvfs("/")
    return [blocks * root.f_bsize % 2 ** 32 for blocks in (root.f_blocks, root.f_bavail)]


def test_body_is_copied_only_at_the_lowest_level(device):
    for level, content in ((0, b"first"), (1, b"second"), (5, b"third")):
        device.write("MemApp", 0, bytes([level]))
        upload(device, "NO", content)
    assert device.path("/tmp/post-data").read_bytes() == form(b"first", "NO")
