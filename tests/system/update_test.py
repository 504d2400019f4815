"""update.cgi: requests wait for a change, and all that wait are told of it."""

import json
import random
import socket
import struct
import time

import pytest

from fastcgi import STDOUT, record
from systemdevice import wait_until

UPDATE = "/api/v1/update.cgi"
SET = "/api/v1/set.cgi"
HEADER = b"Content-type: application/json\r\n\r\n"
BRIGHTNESS = b'{"max":"10","min":"0","type":"int","value":"%d"}'
TRUE = b'{ "value": "true", "type": "bool", "textid": [ "false", "true" ]}'
NAME = b'{"max":"0","min":"0","type":"string","value":"Hand unit"}'
LEVELS = (b'"textid": [ "DebugAll","DebugMost","DebugLight","LogAll","LogMost","LogLight","Warn","Error"]}')


@pytest.fixture
def device(device):
    device.write("MemPersistent", 0, b"Hand unit\0")
    device.write("MemPersistent", 40, b"\1")
    device.write("MemPersistent", 92, struct.pack("<ii", 3, 4))
    device.write("MemApp", 0, struct.pack("<ii", 7, 6))
    device.write("MemUserSetups", 0, b"\1")
    device.write("MemStatic", 248, b"\0")
    device.forget_changes()
    return device


def document(request_id, variables):
    head = HEADER + b'{\r\n"id": %d,\r\n"errors": [],\r\n"variables": {' % request_id
    return head + variables + b"\r\n  }\r\n}\r\n}\r\n"


@pytest.mark.parametrize("ids, variables", [
    # Two variables of one memory.
    ([222, 221], b'\r\n  "MemPersistent" : {\r\n    "DisplayBrightness" : ' + BRIGHTNESS % 3 +
     b', \r\n    "ButtonBrightness" : ' + BRIGHTNESS % 4),
    # Two memories.
    ([221, 8], b'\r\n  "MemApp" : {\r\n    "AppGuiLogLevel" : { "value": "Warn", "type": "LogLevel", ' + LEVELS +
     b'\r\n  }, \r\n  "MemPersistent" : {\r\n    "DisplayBrightness" : ' + BRIGHTNESS % 3),
    # Ids without a catalogue variable show as the first variable of the first memory, whose group opens again later.
    ([5, 8, 206], b'\r\n  "MemPersistent" : {\r\n    "ProductName" : ' + NAME +
     b'\r\n  }, \r\n  "MemApp" : {\r\n    "AppGuiLogLevel" : { "value": "Warn", "type": "LogLevel", ' + LEVELS +
     b'\r\n  }, \r\n  "MemPersistent" : {\r\n    "RadioPower" : ' + TRUE),
    ([95, 200, 0], b'\r\n  "MemPersistent" : {' + b", ".join([b'\r\n    "ProductName" : ' + NAME] * 3)),
    # One variable, changed many times.
    ([221] * 50, b'\r\n  "MemPersistent" : {\r\n    "DisplayBrightness" : ' + BRIGHTNESS % 3),
    # The last of all ids, with arguments.
    ([(206, 7, 0xFFFFFFFF)], b'\r\n  "MemPersistent" : {\r\n    "RadioPower" : ' + TRUE),
])
def test_the_document_is_literal(device, events, ids, variables):
    with device.wait_for_update(request_id=77) as waiting:
        events.post(*ids)
        assert waiting.answer().output == document(77, variables)


def test_a_set_is_told_to_all_that_wait_each_with_its_id(device):
    waiting = [device.wait_for_update(request_id=number) for number in (1, 2, 65535)]
    device.ask(SET, b'{"MemPersistent":{"DisplayBrightness":9}}')
    for request_id, connection in zip((1, 2, 65535), waiting):
        assert connection.answer().output == document(
            request_id, b'\r\n  "MemPersistent" : {\r\n    "DisplayBrightness" : ' + BRIGHTNESS % 9)
        assert connection.is_closed()


def test_all_changes_together_make_the_tree(device, catalogue, events):
    ids = [row["event"] for memory in catalogue.memories.values() for row in memory["variables"]]
    told = {memory: {} for memory in catalogue.memories}
    for at in range(0, len(ids), 200):
        with device.wait_for_update() as waiting:
            events.post(*ids[at:at + 200])
            for memory, values in json.loads(waiting.answer().body)["variables"].items():
                told[memory].update(values)
    assert told == json.loads(device.ask("/api/v1/all.cgi"))["variables"]


