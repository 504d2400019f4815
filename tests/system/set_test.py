"""set.cgi: stored values, posted events and answers."""

import json
import random
import struct

import pytest

SET = "/api/v1/set.cgi"
DONE = b'{"result": 1 }'
REFUSED = b'{"result": 0, "error": "" }'


def parse_error(position):
    return b'{"result": 0, "error": "JSON parse error at %d.\\u000d\\u000a" }' % position


@pytest.fixture
def empty(device, catalogue):
    """Memories of zeros, in which every stored byte shows."""
    for memory, size in catalogue.sizes().items():
        device.write(memory, 0, bytes(size))
    return device


@pytest.mark.parametrize("body, memory, at, raw, posted", [
    # A number posts its event only when it changes, a text always. Numbers are read as C does: 010 is octal.
    (b'{"MemPersistent":{"Index":9,"DisplayBrightness":7}}', "MemPersistent", 92, b"\7", [(221, 0, 0)]),
    (b"{MemPersistent:{DisplayBrightness:'010'}}", "MemPersistent", 92, b"\x08", [(221, 0, 0)]),
    (b'{ "MemPersistent" : [ { "DisplayBrightness" : 7 } ] }', "MemPersistent", 92, b"\7", [(221, 0, 0)]),
    (b'{"MemPersistent":{"DisplayBrightness":7}', "MemPersistent", 92, b"\7", [(221, 0, 0)]),
    # The first key is the memory, the last one in it the variable.
    (b'{"MemPersistent":1,"MemApp":{"x":2,"DisplayBrightness":7}}', "MemPersistent", 92, b"\7", [(221, 0, 0)]),
    (b'{"MemPersistent":{"CircleofConfusion":0.05}}', "MemPersistent", 136, struct.pack("<f", 0.05), [(237, 0, 0)]),
    (b'{"MemApp":{"AppGuiLogLevel":"Warn"}}', "MemApp", 4, b"\6", [(8, 0, 0)]),
    (b'{"MemPersistent":{"ProductName":"123456789012345678\xc3\xa9"}}', "MemPersistent", 0, b"123456789012345678",
     [(198, 0, 0)] * 2),
    (b'{"MemGuiLocal":{"RadioRegionFlags":"0aFf0123"}}', "MemGuiLocal", 472, b"\x0a\xff\x01", [(809, 0, 0)] * 2),
    (b'{"MemPersistent":{"MruLensFileList":{"LensFileName":"c","Index":1,"Index":9}}}', "MemPersistent", 163 + 324,
     b"c", [(250, 0, 9)]),
    (b'{"MemPersistent":{"RadioModuleList":{"Index":1,"RadioModuleType":"P900","RadioModuleBoost":true,'
     b'"RadioModuleChannel":5}}}', "MemPersistent", 588 + 20, struct.pack("<iiii", 2, 0, 5, 0) + b"\0\0\1",
     [(276, 0, 1)]),
])
def test_value_is_stored_and_posted(empty, catalogue, events, body, memory, at, raw, posted):
    size = catalogue.sizes()[memory]
    for _ in range(2):
        assert empty.ask(SET, body) == DONE
        assert empty.read(memory, 0, size) == (bytes(at) + raw).ljust(size, b"\0")
    assert events.posted() == posted


def test_true_changes_a_flag_that_is_neither_0_nor_1(empty, events):
    empty.write("MemPersistent", 40, b"\2")
    for _ in range(2):
        assert empty.ask(SET, b'{"MemPersistent":{"RadioPower":true}}') == DONE
        assert empty.read("MemPersistent", 40, 1) == b"\1"
    assert events.posted() == [(206, 0, 0)]


@pytest.mark.parametrize("body, answer", [
    # Out of range, or not a number: refused without an error.
    (b'{"MemPersistent":{"DisplayBrightness":11}}', DONE),
    (b'{"MemPersistent":{"CircleofConfusion":-0.05}}', DONE),  # without a lower bound, values have to be positive
    (b'{"MemPersistent":{"LastKnownFocusValue":nan}}', DONE),
    (b'{"MemGuiLocal":{"RadioRegionFlags":"zz"}}', DONE),
    # Structures: an element outside, an unknown member, a wrong value beside a right one.
    (b'{"MemPersistent":{"MruLensFileList":{"Index":10,"LensFileName":"b"}}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"LensFileName":"b","Nothing":1}}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"LensFileName":"b","LensFileValid":maybe}}}', DONE),
    # An index that is no int, or the index last.
    (b'{"MemPersistent":{"MruLensFileList":{"Index":99999999999,"LensFileName":"b"}}}', REFUSED),
    (b'{"MemPersistent":{"DisplayBrightness":7,"Index":1}}', REFUSED),
    # Unknown names, and no value.
    (b'{"mempersistent":{"DisplayBrightness":7}}', REFUSED),
    (b'{"MemPersistent":{"Nothing":7}}', REFUSED),
    (b" \r\n\t", REFUSED),
    (b'{"MemPersistent":{"DisplayBrightness":7', REFUSED),
    # Not JSON: the position of the first wrong character.
    (b"DisplayBrightness=7", parse_error(0)),
    (b'{"MemPersistent":{"DisplayBrightness":7}} x', parse_error(42)),
    (b"\0", parse_error(0)),
])
def test_refused_value_changes_nothing(empty, catalogue, events, body, answer):
    assert empty.ask(SET, body) == answer
    for memory, size in catalogue.sizes().items():
        assert empty.read(memory, 0, size) == bytes(size)
    assert events.posted() == []


@pytest.mark.parametrize("body", [
    b'{"a":' * 1000 + b"1" + b"}" * 1000,
    b'{"%s%n%x":{"%s%n%n%n":"%n"}}',
    b'{"' + b"k" * 1000000 + b'":{"v":1}}',
    random.Random(3).randbytes(200000),
], ids=range(4))
def test_hostile_body_is_answered(empty, body):
    assert json.loads(empty.ask(SET, body))["result"] in (0, 1)
    assert empty.ask(SET, b'{"MemPersistent":{"DisplayBrightness":7}}') == DONE
