"""Version 2 of the API through each web server, beside version 1."""

import contextlib
import gzip
import json
import re
import time

import pytest
from prometheus_client.openmetrics.parser import text_string_to_metric_families
from prometheus_client.parser import text_string_to_metric_families as plain_metrics

from api_test import JSON_ANSWERS
from app_test import FORM_TYPE
from systemdevice import SCREEN, SET, TREE, WAIT_SECONDS, SystemDevice, wait_until

VALUES, EVENTS, CATALOGUE = "/api/v2/values", "/api/v2/events", "/api/v2/catalogue"
BRIGHTNESS = "MemPersistent.DisplayBrightness"
BIG = {"LensFileName": "x" * 20, "LensFileValid": True}


@pytest.fixture(scope="module")
def device_options(web_server):
    return {web_server: True, "live": True}


class Stream:
    """A client's stream of events."""

    def __init__(self, device, query="vars=" + BRIGHTNESS, **headers):
        self._connection = device.send(f"{EVENTS}?{query}", **headers)
        self._response = self._connection.getresponse()
        assert self._response.status == 200, self._response.read()
        assert self._response.headers["Content-Type"] == "text/event-stream"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._response.close()
        self._connection.close()

    def next(self):
        """The next event: its fields, with "data" decoded. Comments and "retry" are left out."""
        event, end = {}, time.monotonic() + WAIT_SECONDS
        while True:
            line = self._response.readline().decode()
            assert line, "the stream has ended"
            assert time.monotonic() < end, "only heartbeats"
            if line == "\n" and "data" in event:
                return event
            name, _, value = line.rstrip("\n").partition(": ")
            if name in ("event", "id", "data"):
                event[name] = json.loads(value) if name == "data" else value


def change(device, values, **headers):
    status, answered, body = device.http(VALUES, json.dumps(values), "PATCH", **headers)
    return status, answered, json.loads(body)


def test_values_and_catalogue_are_asked_for_once(device):
    for path in (VALUES, CATALOGUE):
        status, headers, body = device.http(path, **{"Accept-Encoding": "gzip"})
        assert (status, headers["Content-Encoding"]) == (200, "gzip")
        assert len(body) < 30000
        content = json.loads(gzip.decompress(body))
        assert len(content.get("variables", content)) == 816
        for known in (headers["ETag"], '"0", W/' + headers["ETag"].removeprefix("W/"), "*"):
            assert device.http(path, **{"If-None-Match": known})[::2] == (304, b"")
    named = headers["Content-Location"]
    assert "immutable" in device.http(named)[1]["Cache-Control"]
    assert device.http(named + "0")[0] == 404
    assert content["variables"][BRIGHTNESS] == {"type": "int", "min": 0, "max": 10}


def test_a_set_reaches_both_versions(device):
    with Stream(device) as stream:
        first = stream.next()
        new = (first["data"][BRIGHTNESS] + 1) % 10
        status, headers, stored = change(device, {BRIGHTNESS: new})
        assert (status, stored) == (200, {BRIGHTNESS: new})
        assert stream.next()["data"] == {BRIGHTNESS: new}
        assert b'"DisplayBrightness" : {"max":"10","min":"0","type":"int","value":"%d"}' % new in device.ask(TREE)
        device.ask(SET, b'{"MemPersistent":{"DisplayBrightness":10}}')
        last = stream.next()
        assert last["data"] == {BRIGHTNESS: 10} and int(last["id"]) > int(first["id"])
    assert change(device, {BRIGHTNESS: 1}, **{"If-Match": headers["ETag"]})[0] == 412
    assert change(device, {BRIGHTNESS: 1}, **{"If-Match": f'"{last["id"]}"'})[0] == 200


def test_refusals_are_problems(device):
    status, headers, problem = change(device, {BRIGHTNESS: 11, "KnobColor": "Black", "MemLens.LensFileList": [BIG]})
    assert (status, headers["Content-Type"]) == (422, "application/problem+json")
    errors = {error["variable"]: error for error in problem["errors"]}
    assert {name: error["code"] for name, error in errors.items()} == {
        BRIGHTNESS: "out-of-bounds", "KnobColor": "not-an-entry", "MemLens.LensFileList": "wrong-type"}
    assert [errors[BRIGHTNESS][key] for key in ("given", "min", "max")] == [11, 0, 10]
    for path, method, status in (("/api/v2/none", "POST", 404), (VALUES, "POST", 405), (VALUES + "?vars=No*", "GET", 400),
                                 (EVENTS + "?period=60001", "GET", 400)):
        with contextlib.closing(device.send(path, method=method)) as connection:
            answer = connection.getresponse()
            assert (answer.status, answer.headers["Content-Type"]) == (status, "application/problem+json")
            assert json.loads(answer.read())["status"] == status
    for value in range(10):  # the web server sends the next request on the refused one's connection
        assert device.http(EVENTS + "?period=x")[0] == 400
        assert change(device, {BRIGHTNESS: value})[0] == 200


