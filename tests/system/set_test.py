"""set.cgi: what is stored, what is posted and what is answered."""

import json
import random
import resource
import struct

import pytest

from fastcgi import JSON_HEADER
from systemdevice import IS_SANITIZED, wait_until

SET = "/api/v1/set.cgi"
DONE = b'{"result": 1 }'
REFUSED = b'{"result": 0, "error": "" }'
LENS_FILE = "MruLensFileList"


def parse_error(position):
    return b'{"result": 0, "error": "JSON parse error at %d.\\u000d\\u000a" }' % position


def body_of(memory, name, value):
    return f'{{"{memory}":{{"{name}":{value}}}}}'.encode()


def file_element(name, *flags):
    return name.ljust(32, b"\0") + bytes(flags)


@pytest.fixture
def empty(device, catalogue):
    """Memories that hold nothing; what a test stores in them shows."""
    for memory, size in catalogue.sizes().items():
        device.write(memory, 0, bytes(size))
    return device


@pytest.mark.parametrize("memory, name, value, raw", [
    ("MemPersistent", "DisplayBrightness", "7", struct.pack("<i", 7)),
    ("MemPersistent", "DisplayBrightness", '"0x7"', struct.pack("<i", 7)),
    ("MemPersistent", "DisplayBrightness", '"010"', struct.pack("<i", 8)),  # asked as ten, stored as octal
    ("MemPersistent", "DisplayBrightness", '" 9abc"', struct.pack("<i", 9)),
    ("MemPersistent", "LastKnownFocusValue", "-1.5", struct.pack("<f", -1.5)),
    ("MemPersistent", "LastKnownFocusValue", "1e38", struct.pack("<f", 1e38)),
    ("MemPersistent", "CircleofConfusion", "0.05", struct.pack("<f", 0.05)),
    ("MemPersistent", "RadioPower", "true", b"\1"),
    ("MemPersistent", "RadioPower", '"true"', b"\1"),
    ("MemPersistent", "ProductName", '"Hand unit"', b"Hand unit".ljust(20, b"\0")),
    ("MemPersistent", "ProductName", '"1234567890123456789012345"', b"1234567890123456789\0"),
    ("MemPersistent", "ProductName", '"123456789012345678é"', b"123456789012345678\0\0"),
    ("MemGuiLocal", "RadioRegionFlags", '"0aFf01"', b"\x0a\xff\x01"),
    ("MemGuiLocal", "RadioRegionFlags", '"0aFf0123"', b"\x0a\xff\x01"),
    ("MemGuiLocal", "RadioRegionFlags", '"abc"', b"\xab\xc0\0"),
    ("MemApp", "AppGuiLogLevel", '"Warn"', struct.pack("<i", 6)),
    ("MemPersistent", LENS_FILE, '{"LensFileName":"a.lda","LensFileValid":true}', file_element(b"a.lda", 1, 0, 0, 0)),
])
def test_a_value_is_stored_and_its_event_posted(empty, catalogue, events, memory, name, value, raw):
    variable = catalogue.variable(memory, name)
    size = catalogue.memories[memory]["size"]
    assert empty.ask(SET, body_of(memory, name, value)) == DONE
    expected = bytes(variable["at"]) + raw
    assert empty.read(memory, 0, size) == expected.ljust(size, b"\0")
    assert events.posted() == [(variable["event"], 0, 0)]


@pytest.mark.parametrize("body, at, raw, event", [
    (b'{"MemPersistent":{"Index":9,"DisplayBrightness":7}}', 92, b"\7", (221, 0, 0)),
    (b"{MemPersistent:{DisplayBrightness:'7'}}", 92, b"\7", (221, 0, 0)),
    (b'{ "MemPersistent" : [ { "DisplayBrightness" : 7 } ] }', 92, b"\7", (221, 0, 0)),
    (b'{"MemPersistent":{"DisplayBrightness":7}', 92, b"\7", (221, 0, 0)),
    (b'{"MemPersistent":{"FocusTorque":3,"DisplayBrightness":7}}', 92, b"\7", (221, 0, 0)),
    (b'{"MemPersistent":{"MruLensFileList":{"Index":2,"LensFileName":"b.lda"}}}', 163 + 72, b"b.lda", (250, 0, 2)),
    (b'{"MemPersistent":{"MruLensFileList":{"LensFileName":"c","Index":1,"Index":9}}}', 163 + 324, b"c", (250, 0, 9)),
    (b'{"MemPersistent":{"RadioModuleList":{"Index":1,"RadioModuleType":"P900","RadioModuleBoost":true,'
     b'"RadioModuleChannel":5}}}', 588 + 20, struct.pack("<iiii", 2, 0, 5, 0) + b"\0\0\1", (276, 0, 1)),
])
def test_index_and_place_choose_the_element(empty, events, body, at, raw, event):
    assert empty.ask(SET, body) == DONE
    assert empty.read("MemPersistent", at, len(raw)) == raw
    assert sum(empty.read("MemPersistent", 0, 652)) == sum(raw)  # and nothing besides
    assert events.posted() == [event]


