"""Live answers of every endpoint against the OpenAPI description, by a validator that knows nothing of the service."""

import http.client
import json
import re
import struct
from pathlib import Path

import jsonschema
import pytest

from catalogue import as_float32
from systemdevice import BUILD

DOCUMENT = json.loads(Path(BUILD, "generated/docs/openapi.json").read_text())
SCHEMAS = DOCUMENT["components"]["schemas"]
SET, UPDATE, LOG = "/api/v1/set.cgi", "/api/v1/update.cgi", "/api/v1/log.cgi"
FILE = "/qorapp/v1/{kind}/file/{name}"
FORM = "multipart/form-data; boundary=b"
FIELDS = b'--b\r\nContent-Disposition: form-data; name=deviceid\r\n\r\n%s\r\n' \
         b'--b\r\nContent-Disposition: form-data; name=file\r\n\r\nfirmware\r\n--b--\r\n'


@pytest.fixture(scope="module")
def device_options():
    return {"nginx": True, "display": ()}


def validator(schema):
    return jsonschema.Draft202012Validator({**schema, "components": DOCUMENT["components"]})


def named(name):
    return validator({"$ref": f"#/components/schemas/{name}"})


def ask(device, method, path, body=None, content_type="application/json"):
    """Status, type and body of the answer."""
    connection = http.client.HTTPConnection("127.0.0.1", device.http_port, timeout=30)
    try:
        connection.request(method, path, body, {"Content-Type": content_type})
        response = connection.getresponse()
        return response.status, response.headers["Content-Type"], response.read()
    finally:
        connection.close()


def described(method, template, path, status, content_type):
    """The validator of an answer. The template has to be the description's first that fits the path."""
    fitting = [known for known in sorted(DOCUMENT["paths"], key=lambda known: known.count("{"))
               if re.fullmatch(re.sub(r"\\{\w+\\}", "[^/]+", re.escape(known)), path.partition("?")[0])]
    assert fitting[0] == template
    answer = DOCUMENT["paths"][template][method.lower()]["responses"][str(status)]
    return validator(answer["content"][content_type]["schema"])


JSON_ANSWERS = [
    ("GET", "/api/v1/all.cgi", "/api/v1/all.cgi", None),
    ("POST", SET, SET, b'{"MemPersistent": {"DisplayBrightness": 5}}'),
    ("POST", SET, SET, b'{"MemPersistent": {"DisplayBrightness": 11}}'),
    ("POST", SET, SET, b'{"MemPersistent": {"NoSuch": 11}}'),
    ("POST", SET, SET, b'"\r\n\t\\'),
    ("POST", SET, SET, b""),
    ("GET", "/api/v1/{script}", "/api/v1/nope%22%5c%0a.cgi", None),
    ("GET", "/qorapp/v1/device/info", "/qorapp/v1/device/info", None),
    ("GET", "/qorapp/v1/device/status", "/qorapp/v1/device/status", None),
    ("POST", "/qorapp/v1/device/update", "/qorapp/v1/device/update", b"no form"),
    ("POST", "/qorapp/v1/device/update", "/qorapp/v1/device/update", FIELDS[FIELDS.rindex(b"--b\r"):]),
    ("POST", "/qorapp/v1/device/update", "/qorapp/v1/device/update", FIELDS % b"nodash"),
    ("POST", "/qorapp/v1/device/update", "/qorapp/v1/device/update", FIELDS % b"Ultrasonic Ranger-5512"),
    ("GET", "/qorapp/v1/{kind}/list", "/qorapp/v1/setups/list", None),
    ("PUT", FILE, "/qorapp/v1/setups/file/a.stp", b"1"),
    ("GET", "/qorapp/v1/{kind}/list", "/qorapp/v1/setups/list", None),
    ("PUT", FILE, f"/qorapp/v1/setups/file/{256 * 'n'}", b"1"),
    ("DELETE", FILE, "/qorapp/v1/setups/file/a.stp", None),
    ("DELETE", FILE, "/qorapp/v1/setups/file/a.stp", None),
    ("GET", FILE, "/qorapp/v1/setups/file/a.stp", None),
    ("GET", "/qorapp/v1/{request}", "/qorapp/v1/nope", None),
]
OTHER_ANSWERS = {("GET", UPDATE), ("GET", LOG), ("GET", "/api/v1/screen.cgi")}


