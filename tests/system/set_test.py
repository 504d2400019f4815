"""set.cgi: stored values, posted events and answers."""

import struct

import pytest

from systemdevice import DONE, SET

REFUSED = b'{"result": 0, "error": "" }'
PARSE_ERROR = b'{"result": 0, "error": "JSON parse error at 42.\\u000d\\u000a" }'


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


@pytest.mark.parametrize("body, answer", [
    # Out of range, or not a number: refused without an error.
    (b'{"MemPersistent":{"DisplayBrightness":11}}', DONE),
    (b'{"MemPersistent":{"CircleofConfusion":-0.05}}', DONE),  # without a lower bound, values have to be positive
    (b'{"MemGuiLocal":{"RadioRegionFlags":"zz"}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"Index":10,"LensFileName":"b"}}}', DONE),
    (b'{"mempersistent":{"DisplayBrightness":7}}', REFUSED),
    (b'{"MemPersistent":{"Nothing":7}}', REFUSED),
    (b'{"MemPersistent":{"MruLensFileList":{"Index":99999999999,"LensFileName":"b"}}}', REFUSED),
    # Not JSON: the position of the first wrong character.
    (b'{"MemPersistent":{"DisplayBrightness":7}} x', PARSE_ERROR),
])
def test_refused_value_changes_nothing(empty, catalogue, events, body, answer):
    assert empty.ask(SET, body) == answer
    for memory, size in catalogue.sizes().items():
        assert empty.read(memory, 0, size) == bytes(size)
    assert events.posted() == []
