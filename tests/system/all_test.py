"""all.cgi: a JSON document, byte for byte as it is meant, that says what the segments hold."""

import json
import random
import struct
from pathlib import Path

import jsonschema
import pytest

from catalogue import as_float32
from systemdevice import BUILD

TREE = "/api/v1/all.cgi"


@pytest.fixture(autouse=True)
def quiet(device):
    """No lines of level "Error" for the thousands of enumerations that hold anything."""
    yield
    device.write("MemApp", 0, struct.pack("<i", 7))


@pytest.fixture(scope="module")
def validator():
    components = json.loads(Path(BUILD, "generated/docs/openapi.json").read_text())["components"]
    return jsonschema.Draft202012Validator({"$ref": "#/components/schemas/All", "components": components})


def cut(content, size):
    """As many whole characters as fit in front of a terminator, and zeros behind."""
    return content.encode()[:size - 1].decode(errors="ignore").encode().ljust(size, b"\0")


def nothing(_kind, size, _entries):
    return bytes(size)


def largest(kind, size, entries):
    """All bits that a value may have; a text fills its field and leaves no terminator."""
    special = {"int": b"\xff\xff\xff\x7f", "float": b"\xff\xff\x7f\x7f", "string": b"\x7f" * size,
               "enum": struct.pack("<I", max(entries - 1, 0))}
    return special.get(kind, b"\xff" * size)


def smallest(kind, size, _entries):
    special = {"int": b"\0\0\0\x80", "float": b"\xff\xff\x7f\xff", "string": cut("\x01\x1f\t\n\r\b\f\"\\/", size),
               "bool": b"\x80"}
    return special.get(kind, bytes(size))


def foreign(kind, size, _entries):
    """Texts of characters that take two to four bytes, up to the end of the field."""
    special = {"string": cut("焦点距離ß€𝄞\u2028" * size, size), "float": b"\x01\0\0\0", "int": b"\xff\xff\xff\xff"}
    return special.get(kind, b"\x01".ljust(size, b"\0"))


def beyond(kind, size, entries):
    """Enumerations just behind their last entry, floats that are no numbers."""
    special = {"enum": struct.pack("<I", entries), "float": b"\0\0\x80\xff"}
    return special.get(kind, bytes(size))


def anything(seed):
    source = random.Random(seed)

    def make(kind, size, entries):
        if kind == "string":
            characters = "".join(chr(source.choice([source.randrange(1, 0x80), source.randrange(0xA0, 0xD800),
                                                    source.randrange(0x10000, 0x110000)])) for _ in range(size))
            return cut(characters[:source.randrange(size + 1)], size)
        if kind == "enum" and source.random() < 0.9:
            return struct.pack("<I", source.randrange(entries))
        return source.randbytes(size)

    return make


PATTERNS = [nothing, largest, smallest, foreign, beyond, anything(1), anything(2)]


@pytest.mark.parametrize("make", PATTERNS, ids=["nothing", "largest", "smallest", "foreign", "beyond", "any1", "any2"])
def test_every_value_is_what_the_segments_hold(device, catalogue, validator, make):
    contents = {memory: catalogue.fill(memory, make) for memory in catalogue.memories}
    for memory, content in contents.items():
        device.write(memory, 0, content)
    document = json.loads(device.ask(TREE), parse_float=as_float32)
    validator.validate(document)
    assert list(document) == ["id", "variables"]
    assert list(document["variables"]) == list(catalogue.memories)
    for memory, content in contents.items():
        values = document["variables"][memory]
        assert list(values) == [row["name"] for row in catalogue.memories[memory]["variables"]]
        expected = catalogue.decode(memory, content)
        for name, value in values.items():
            assert value == expected[name], f"{memory}.{name}"


def test_the_text_is_literal_in_records_that_need_no_padding_inside(device, catalogue):
    for memory in catalogue.memories:
        device.write(memory, 0, catalogue.fill(memory, nothing))
    for memory, name, raw in (("MemPersistent", "ProductName", b'caf\xc3\xa9 "1"\\\t\x01\0'),
                              ("MemPersistent", "ProductVersion", b"1.0\xff"),
                              ("MemPersistent", "LastKnownFocusValue", b"\xcd\xcc\xcc\x3d"),
                              ("MemGuiLocal", "RadioRegionFlags", b"\x0a\xff\0")):
        device.write(memory, catalogue.variable(memory, name)["at"], raw)
    with device.connect() as connection:
        answer = connection.ask(TREE, request_id=4711)
    tree = answer.output
    assert tree.startswith(b'Content-type: application/json\r\n\r\n{\r\n"id": 4711,\r\n"variables": {'
                           b'"MemPersistent" : {"ProductName" : {"max":"0","min":"0","type":"string",'
                           b'"value":"caf\xc3\xa9 \\"1\\"\\\\\\t\\u0001"},'
                           b'"ProductVersion" : "ERROR": "[json.exception.type_error.316] invalid UTF-8 byte '
                           b'at index 3: 0xFF","RadioPower" : { "value": "false", "type": "bool", '
                           b'"textid": [ "false", "true" ]},')
    assert b'"LastKnownFocusValue" : {"max":"1e+38","min":"-1e+38","type":"float","value":"0.100000"}' in tree
    assert b'"RadioRegionFlags" : {"max":"0","min":"0","type":"string","value":"0aff00"}' in tree
    assert b']},"MemDynamic" : {"PowerState" : { "value": "Unknown", "type": "PowerState", "textid": [ ' in tree
    assert tree.endswith(b'"AppLogLevel" : { "value": "DebugAll", "type": "LogLevel", "textid": [ "DebugAll",'
                         b'"DebugMost","DebugLight","LogAll","LogMost","LogLight","Warn","Error"]}}}}\r\n')
    assert tree.count(b"\r\n") == 5
    assert all(request_id == 4711 for _, request_id, _ in answer.records)
    # Content of 65528 bytes at most, padded to a multiple of 8 and no more than once at each end of a write.
    assert all(len(content) <= 65528 for _, _, content in answer.records)
    assert len(answer.raw) % 8 == 0
