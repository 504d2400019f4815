"""Live answers of every endpoint against the OpenAPI description, by a validator that knows nothing of the service."""

import json
import re
from pathlib import Path

import jsonschema
import pytest

from catalogue import as_float32
from systemdevice import BUILD

DOCUMENT = json.loads(Path(BUILD, "generated/docs/openapi.json").read_text())
SCHEMAS = DOCUMENT["components"]["schemas"]
TREE, SET, UPDATE, LOG = "/api/v1/all.cgi", "/api/v1/set.cgi", "/api/v1/update.cgi", "/api/v1/log.cgi"
SCREEN = "/api/v1/screen.cgi"
APP = "/qorapp/v1"
FILE, LIST, UPLOAD = APP + "/{kind}/file/{name}", APP + "/{kind}/list", APP + "/device/update"
FIELDS = b'--b\r\nContent-Disposition: form-data; name=deviceid\r\n\r\n%s\r\n' \
         b'--b\r\nContent-Disposition: form-data; name=file\r\n\r\nfirmware\r\n--b--\r\n'


@pytest.fixture(scope="module")
def device_options():
    return {"nginx": True, "display": ()}


def validator(schema):
    return jsonschema.Draft202012Validator({**schema, "components": DOCUMENT["components"]})


def ask(device, method, template, path, body=None):
    """The answer's body and its validator. The template has to be the description's first that fits the path."""
    fitting = [known for known in sorted(DOCUMENT["paths"], key=lambda known: known.count("{"))
               if re.fullmatch(re.sub(r"\\{\w+\\}", "[^/]+", re.escape(known)), path.partition("?")[0])]
    assert fitting[0] == template
    kind = "multipart/form-data; boundary=b" if body and b"--b" in body else "text/plain"
    status, headers, answer = device.http(path, body, method, **{"Content-Type": kind})
    described = DOCUMENT["paths"][template][method.lower()]["responses"][str(status)]
    return answer, validator(described["content"][headers["Content-Type"]]["schema"])


JSON_ANSWERS = [
    ("GET", TREE, TREE, None),
    ("POST", SET, SET, b'{"MemPersistent": {"DisplayBrightness": 5}}'),
    ("POST", SET, SET, b'{"MemPersistent": {"NoSuch": 11}}'),
    ("POST", SET, SET, b'"\r\n\t\\'),
    ("GET", "/api/v1/{script}", "/api/v1/nope%22%5c%0a.cgi", None),
    ("GET", APP + "/device/info", APP + "/device/info", None),
    ("GET", APP + "/device/status", APP + "/device/status", None),
    ("POST", UPLOAD, UPLOAD, b"no form"),
    ("POST", UPLOAD, UPLOAD, FIELDS[FIELDS.rindex(b"--b\r"):]),
    ("POST", UPLOAD, UPLOAD, FIELDS % b"nodash"),
    ("POST", UPLOAD, UPLOAD, FIELDS % b"Ultrasonic Ranger-5512"),
    ("GET", LIST, APP + "/setups/list", None),
    ("PUT", FILE, APP + "/setups/file/a.stp", b"1"),
    ("GET", LIST, APP + "/setups/list", None),
    ("PUT", FILE, f"{APP}/setups/file/{256 * 'n'}", b"1"),
    ("DELETE", FILE, APP + "/setups/file/a.stp", None),
    ("DELETE", FILE, APP + "/setups/file/a.stp", None),
    ("GET", FILE, APP + "/setups/file/a.stp", None),
    ("GET", APP + "/{request}", APP + "/nope", None),
]
OTHER_ANSWERS = {("GET", UPDATE), ("GET", LOG), ("GET", SCREEN)}


def test_every_answer_in_json_is_as_described_and_no_request_is_left_out(device):
    for request in JSON_ANSWERS:
        answer, described = ask(device, *request)
        described.validate(json.loads(answer))
    operations = {(method.upper(), path) for path, item in DOCUMENT["paths"].items() for method in item
                  if method != "parameters"}
    assert operations == {(method, template) for method, template, _, _ in JSON_ANSWERS} | OTHER_ANSWERS


def test_a_value_that_cannot_be_printed_costs_itself_when_the_described_words_are_taken_out(device, catalogue):
    row = catalogue.variable("MemLens", "LensFileList")
    good = json.loads(device.ask(TREE))
    before = device.read("MemLens", row["at"], 1)
    device.write("MemLens", row["at"], b"\xff")
    text = device.ask(TREE).decode()
    device.write("MemLens", row["at"], before)
    with pytest.raises(json.JSONDecodeError):
        json.loads(text)
    bad = json.loads(text.replace('"ERROR": ', ""))
    assert "invalid UTF-8" in bad["variables"]["MemLens"]["LensFileList"][0]
    bad["variables"]["MemLens"]["LensFileList"][0] = good["variables"]["MemLens"]["LensFileList"][0]
    assert bad == good


def test_an_update_is_as_described(device):
    described = DOCUMENT["paths"][UPDATE]["get"]["responses"]["200"]["content"]["application/json"]["schema"]
    device.forget_changes()
    with device.wait_for_update(65535) as waiting:
        device.ask(SET, b'{"MemLens": {"LensFileList": {"Index": 99, "LensFileSelected": true}}}')
        update = json.loads(waiting.answer().body)
    validator(described).validate(update)
    assert update["variables"]["MemLens"]["LensFileList"][99]["LensFileSelected"] is True


def test_log_picture_and_file_have_their_own_forms(device):
    device.ask("a line for the log")
    answer, described = ask(device, "GET", LOG, LOG)
    described.validate(answer.decode())
    length, _, text = answer.partition(b"\r\n")
    assert int(length) == len(text)
    spans = rb"<span style='(?:(?:background-)?color: #[0-9A-F]{6})?'>|</span>"
    assert b"<" not in re.sub(spans, b"", text), "nothing else is markup"
    answer, _ = ask(device, "GET", SCREEN, SCREEN)
    assert answer.startswith(b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\3\x20\0\0\1\xe0\x08\6\0\0\0")
    content = bytes(range(256))
    device.http(APP + "/focusrings/file/ring", content, "PUT")
    assert ask(device, "GET", FILE, APP + "/focusrings/file/ring")[0] == content


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


def test_what_is_allowed_is_stored_and_what_is_not_is_not(device, catalogue):
    def is_allowed(memory, name, value):
        assignment = {memory: {name: value}}
        assert device.ask(SET, json.dumps(assignment).encode()) == b'{"result": 1 }'
        return allowed.is_valid(assignment)

    def read_all():
        memories = json.loads(device.ask(TREE), parse_float=as_float32)["variables"]
        return {(memory, name): value for memory, values in memories.items() for name, value in values.items()}

    allowed = validator({"$ref": "#/components/schemas/Assignment"})
    # The log level comes first and ends the lines about what follows.
    settings = [(memory, name, schema) for memory in reversed(catalogue.memories)
                for name, schema in SCHEMAS[f"SetMemory.{memory}"]["properties"].items()]
    for end in ("minimum", "maximum"):
        for memory, name, schema in settings:
            assert is_allowed(memory, name, outermost(schema, end)), (memory, name)
        stored = read_all()
        assert stored == {(memory, name): as_read(outermost(schema, end), schema, stored[memory, name])
                          for memory, name, schema in settings}
    for memory, name, schema in settings:
        for value in beyond(schema):
            assert not is_allowed(memory, name, value), (memory, name, value)
    assert read_all() == stored