def test_every_answer_in_json_is_as_described(device):
    for method, template, path, body in JSON_ANSWERS:
        kind = FORM if body and b"--b" in body else "text/plain"
        status, content_type, answer = ask(device, method, path, body, kind)
        described(method, template, path, status, content_type).validate(json.loads(answer))


def test_no_described_request_is_left_out():
    operations = {(method.upper(), path) for path, item in DOCUMENT["paths"].items() for method in item
                  if method != "parameters"}
    assert operations == {(method, template) for method, template, _, _ in JSON_ANSWERS} | OTHER_ANSWERS


def test_a_tree_of_what_no_process_should_store_is_as_described(device, catalogue):
    extremes = {"int": b"\0\0\0\x80", "float": b"\0\0\x80\xff", "enum": b"\xff\xff\xff\xff"}
    before = {name: device.read(name, 0, size) for name, size in catalogue.sizes().items()}
    for name in before:
        device.write(name, 0, catalogue.fill(name, lambda kind, size, _: extremes.get(kind, size * b"\x7f")))
    tree = json.loads(device.ask("/api/v1/all.cgi"))
    for name, data in before.items():
        device.write(name, 0, data)
    named("All").validate(tree)
    assert tree["variables"]["MemPersistent"]["LastKnownFocusValue"]["value"] == "-inf"


def test_a_value_that_cannot_be_printed_costs_itself_when_the_described_words_are_taken_out(device, catalogue):
    row = catalogue.variable("MemLens", "LensFileList")
    good = json.loads(device.ask("/api/v1/all.cgi"))
    before = device.read("MemLens", row["at"], 1)
    device.write("MemLens", row["at"], b"\xff")
    text = device.ask("/api/v1/all.cgi").decode()
    device.write("MemLens", row["at"], before)
    with pytest.raises(json.JSONDecodeError):
        json.loads(text)
    bad = json.loads(text.replace('"ERROR": ', ""))
    assert "invalid UTF-8" in bad["variables"]["MemLens"]["LensFileList"][0]
    bad["variables"]["MemLens"]["LensFileList"][0] = good["variables"]["MemLens"]["LensFileList"][0]
    assert bad == good


def test_an_update_is_as_described(device):
    device.forget_changes()
    waiting = [device.wait_for_update(request_id) for request_id in (1, 65535)]
    device.ask(SET, b'{"MemLens": {"LensFileList": {"Index": 99, "LensFileSelected": true}}}')
    for connection in waiting:
        update = json.loads(connection.answer().body)
        described("GET", UPDATE, UPDATE, 200, "application/json").validate(update)
        assert update["variables"]["MemLens"]["LensFileList"][99]["LensFileSelected"] is True
        connection.close()


def test_the_log_has_its_own_form(device):
    device.ping()
    status, content_type, answer = ask(device, "GET", LOG)
    described("GET", LOG, LOG, status, content_type).validate(answer.decode())
    length, _, text = answer.partition(b"\r\n")
    assert int(length) == len(text)
    spans = rb"<span style='(?:(?:background-)?color: #[0-9A-F]{6})?'>|</span>"
    assert b"<" not in re.sub(spans, b"", text), "nothing else is markup"
    offset = int(length) - 7
    length, _, rest = ask(device, "GET", f"{LOG}?offset={offset}")[2].partition(b"\r\n")
    assert rest.startswith(text[-7:]) and int(length) == offset + len(rest), "the log may have grown meanwhile"


