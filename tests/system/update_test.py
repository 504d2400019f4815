"""update.cgi: every waiting request is answered with the next changes."""

import struct

import pytest

from fastcgi import JSON_HEADER
from systemdevice import SET

BODY = b'{"MemPersistent":{"DisplayBrightness":%d}}'
DISPLAY_BRIGHTNESS = b'\r\n  "MemPersistent" : {\r\n    "DisplayBrightness" : '
BRIGHTNESS = b'{"max":"10","min":"0","type":"int","value":"%d"}'
TRUE = b'{ "value": "true", "type": "bool", "textid": [ "false", "true" ]}'
NAME = b'{"max":"0","min":"0","type":"string","value":"Hand unit"}'
LEVEL = (b'{ "value": "Warn", "type": "LogLevel", "textid": [ "DebugAll","DebugMost","DebugLight","LogAll","LogMost",'
         b'"LogLight","Warn","Error"]}')


@pytest.fixture
def device(device):
    device.write("MemPersistent", 0, b"Hand unit\0")
    device.write("MemPersistent", 40, b"\1")
    device.write("MemPersistent", 92, struct.pack("<ii", 3, 4))
    device.write("MemApp", 0, struct.pack("<ii", 5, 6))
    device.forget_changes()
    return device


def document(request_id, variables):
    head = JSON_HEADER + b'{\r\n"id": %d,\r\n"errors": [],\r\n"variables": {' % request_id
    return head + variables + b"\r\n  }\r\n}\r\n}\r\n"


@pytest.mark.parametrize("ids, variables", [
    # Two variables of one memory, one of them changed many times.
    ([222] + [221] * 50, DISPLAY_BRIGHTNESS + BRIGHTNESS % 3 + b', \r\n    "ButtonBrightness" : ' + BRIGHTNESS % 4),
    # Ids without a variable show as the first variable of the first memory. A memory may appear twice.
    ([5, 8, (206, 7, 0xFFFFFFFF)], b'\r\n  "MemPersistent" : {\r\n    "ProductName" : ' + NAME +
     b'\r\n  }, \r\n  "MemApp" : {\r\n    "AppGuiLogLevel" : ' + LEVEL +
     b'\r\n  }, \r\n  "MemPersistent" : {\r\n    "RadioPower" : ' + TRUE),
    ([95, 200, 0], b'\r\n  "MemPersistent" : {' + b", ".join([b'\r\n    "ProductName" : ' + NAME] * 3)),
])
def test_document_is_literal(device, events, ids, variables):
    with device.wait_for_update(request_id=77) as waiting:
        events.post(*ids)
        assert waiting.answer().output == document(77, variables)


def test_a_set_answers_all_waiting_requests(device):
    waiting = [device.wait_for_update(request_id=number) for number in (1, 2, 65535)]
    device.ask(SET, BODY % 9)
    for request_id, connection in zip((1, 2, 65535), waiting):
        assert connection.answer().output == document(request_id, DISPLAY_BRIGHTNESS + BRIGHTNESS % 9)
        assert connection.is_closed()
