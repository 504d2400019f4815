"""Live answers of every endpoint against the OpenAPI description."""

import json
import re
from pathlib import Path

import jsonschema
import pytest

from app_test import FORM_TYPE, form
from catalogue import as_float32
from systemdevice import BUILD

DOCUMENT = json.loads(Path(BUILD, "generated/docs/openapi.json").read_text())
SCHEMAS = DOCUMENT["components"]["schemas"]
TREE, SET, UPDATE, LOG = "/api/v1/all.cgi", "/api/v1/set.cgi", "/api/v1/update.cgi", "/api/v1/log.cgi"
SCREEN = "/api/v1/screen.cgi"
APP = "/qorapp/v1"
FILE, LIST, UPLOAD = APP + "/{kind}/file/{name}", APP + "/{kind}/list", APP + "/device/update"


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
    status, headers, answer = device.http(path, body, method, **{"Content-Type": FORM_TYPE})
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
    ("POST", UPLOAD, UPLOAD, b"not a form"),
    ("POST", UPLOAD, UPLOAD, form(b"x", "nodash")),
    ("POST", UPLOAD, UPLOAD, form(b"x", "Ultrasonic Ranger-5512")),
    ("GET", LIST, APP + "/setups/list", None),
    ("PUT", FILE, APP + "/setups/file/a.stp", b"1"),
    ("GET", LIST, APP + "/setups/list", None),
    ("PUT", FILE, f"{APP}/setups/file/{256 * 'n'}", b"1"),
    ("DELETE", FILE, APP + "/setups/file/a.stp", None),
    ("GET", FILE, APP + "/setups/file/a.stp", None),
    ("GET", APP + "/{request}", APP + "/nope", None),
]
OTHER_ANSWERS = {("GET", UPDATE), ("GET", LOG), ("GET", SCREEN)}


def test_every_json_answer_is_as_described(device):
    for request in JSON_ANSWERS:
        answer, described = ask(device, *request)
        described.validate(json.loads(answer))
    operations = {(method.upper(), path) for path, item in DOCUMENT["paths"].items() for method in item
                  if method != "parameters"}
    assert operations == {(method, template) for method, template, _, _ in JSON_ANSWERS} | OTHER_ANSWERS


def test_update_is_as_described(device):
    described = DOCUMENT["paths"][UPDATE]["get"]["responses"]["200"]["content"]["application/json"]["schema"]
    device.forget_changes()
    with device.wait_for_update(65535) as waiting:
        device.ask(SET, b'{"MemLens": {"LensFileList": {"Index": 99, "LensFileSelected": true}}}')
        update = json.loads(waiting.answer().body)
    validator(described).validate(update)
    schema = json.loads(Path(BUILD, "generated/docs/catalogue.schema.json").read_text())
    jsonschema.validate(update["variables"], {**schema["$defs"]["update"], "$defs": schema["$defs"]},
                        jsonschema.Draft202012Validator)
    assert update["variables"]["MemLens"]["LensFileList"][99]["LensFileSelected"] is True


def test_log_picture_and_file_are_as_described(device):
    device.ask("a line for the log")
    answer, described = ask(device, "GET", LOG, LOG)
    described.validate(answer.decode())
    length, _, text = answer.partition(b"\r\n")
    assert int(length) == len(text)
    assert b"<" not in re.sub(rb"<span style='(?:(?:background-)?color: #[0-9A-F]{6})?'>|</span>", b"", text)
    assert ask(device, "GET", SCREEN, SCREEN)[0].startswith(b"\x89PNG\r\n\x1a\n")
    content = bytes(range(256))
    device.http(APP + "/focusrings/file/ring", content, "PUT")
    assert ask(device, "GET", FILE, APP + "/focusrings/file/ring")[0] == content


def resolved(schema):
    """The schema with the one that it refers to, one level deep."""
    target = SCHEMAS[schema["$ref"].rpartition("/")[2]] if "$ref" in schema else {}
    properties = {name: {**row, **schema.get("properties", {}).get(name, {})}
                  for name, row in target.get("properties", {}).items()}
    return {**target, **schema, **({"properties": properties} if properties else {})}


def values(schema):
    """The smallest and the largest allowed value, and some that are not allowed."""
    schema = resolved(schema)
    if "properties" in schema:
        members = {name: values(row) for name, row in schema["properties"].items()}
        low, high = ({name: row[end] for name, row in members.items()} for end in (0, 1))
        return low, high, [{**high, name: value} for name, row in members.items() for value in row[2]]
    if "enum" in schema:
        return schema["enum"][-1], schema["enum"][-1], ["NoSuchEntry"]
    if schema["type"] == "boolean":
        return False, True, ["True"]
    if schema["type"] == "string":
        is_buffer = "a-f" in schema["pattern"]
        longest = schema["maxLength"] * ("f" if is_buffer else "x")
        return longest, longest, ["zz" if is_buffer else longest + "x"]
    low, high = schema["minimum"], schema["maximum"]
    step = 1 if schema["type"] == "integer" else 0.01 * max(1, high, -low)
    return low, high, [low - step, high + step]


def as_read(value, read):
    """A value that was set, as the tree has it. Other elements of an array are taken from `read`."""
    if isinstance(value, dict):
        members = {name: as_float32(member) if isinstance(member, float) else member
                   for name, member in value.items() if name != "Index"}
        at = value.get("Index", 0)
        return [*read[:at], members, *read[at + 1:]] if isinstance(read, list) else members
    if read["type"] == "float":
        return {**read, "value": "%f" % as_float32(value)}
    return {**read, "value": str(value).lower() if read["type"] == "bool" else str(value)}


def test_allowed_values_are_stored_and_others_are_not(device, catalogue):
    def is_allowed(memory, name, value):
        assignment = {memory: {name: value}}
        assert device.ask(SET, json.dumps(assignment).encode()) == b'{"result": 1 }'
        return allowed.is_valid(assignment)

    def read_all():
        memories = json.loads(device.ask(TREE), parse_float=as_float32)["variables"]
        return {(memory, name): value for memory, values in memories.items() for name, value in values.items()}

    allowed = validator({"$ref": "#/components/schemas/Assignment"})
    # MemApp comes first: its log level ends the lines about the following values.
    settings = [(memory, name, values(schema)) for memory in reversed(catalogue.memories)
                for name, schema in SCHEMAS[f"SetMemory.{memory}"]["properties"].items()]
    for end in (0, 1):
        for memory, name, row in settings:
            assert is_allowed(memory, name, row[end]), (memory, name)
        stored = read_all()
        assert stored == {(memory, name): as_read(row[end], stored[memory, name]) for memory, name, row in settings}
    for memory, name, row in settings:
        for value in row[2]:
            assert not is_allowed(memory, name, value), (memory, name, value)
    assert read_all() == stored
    assert not allowed.is_valid({}) and not allowed.is_valid({"MemApp": {}, "MemLens": {}})
