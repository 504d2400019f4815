"""Live answers of version 2 of the API against its OpenAPI description."""

import contextlib
import json

import pytest

from description import Description
from systemdevice import wait_until

DESCRIPTION = Description("openapi-v2.json")
VALUES, CATALOGUE, EVENTS = "/api/v2/values", "/api/v2/catalogue", "/api/v2/events"
NAMED, HEALTH, METRICS = "/api/v2/catalogue/{hash}", "/api/v2/health", "/api/v2/metrics"
DEVICE = {"nginx": True, "live": True}
NESTED = 9 * b"[" + 9 * b"]"


@pytest.mark.parametrize("status, method, template, path, body, headers", [
    (200, "GET", VALUES, VALUES, None, {}),
    (200, "GET", VALUES, VALUES + "?vars=MemMotors.*,DisplayBrightness", None, {}),
    (400, "GET", VALUES, VALUES + "?vars=MemMotor.*", None, {}),
    (400, "GET", EVENTS, EVENTS + "?period=x", None, {}),
    (200, "PATCH", VALUES, VALUES, b'{"MemPersistent.DisplayBrightness": 5}', {}),
    (200, "PATCH", VALUES, VALUES, b'{"MemLens.LensFileList[2]": {"LensFileName": "a"},'
     b' "MemLens.LensFileList[3].LensFileName": ""}', {}),
    (400, "PATCH", VALUES, VALUES, b"[]", {}),
    (412, "PATCH", VALUES, VALUES, b'{"MemPersistent.DisplayBrightness": 6}', {"If-Match": '"9007199254740991"'}),
    (413, "PATCH", VALUES, VALUES, b'{"MemPersistent.DisplayBrightness": ' + NESTED + b"}", {}),
    (422, "PATCH", VALUES, VALUES, b'{"MemPersistent.DisplayBrightness": 11, "MemPersistent.KnobAssignment": "Knob",'
     b' "No": 1, "MemPersistent.ProductName": "0123456789012345678901234567890", "MemPersistent.RadioPower": 1,'
     b' "MemLens.LensFileList[100].LensFileName": "a"}', {}),
    (413, "PATCH", VALUES, VALUES, bytes(1100000), {}),
    (200, "GET", CATALOGUE, CATALOGUE, None, {}),
    (404, "GET", NAMED, CATALOGUE + "/0", None, {}),
    (200, "GET", HEALTH, HEALTH, None, {}),
])
def test_answer_is_as_described(device, status, method, template, path, body, headers):
    received, answer, described = DESCRIPTION.ask(device, method, template, path, body, **headers)
    assert received == status
    described.validate(json.loads(answer))


def test_errors_of_the_web_server_are_as_described(device):
    for status, headers in ((403, {"Origin": "http://evil.example"}), (421, {"Host": "evil.example"})):
        received, answer, described = DESCRIPTION.ask(device, "PATCH", VALUES, VALUES, b"{}", **headers)
        assert received == status
        described.validate(answer.decode())
    device.end("live")
    for method, path in sorted(DESCRIPTION.operations):
        status, answer, described = DESCRIPTION.ask(device, method, path, path.replace("{hash}", "0"))
        assert (status, json.loads(answer)["title"]) == (502, "Bad Gateway")
        described.validate(json.loads(answer))
    device.start_live()
    wait_until(lambda: device.http(HEALTH)[0] == 200, "the process through the web server")


def test_known_content_is_not_sent_again(device):
    named = device.http(CATALOGUE)[1]["Content-Location"]
    for template, path in ((VALUES, VALUES), (CATALOGUE, CATALOGUE), (NAMED, named)):
        _, headers, _ = device.http(path)
        status, answer, _ = DESCRIPTION.ask(device, "GET", template, path, **{"If-None-Match": headers["ETag"]})
        assert (status, answer) == (304, b"")
    assert DESCRIPTION.ask(device, "GET", NAMED, named)[1] == device.http(CATALOGUE)[2]


def test_events_and_metrics_are_as_described(device):
    assert device.http(METRICS)[1]["Content-Type"].startswith("application/openmetrics-text")
    with contextlib.closing(device.send(EVENTS + "?vars=MemPersistent.*")) as connection:
        stream = connection.getresponse()
        assert stream.headers["Content-Type"] == "text/event-stream"
        data = next(line for line in stream if line.startswith(b"data: "))
    DESCRIPTION.validator({"$ref": "#/components/schemas/SomeValues"}).validate(json.loads(data[len("data: "):]))
    assert len(DESCRIPTION.operations) == 7