def test_without_a_change_a_request_waits(device):
    with device.wait_for_update() as waiting:
        assert waiting.is_silent(0.3)


def test_a_change_that_nobody_waits_for_is_consumed(device, events):
    events.post(221)
    events.posted()
    time.sleep(0.25)  # two runs of the periodic work
    with device.wait_for_update() as waiting:
        assert waiting.is_silent(0.3)


def test_a_client_that_vanishes_is_forgotten(device):
    before = device.descriptors()
    for give_up in (lambda s: s.close(), lambda s: s.shutdown(socket.SHUT_WR), reset):
        connection = device.wait_for_update()
        give_up(connection.socket)
        wait_until(lambda: device.descriptors() == before, "the descriptor of a client that has gone")
        connection.close()
    with device.wait_for_update() as waiting:
        device.ask(SET, b'{"MemPersistent":{"DisplayBrightness":8}}')
        assert b'"value":"8"' in waiting.answer().output
    assert device.log_lines("Could not send updates") == []


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def test_an_answered_request_waits_no_longer(device):
    with device.wait_for_update(request_id=5, keep=True) as connection:
        device.ask(SET, b'{"MemPersistent":{"DisplayBrightness":1}}')
        assert b'"value":"1"' in connection.answer().output
        device.ask(SET, b'{"MemPersistent":{"DisplayBrightness":2}}')
        assert connection.is_silent(0.3)
        connection.send_request(UPDATE, request_id=6, keep=True)
        device.ping()
        device.ask(SET, b'{"MemPersistent":{"DisplayBrightness":5}}')
        answer = connection.answer()
        assert answer.output.startswith(HEADER + b'{\r\n"id": 6,\r\n') and b'"value":"5"' in answer.output


def test_a_new_request_on_the_connection_takes_the_place_of_the_one_that_waits(device):
    with device.wait_for_update(keep=True) as connection:
        assert b"Unknown script: 'other'" in connection.ask("other", request_id=2, keep=True).output
        device.ask(SET, b'{"MemPersistent":{"DisplayBrightness":6}}')
        assert connection.is_silent(0.3)


@pytest.mark.parametrize("event", [931, 959, 960, 1 << 31, 0xFFFFFFFF])
def test_an_id_beyond_all_names_is_logged_and_dropped(device, events, event):
    device.write("MemApp", 0, struct.pack("<i", 6))
    line = f"Event id {event} is beyond the 931 known events"
    before = len(device.log_lines(line))
    with device.wait_for_update() as waiting:
        events.post((event, event, event))
        wait_until(lambda: len(device.log_lines(line)) > before, line)
        assert f"{'Warn':12}{'requesthandler.cpp':>20}:" in device.log_lines(line)[-1]
        assert waiting.is_silent(0.25)


def test_random_events_are_answered_or_dropped(device, events):
    source = random.Random(5)
    for _ in range(8):
        with device.wait_for_update() as waiting:
            words = [tuple(source.choice([source.randrange(1 << 32), source.randrange(931, 2000)]) for _ in range(3))
                     for _ in range(500)]
            events.post(*words, 206)
            assert document(1, b'\r\n  "MemPersistent" : {\r\n    "RadioPower" : ' + TRUE) == waiting.answer().output


def test_variable_logging_writes_each_change_to_the_log(device, events):
    device.write("MemApp", 0, struct.pack("<i", 5))
    device.write("MemStatic", 248, b"\1")
    with device.wait_for_update() as waiting:
        events.post(221, 95)
        waiting.answer()
    start = f"{'webservice':>20}  {'LogLight':12}{'requesthandler.cpp':>20}:"
    lines = [line for line in device.log().splitlines() if line.startswith(start) and " Mem" in line]
    assert [line[len(start):].split(" ", 1)[1].lstrip("0123456789 ") for line in lines[-2:]] == [
        "MemPersistent.DisplayBrightness: " + (BRIGHTNESS % 3).decode(),
        "MemPersistent.ProductName: " + NAME.decode()]


def test_an_answer_is_one_record_of_output_and_the_end(device, events):
    with device.wait_for_update(request_id=0x0102) as waiting:
        events.post(206)
        content = document(0x0102, b'\r\n  "MemPersistent" : {\r\n    "RadioPower" : ' + TRUE)
        assert waiting.answer().raw == (record(STDOUT, content, 0x0102, -len(content) % 8) +
                                        b"\1\3\1\2\0\x08\0\0" + bytes(8))