def test_what_does_not_change_is_not_posted(empty, events):
    for value in (b"7", b"7", b"0"):
        empty.ask(SET, b'{"MemPersistent":{"DisplayBrightness":%s}}' % value)
    for name in (b"a", b"a"):
        empty.ask(SET, b'{"MemPersistent":{"MruLensFileList":{"Index":3,"LensFileName":"%s"}}}' % name)
    assert events.posted() == [(221, 0, 0), (221, 0, 0), (250, 0, 3)]
    for _ in range(2):
        empty.ask(SET, b'{"MemPersistent":{"ProductName":"a"}}')
    assert events.posted() == [(198, 0, 0)] * 2  # a text is posted each time


@pytest.mark.parametrize("body, answer", [
    # Out of range, or no such number: refused without a word.
    (b'{"MemPersistent":{"DisplayBrightness":11}}', DONE),
    (b'{"MemPersistent":{"DisplayBrightness":-1}}', DONE),
    (b'{"MemPersistent":{"DisplayBrightness":"seven"}}', DONE),
    (b'{"MemPersistent":{"DisplayBrightness":99999999999999999999}}', DONE),
    (b'{"MemPersistent":{"FocusTorque":5}}', DONE),
    (b'{"MemPersistent":{"CircleofConfusion":0.2}}', DONE),
    (b'{"MemPersistent":{"CircleofConfusion":-0.05}}', DONE),  # only an upper bound: nothing below the smallest number
    (b'{"MemPersistent":{"LastKnownFocusValue":1e39}}', DONE),
    (b'{"MemPersistent":{"LastKnownFocusValue":nan}}', DONE),
    (b'{"MemPersistent":{"RadioPower":True}}', DONE),
    (b'{"MemPersistent":{"RadioPower":1}}', DONE),
    (b'{"MemApp":{"AppGuiLogLevel":"warn"}}', DONE),
    (b'{"MemApp":{"AppGuiLogLevel":6}}', DONE),
    (b'{"MemGuiLocal":{"RadioRegionFlags":"zz"}}', DONE),
    # Structures: an element outside, a member that there is not, a bad one beside a good one.
    (b'{"MemPersistent":{"MruLensFileList":{"Index":10,"LensFileName":"b"}}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"Index":-1,"LensFileName":"b"}}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"Index":2147483647,"LensFileName":"b"}}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"LensFileName":"b","Nothing":1}}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"LensFileName":"b","LensFileValid":maybe}}}', DONE),
    (b'{"MemPersistent":{"MruLensFileList":{"LensFileName":"' + b"n" * 32 + b'"}}}', DONE),
    # An index that is none, or nothing else than an index.
    (b'{"MemPersistent":{"MruLensFileList":{"Index":99999999999,"LensFileName":"b"}}}', REFUSED),
    (b'{"MemPersistent":{"MruLensFileList":{"Index":"x","LensFileName":"b"}}}', REFUSED),
    (b'{"MemPersistent":{"MruLensFileList":{"Index":2}}}', REFUSED),
    (b'{"MemPersistent":{"Index":2}}', REFUSED),
    (b'{"MemPersistent":{"DisplayBrightness":7,"Index":1}}', REFUSED),
    # Names that there are not.
    (b'{"MemNowhere":{"DisplayBrightness":7}}', REFUSED),
    (b'{"mempersistent":{"DisplayBrightness":7}}', REFUSED),
    (b'{"MemPersistent":{"Nothing":7}}', REFUSED),
    (b'{"MemPersistent":{"":7}}', REFUSED),
    (b'{"MemPersistent":7}', REFUSED),
    (b'{"":{"":""}}', REFUSED),
    # Nothing to set.
    (b"", REFUSED),
    (b" \r\n\t", REFUSED),
    (b"{}", REFUSED),
    (b"{", REFUSED),
    (b'{"MemPersistent":{"DisplayBrightness":7', REFUSED),
    (b'{"MemPersistent":""}', REFUSED),
    (b"[]", REFUSED),
    # No JSON, by the place of the first character that does not belong.
    (b"x", parse_error(0)),
    (b"DisplayBrightness=7", parse_error(0)),
    (b'{"MemPersistent":{"DisplayBrightness":7}} x', parse_error(42)),
    (b'{"a b":1}', parse_error(4)),
    (b'{"a":"x\\"y"}', parse_error(9)),
    (b'{"MemPersistent":{"Display Brightness":7}}', parse_error(10)),
    (b"\0", parse_error(0)),
    (b"\xef\xbb\xbf{}", parse_error(0)),
])
def test_what_cannot_be_set_changes_nothing(empty, catalogue, events, body, answer):
    assert empty.ask(SET, body) == answer
    for memory, size in catalogue.sizes().items():
        assert empty.read(memory, 0, size) == bytes(size)
    assert events.posted() == []