def test_other_sites_are_refused(device):
    assert device.http(VALUES, Host="evil.example")[0] == 421
    assert change(device, {}, Origin=device.url)[0] == 200
    for headers in ({"Origin": "http://evil.example"}, {"Sec-Fetch-Site": "cross-site"}):
        assert device.http(VALUES, "{}", "PATCH", **headers)[0] == 403
        assert "Access-Control-Allow-Origin" not in device.http(VALUES, method="OPTIONS", **headers)[1]


def test_health_and_metrics(device):
    assert json.loads(device.http("/api/v2/health")[2]) == {"status": "ready"}
    _, headers, text = device.http("/api/v2/metrics")
    assert headers["Content-Type"].startswith("application/openmetrics-text")
    families = {family.name: family for family in text_string_to_metric_families(text.decode())}
    assert families["live_segments_mapped"].samples[0].value == 18
    assert families["live_requests"].samples[0].value >= 1
    _, headers, text = device.http("/api/v2/metrics", Accept="text/plain")
    assert headers["Content-Type"].startswith("text/plain; version=0.0.4")
    older = {(family.name, family.type, family.documentation) for family in plain_metrics(text.decode())}
    assert older == {(family.name, family.type, family.documentation) for family in families.values()}


def test_a_client_continues_and_notices_a_restart(device):
    with Stream(device) as stream:
        last = stream.next()["id"]
    for value in (3, 4, 5):
        change(device, {BRIGHTNESS: value})
    change(device, {"ButtonBrightness": 2})
    with Stream(device, "vars=MemPersistent.*&since=1", **{"Last-Event-ID": last}) as stream:
        assert stream.next()["data"].keys() == {BRIGHTNESS, "MemPersistent.ButtonBrightness"}
    with Stream(device, since_query(last)) as stream:
        again = stream.next()
        assert again["data"] == {BRIGHTNESS: 5} and "event" not in again
    device.end("live")
    assert device.http(VALUES)[0] in (502, 503)
    device.start_live()
    wait_until(lambda: device.http(VALUES)[0] == 200, "the process through the web server")
    with Stream(device, since_query(again["id"])) as stream:
        reset = stream.next()
        assert (reset["event"], reset["data"]) == ("reset", {BRIGHTNESS: 5})
        assert int(reset["id"]) > int(again["id"])


def since_query(sequence):
    return f"vars=MemPersistent.Display?rightness&since={sequence}"


def version_1(device, change_brightness):
    """Every header and byte of version 1's answers, besides times and the disk's free space; not the log, in which each
    process has its lines.
    """
    for method, _, path, body in [*JSON_ANSWERS, ("GET", SCREEN, SCREEN, None)]:
        status, headers, answer = device.http(path, body, method, **{"Content-Type": FORM_TYPE})
        headers = [header for header in headers.items() if header[0] != "Date"]
        yield path, status, headers, re.sub(rb'"space_available": \d+', b"", answer)
    device.forget_changes()
    with device.wait_for_update() as waiting:
        change_brightness({"DisplayBrightness": 3})
        yield waiting.answer().output
    change_brightness({"DisplayBrightness": 11})
    yield device.ask(TREE)


def test_version_1_is_the_same_with_and_without_the_process(web_server):
    with SystemDevice(**{web_server: True}) as without, SystemDevice(**{web_server: True, "live": True}) as beside, \
            Stream(beside, "vars=*") as stream:
        stream.next()
        for alone, both in zip(
                version_1(without, lambda values: without.ask(SET, json.dumps({"MemPersistent": values}).encode())),
                version_1(beside, lambda values: change(beside, values)), strict=True):
            assert both == alone


def test_the_process_ends_with_the_broker(web_server):
    with SystemDevice(**{web_server: True, "live": True}, may_fail=("live",)) as device:
        with contextlib.suppress(AssertionError), Stream(device) as stream:
            stream.next()
            device.end("broker")
            stream.next()
        wait_until(lambda: device.ended() == ["live"], "the end of the process")
        assert device.end("live") == 1 and "The broker connection is lost" in device.log()