def test_a_picture_and_a_file_have_their_own_forms(device):
    status, content_type, answer = ask(device, "GET", "/api/v1/screen.cgi")
    described("GET", "/api/v1/screen.cgi", "/api/v1/screen.cgi", status, content_type)
    assert answer.startswith(b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\3\x20\0\0\1\xe0\x08\6\0\0\0")
    assert answer.endswith(b"\0\0\0\0IEND\xaeB`\x82")
    content = bytes(range(256))
    ask(device, "PUT", "/qorapp/v1/focusrings/file/ring", content)
    status, content_type, answer = ask(device, "GET", "/qorapp/v1/focusrings/file/ring")
    described("GET", FILE, "/qorapp/v1/focusrings/file/ring", status, content_type)
    assert answer == content


# What set.cgi takes: the description tells the lowest and the highest value of everything, and what is beyond.


def resolved(schema):
    """The schema with what it refers to, one level deep."""
    target = SCHEMAS[schema["$ref"].rpartition("/")[2]] if "$ref" in schema else {}
    properties = {name: {**row, **schema.get("properties", {}).get(name, {})}
                  for name, row in target.get("properties", {}).items()}
    return {**target, **schema, **({"properties": properties} if properties else {})}


def outermost(schema, end):
    """The value at an end of what is taken: "minimum" or "maximum"."""
    schema = resolved(schema)
    if "properties" in schema:
        return {name: outermost(row, end) for name, row in schema["properties"].items()}
    if "enum" in schema:
        return schema["enum"][-1]
    if schema["type"] == "boolean":
        return True
    if schema["type"] == "string":
        return schema["maxLength"] * ("f" if "a-f" in schema["pattern"] else "x")
    return schema[end]


def beyond(schema):
    """Values that are not taken."""
    schema = resolved(schema)
    if "properties" in schema:
        whole = outermost(schema, "maximum")
        return [{**whole, name: value} for name, row in schema["properties"].items() for value in beyond(row)]
    if "enum" in schema:
        return ["NoSuchEntry"]
    if schema["type"] == "boolean":
        return ["True"]
    if schema["type"] == "string":
        return ["zz"] if "a-f" in schema["pattern"] else [outermost(schema, "maximum") + "x"]
    step = 1 if schema["type"] == "integer" else 0.01 * max(1, schema["maximum"], -schema["minimum"])
    return [schema["maximum"] + step, schema["minimum"] - step]


def as_read(value, schema, read):
    """How a value that was set looks in the tree; the elements of an array beside it are taken from `read`."""
    schema = resolved(schema)
    if "properties" in schema:
        members = {name: as_float32(member) if isinstance(member, float) else member
                   for name, member in value.items() if name != "Index"}
        at = value["Index"]
        return [*read[:at], members, *read[at + 1:]] if isinstance(read, list) else members
    if isinstance(value, bool):
        return {**read, "value": "true"}
    if schema.get("type") == "number":
        return {**read, "value": "%f" % as_float32(value)}
    return {**read, "value": str(value)}


def rounded(value):
    """Floats of structures as the floats they mean."""
    elements = value if isinstance(value, list) else [value]
    for element in elements:
        element.update({name: as_float32(member) for name, member in element.items() if isinstance(member, float)})
    return value


@pytest.fixture
def settings(device, catalogue):
    """(memory, variable, schema) of all; afterwards the memories are as before."""
    before = {name: device.read(name, 0, size) for name, size in catalogue.sizes().items()}
    # The log level comes first and ends the lines about what follows.
    yield [(memory, name, schema) for memory in reversed(before)
           for name, schema in SCHEMAS[f"SetMemory.{memory}"]["properties"].items()]
    for name, data in before.items():
        device.write(name, 0, data)


def assign(device, memory, variable, value):
    """Whether the description allows it."""
    assignment = {memory: {variable: value}}
    assert device.ask(SET, json.dumps(assignment).encode()) == b'{"result": 1 }'
    return ASSIGNMENT.is_valid(assignment)


ASSIGNMENT = named("Assignment")


def read_all(device):
    memories = json.loads(device.ask("/api/v1/all.cgi"))["variables"]
    return {(memory, name): rounded(value) for memory, values in memories.items() for name, value in values.items()}


def test_what_is_allowed_is_stored_and_what_is_not_is_not(device, settings):
    for end in ("minimum", "maximum"):
        for memory, name, schema in settings:
            assert assign(device, memory, name, outermost(schema, end)), (memory, name)
        stored = read_all(device)
        assert stored == {(memory, name): as_read(outermost(schema, end), schema, stored[memory, name])
                          for memory, name, schema in settings}
    for memory, name, schema in settings:
        for value in beyond(schema):
            assert not assign(device, memory, name, value), (memory, name, value)
    assert read_all(device) == stored