def test_a_buffer_keeps_the_bytes_in_front_of_a_bad_pair(empty, events):
    assert empty.ask(SET, b'{"MemGuiLocal":{"RadioRegionFlags":"12zz56"}}') == DONE
    assert empty.read("MemGuiLocal", 472, 3) == b"\x12\0\0"
    assert events.posted() == []


@pytest.mark.parametrize("body", [
    b'{"a":' * 1000 + b"1" + b"}" * 1000,
    b"[" * 1000 + b"]" * 1000,
    b"[" * 200000,
    b'{"MemPersistent":' + b"{" * 50000,
    b'{"%s%n%x":{"%s%n%n%n":"%n"}}',
    b'{"' + b"k" * 1000000 + b'":{"v":1}}',
    b'{"MemPersistent":{"DisplayBrightness":' + b"9" * 300000 + b"}}",
    b'{"MemPersistent":{"ProductName":"' + b"\xff\xfe\0\x01" * 10000 + b'"}}',
    b'{"MemPersistent":{"MruLensFileList":{' + b'"Index":1,' * 20000 + b'"LensFileName":"x"}}}',
    b'{"MemPersistent":{"MruLensFileList":' + b'{"LensFileName":' * 15 + b"1" + b"}" * 18,
    b'{"MemStatic":{"VariableLogging":"\'"}}',
    b"," * 100000,
    random.Random(3).randbytes(200000),
], ids=range(13))
def test_a_hostile_body_is_answered(empty, body):
    answer = empty.ask(SET, body)
    assert json.loads(answer)["result"] in (0, 1)
    assert empty.ask(SET, b'{"MemPersistent":{"DisplayBrightness":7}}') == DONE


def test_random_changes_of_a_good_body_are_answered(empty):
    source = random.Random(4)
    good = b'{"MemPersistent":{"MruLensFileList":{"Index":2,"LensFileName":"b.lda","LensFileValid":true}}}'
    with empty.connect() as connection:
        for _ in range(1500):
            body = bytearray(good)
            for _ in range(source.randrange(1, 4)):
                body[source.randrange(len(body))] = source.choice(b'{}[]":,\\\'\0 \xff012Ix')
            answer = connection.ask(SET, bytes(body), keep=True)
            assert answer.output.startswith(JSON_HEADER + b'{"result": ')


def resident_size(device):
    with open(f"/proc/{device.pids['service']}/statm") as file:
        return int(file.read().split()[1]) * resource.getpagesize()


def test_the_memory_of_a_large_body_is_given_back(empty):
    before = resident_size(empty)
    for letter in (b"x", b"y"):
        assert empty.ask(SET, b'{"MemPersistent":{"ProductName":"%s"}}' % (letter * (20 << 20))) == DONE
        assert empty.read("MemPersistent", 0, 20) == letter * 19 + b"\0"
    if not IS_SANITIZED:  # the sanitizer keeps freed memory, to see who still uses it
        wait_until(lambda: resident_size(empty) < before + (16 << 20), "the memory of the bodies")
