"""What other code relies on in the generated files."""

import json
import re
import shutil
import subprocess

import jsonschema
import pytest

from conftest import CASES, TOP, files_of, generate

WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror"]


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    assert result.returncode == 0, result.stderr
    return result.stdout


def test_unchanged_files_are_not_written_again(tmp_path):
    generate("--model", "model", "--out", tmp_path, folder=CASES / "good")
    kept, changed = tmp_path / "gen/code/memories.h", tmp_path / "docs/catalogue.md"
    before = kept.stat().st_mtime_ns
    changed.write_text("edited by hand")
    generate("--model", "model", "--out", tmp_path, folder=CASES / "good")
    assert kept.stat().st_mtime_ns == before
    assert files_of(tmp_path) == files_of(CASES / "good/expected")


@pytest.mark.parametrize("compiler", [
    ["cc", "-x", "c", "-std=c11"],
    ["c++", "-x", "c++", "-std=c++20", "-Wold-style-cast", "-Wshadow"],
    ["clang", "-x", "c", "-std=c11", "--target=armv7-linux-gnueabihf", "-ffreestanding"],
])
def test_memories_header_holds_its_layout_in(compiler, catalogue, tmp_path):
    if shutil.which(compiler[0]) is None:
        pytest.skip(f"{compiler[0]} is not installed")
    source = tmp_path / "process.c"
    source.write_text('#include "gen/code/memories.h"\n#include "gen/code/memories.h"\nint unused;\n')
    run(*compiler, *WARNINGS, "-fsyntax-only", "-I", catalogue, source)


@pytest.mark.parametrize("source", ["introspection_gen", "enumerations_gen", "structures_gen", "events_gen"])
def test_nothing_is_done_at_start_up_for(source, catalogue, tmp_path):
    compiled = tmp_path / "source.o"
    source = catalogue / f"gen/code/{source}.cpp"
    run("c++", "-std=c++20", *WARNINGS, "-I", TOP, "-I", catalogue, "-c", source, "-o", compiled)
    sections = run("objdump", "-h", compiled)
    assert ".data" in sections or ".rodata" in sections
    assert ".init_array" not in sections and ".ctors" not in sections


def text_value(kind, value, lowest="0", highest="0"):
    return {"max": highest, "min": lowest, "type": kind, "value": value}


def enum_value(kind, value, entries):
    return {"value": value, "type": kind, "textid": entries}


def lens(size):
    return {"Name": "35mm", "Side": "Left", "Valid": True, "Size": size, "Ratio": None}


def tree():
    return {
        "MemSetup": {
            "ProductName": text_value("string", "Controller"),
            "RadioPower": enum_value("bool", "true", ["false", "true"]),
            "FocusTorque": text_value("int", "3", "1", "4"),
            "LastFocus": text_value("float", "-0.500000", "-1e+38", "1e+38"),
            "Side": enum_value("MotorSide", "INVALID_VALUE:7", ["Left", "Right"]),
            "Lenses": [lens(1), lens(-2)],
            "Flags": text_value("string", "00ff10"),
            "Counter": text_value("int", "3", "-2147483648", "10"),
        },
        "MemApp": {
            "AppLogLevel": enum_value("LogLevel", "DebugMost", ["DebugAll", "DebugMost"]),
            "ActiveLens": lens(0),
        },
    }


def read(name):
    return json.loads((CASES / "good/expected/docs" / name).read_text())


def part(name):
    """A schema of the OpenAPI document, to validate with."""
    return {"$ref": f"#/components/schemas/{name}", "components": read("openapi.json")["components"]}


@pytest.fixture(scope="module", params=["catalogue.schema.json", "openapi.json"])
def schema(request):
    document = read(request.param) if request.param == "catalogue.schema.json" else part("Tree")
    jsonschema.Draft202012Validator.check_schema(document)
    return document


def test_schema_accepts_a_whole_tree(schema):
    jsonschema.validate(tree(), schema)


@pytest.mark.parametrize("path, value", [
    (("MemApp", "AppLogLevel", "value"), "Warn"),
    (("MemApp", "ActiveLens", "Size"), "0"),
    (("MemApp", "Extra"), text_value("int", "1")),
    (("MemSetup", "Lenses"), [lens(1)]),
    (("MemSetup", "Flags", "value"), "00ff"),
    (("MemSetup", "FocusTorque", "max"), "5"),
    (("MemSetup", "LastFocus", "value"), "0.5"),
    (("MemSetup", "RadioPower"), True),
])
def test_schema_refuses_a_tree_with_another(path, value, schema):
    document = tree()
    place = document
    for key in path[:-1]:
        place = place[key]
    place[path[-1]] = value
    with pytest.raises(jsonschema.ValidationError):
        jsonschema.validate(document, schema)


def test_schema_asks_for_every_variable_except_in_an_update(schema):
    document = {"MemApp": {"ActiveLens": lens(0)}}
    with pytest.raises(jsonschema.ValidationError):
        jsonschema.validate(document, schema)
    jsonschema.validate(document, part("Changes") if "components" in schema else
                        {"$ref": "#/$defs/update", "$defs": schema["$defs"]})


@pytest.mark.parametrize("variable, good, bad", [
    ("ProductName", ["", 19 * "x"], [20 * "x", 'a"b', "a\\b", "a\nb", 1]),
    ("RadioPower", [True, False], ["true", 1]),
    ("FocusTorque", [1, 4], [0, 5, 1.5, "1"]),
    ("LastFocus", [-1e38, 0, 0.5], [1.1e38, "0"]),
    ("Counter", [-2147483648, 10], [-2147483649, 11]),
    ("Flags", ["", "00Ff", "00ff10"], ["0", "00ff1020", "gg"]),
    ("Side", ["Left", "Right"], ["left", 0]),
    ("Lenses", [{"Index": 1, "Name": "12345"}, {"Size": -1, "Ratio": 0.5, "Valid": True, "Side": "Left"}],
     [{"Index": 2, "Size": 1}, {"Index": -1, "Size": 1}, {"Index": 1}, {}, {"Name": "123456"}, {"Other": 1}, []]),
])
def test_assignment_is_accepted_when_it_would_be_stored(variable, good, bad):
    validator = jsonschema.Draft202012Validator(part("Assignment"))
    assert [value for value in good if not validator.is_valid({"MemSetup": {variable: value}})] == []
    assert [value for value in bad if validator.is_valid({"MemSetup": {variable: value}})] == []


def test_assignment_names_one_variable_of_one_memory():
    validator = jsonschema.Draft202012Validator(part("Assignment"))
    assert not any(validator.is_valid(document) for document in [
        {}, {"MemSetup": {}}, {"MemSetup": {"Counter": 1, "FocusTorque": 1}}, {"MemSetup": {"Other": 1}},
        {"MemOther": {"Counter": 1}}, {"MemSetup": {"Counter": 1}, "MemApp": {"ActiveLens": {"Size": 1}}}])


def test_schema_of_the_device_is_valid(catalogue):
    document = json.loads((catalogue / "docs/catalogue.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(document)


def test_openapi_schemas_of_the_device_are_valid_and_lead_somewhere(catalogue):
    schemas = json.loads((catalogue / "docs/openapi.json").read_text())["components"]["schemas"]
    for schema in schemas.values():
        jsonschema.Draft202012Validator.check_schema(schema)
    targets = set(re.findall(r'"#/components/schemas/([^"]+)"', json.dumps(schemas)))
    assert targets <= set(schemas)
    assert schemas["Entry.UpdateState"]["enum"][2] == "FileValid"
