"""all.cgi: a JSON document, literal to the byte, with the values of all memories."""

import json
from pathlib import Path

import jsonschema
import pytest

from systemdevice import BUILD, TREE

DOCS = Path(BUILD, "generated/docs")


@pytest.fixture(scope="module")
def validators():
    openapi = json.loads((DOCS / "openapi.json").read_text())
    schemas = [{"$ref": "#/components/schemas/Tree", "components": openapi["components"]},
               json.loads((DOCS / "catalogue.schema.json").read_text())]
    for schema in [*schemas, *openapi["components"]["schemas"].values()]:
        jsonschema.Draft202012Validator.check_schema(schema)
    return [jsonschema.Draft202012Validator(schema) for schema in schemas]


@pytest.mark.parametrize("is_filled", [True, False])
def test_tree_is_as_described(device, catalogue, validators, is_filled):
    if not is_filled:
        for memory, size in catalogue.sizes().items():
            device.write(memory, 0, bytes(size))
    tree = json.loads(device.ask(TREE))["variables"]
    for validator in validators:
        validator.validate(tree)
        assert not validator.is_valid({**tree, "MemApp": tree["MemStatic"]})
    assert [(name, list(values)) for name, values in tree.items()] == [
        (name, [variable.name for variable in memory.variables]) for name, memory in catalogue.memories.items()]


def test_document_is_literal(device, catalogue):
    for memory, size in catalogue.sizes().items():
        device.write(memory, 0, bytes(size))
    for memory, name, raw in (("MemPersistent", "ProductName", b'caf\xc3\xa9 "1"\\\t\x01\0'),
                              ("MemPersistent", "ProductVersion", b"1.0\xff"),
                              ("MemPersistent", "LastKnownFocusValue", b"\xcd\xcc\xcc\x3d"),
                              ("MemLens", "LensFileList", b"\xff"),
                              ("MemGuiLocal", "RadioRegionFlags", b"\x0a\xff\0")):
        device.write(memory, catalogue.variable(memory, name).at, raw)
    with device.connect() as connection:
        tree = connection.ask(TREE, request_id=4711).output
    assert tree.startswith(b'Content-type: application/json\r\n\r\n{\r\n"id": 4711,\r\n"variables": {'
                           b'"MemPersistent" : {"ProductName" : {"max":"0","min":"0","type":"string",'
                           b'"value":"caf\xc3\xa9 \\"1\\"\\\\\\t\\u0001"},'
                           b'"ProductVersion" : "ERROR": "[json.exception.type_error.316] invalid UTF-8 byte '
                           b'at index 3: 0xFF","RadioPower" : { "value": "false", "type": "bool", '
                           b'"textid": [ "false", "true" ]},')
    assert b'"LastKnownFocusValue" : {"max":"1e+38","min":"-1e+38","type":"float","value":"0.100000"}' in tree
    assert (b'"LensFileList" : ["ERROR": "[json.exception.type_error.316] invalid UTF-8 byte at index 0: 0xFF",{"'
            in tree)
    assert b'"RadioRegionFlags" : {"max":"0","min":"0","type":"string","value":"0aff00"}' in tree
    assert b']},"MemDynamic" : {"PowerState" : { "value": "Unknown", "type": "PowerState", "textid": [ ' in tree
    assert tree.endswith(b'"AppLogLevel" : { "value": "DebugAll", "type": "LogLevel", "textid": [ "DebugAll",'
                         b'"DebugMost","DebugLight","LogAll","LogMost","LogLight","Warn","Error"]}}}}\r\n')
