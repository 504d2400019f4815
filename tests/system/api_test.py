"""Live answers of every endpoint against the OpenAPI description."""

import json
import re
from pathlib import Path

import jsonschema
import pytest

from app_test import FORM_TYPE, form
from description import Description
from systemdevice import BUILD, DONE, LOG, SCREEN, SET, TREE, UPDATE

DESCRIPTION = Description("openapi.json")
DEVICE = {"nginx": True, "display": ()}
APP = "/qorapp/v1"
FILE, LIST, UPLOAD = APP + "/{kind}/file/{name}", APP + "/{kind}/list", APP + "/device/update"


def ask(device, *request):
    """The answer's body and its validator."""
    return DESCRIPTION.ask(device, *request, **{"Content-Type": FORM_TYPE})[1:]


JSON_ANSWERS = [
    ("GET", TREE, TREE, None),
    ("POST", SET, SET, b'{"MemPersistent": {"DisplayBrightness": 5}}'),
    ("POST", SET, SET, b'{"MemPersistent": {"NoSuch": 11}}'),
    ("POST", SET, SET, b'"\r\n\t\\'),
    ("GET", "/api/v1/{script}", "/api/v1/nope%22%5c%0a.cgi", None),
    ("GET", APP + "/device/info", APP + "/device/info", None),
    ("GET", APP + "/device/status", APP + "/device/status", None),
    ("POST", UPLOAD, UPLOAD, b"not a form"),
    ("POST", UPLOAD, UPLOAD, form(b"x", "nodash")),
    ("POST", UPLOAD, UPLOAD, form(b"x", "Ultrasonic Ranger-5512")),
    ("GET", LIST, APP + "/setups/list", None),
    ("PUT", FILE, APP + "/setups/file/a.stp", b"1"),
    ("GET", LIST, APP + "/setups/list", None),
    ("PUT", FILE, f"{APP}/setups/file/{256 * 'n'}", b"1"),
    ("DELETE", FILE, APP + "/setups/file/a.stp", None),
    ("GET", FILE, APP + "/setups/file/a.stp", None),
    ("GET", APP + "/{request}", APP + "/nope", None),
]
OTHER_ANSWERS = {("GET", UPDATE), ("GET", LOG), ("GET", SCREEN)}


def test_every_json_answer_is_as_described(device):
    for request in JSON_ANSWERS:
        answer, described = ask(device, *request)
        described.validate(json.loads(answer))
    asked = {(method, template) for method, template, _, _ in JSON_ANSWERS}
    assert DESCRIPTION.operations == asked | OTHER_ANSWERS


@pytest.mark.parametrize("status, asked, headers", [
    (403, ("POST", SET, SET, b"{}"), {"Origin": "http://evil.example"}),
    (404, ("GET", FILE, APP + "/setups/file/a%5cb"), {}),
    (413, ("POST", SET, SET, bytes(1100000)), {}),
    (421, ("GET", TREE, TREE), {"Host": "evil.example"}),
])
def test_errors_of_the_web_server_are_as_described(device, status, asked, headers):
    received, answer, described = DESCRIPTION.ask(device, *asked, **headers)
    assert received == status
    described.validate(answer.decode())


def test_update_is_as_described(device):
    described = DESCRIPTION.validator({"$ref": "#/components/schemas/Update"})
    device.forget_changes()
    with device.wait_for_update(65535) as waiting:
        device.ask(SET, b'{"MemLens": {"LensFileList": {"Index": 99, "LensFileSelected": true}}}')
        update = json.loads(waiting.answer().body)
    described.validate(update)
    schema = json.loads(Path(BUILD, "generated/docs/catalogue.schema.json").read_text())
    jsonschema.validate(update["variables"], {**schema["$defs"]["update"], "$defs": schema["$defs"]},
                        jsonschema.Draft202012Validator)
    assert update["variables"]["MemLens"]["LensFileList"][99]["LensFileSelected"] is True


def test_log_and_picture_are_as_described(device):
    device.ask("a line for the log")
    answer, described = ask(device, "GET", LOG, LOG)
    described.validate(answer.decode())
    length, _, text = answer.partition(b"\r\n")
    assert int(length) == len(text)
    assert b"<" not in re.sub(rb"<span style='(?:(?:background-)?color: #[0-9A-F]{6})?'>|</span>", b"", text)
    assert ask(device, "GET", SCREEN, SCREEN)[0].startswith(b"\x89PNG\r\n\x1a\n")


def test_assignments_are_as_described(device):
    assignment = DESCRIPTION.validator({"$ref": "#/components/schemas/Assignment"})
    for memory, name, value, is_allowed in (
            ("MemPersistent", "DisplayBrightness", 10, True), ("MemPersistent", "DisplayBrightness", 11, False),
            ("MemPersistent", "CircleofConfusion", 0.1, True), ("MemPersistent", "CircleofConfusion", 0, False),
            ("MemPersistent", "RadioPower", False, True), ("MemPersistent", "RadioPower", "True", False),
            ("MemApp", "AppGuiLogLevel", "Warn", True), ("MemApp", "AppGuiLogLevel", "Warning", False),
            ("MemGuiLocal", "RadioRegionFlags", "0affb7", True), ("MemGuiLocal", "RadioRegionFlags", "zz", False)):
        before = device.segment(memory).read_bytes()
        body = {memory: {name: value}}
        assert device.ask(SET, json.dumps(body).encode()) == DONE
        assert (device.segment(memory).read_bytes() != before) == assignment.is_valid(body) == is_allowed, body
    assert not assignment.is_valid({}) and not assignment.is_valid({"MemApp": {}, "MemLens": {}})
