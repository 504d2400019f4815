"""What the generator makes of models. One folder per case: cases/<case>/model and, to the byte, the files that come of
it in expected/, or the whole message in expected.error. cases/good/tree.json is a tree of variables of that model.
"""

import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
from jsonschema import Draft202012Validator

TOP = Path(__file__).resolve().parents[2]
CASES = Path(__file__).resolve().parent / "cases"
GOOD = CASES / "good"
SCHEMA = json.loads((GOOD / "expected/docs/catalogue.schema.json").read_text())
OPENAPI = json.loads((GOOD / "expected/docs/openapi.json").read_text())


def generate(*arguments, folder):
    """Runs the generator in `folder`, so that messages name paths in it: status, output and message."""
    command = [sys.executable, TOP / "gen/generator/generate.py", *arguments]
    result = subprocess.run(command, cwd=folder, capture_output=True, text=True, check=False)
    return result.returncode, result.stdout, result.stderr


def files_of(folder):
    """The bytes of every file under `folder` by its path in it."""
    return {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


@pytest.mark.parametrize("case", sorted(path.name for path in CASES.iterdir()))
def test_case_gives_exactly_what_is_expected(case, tmp_path):
    folder, out = CASES / case, tmp_path / "out"
    refused = (folder / "expected.error").exists()
    assert refused != (folder / "expected").exists(), "the case needs either expected/ or expected.error"
    message = (folder / "expected.error").read_text() if refused else ""
    assert generate("--model", "model", "--out", out, folder=folder) == (int(refused), "", message)
    assert files_of(out) == ({} if refused else files_of(folder / "expected"))


def test_unchanged_files_are_not_written_again(tmp_path):
    shutil.copytree(GOOD / "expected", tmp_path, dirs_exist_ok=True)
    kept = tmp_path / "gen/code/memories.h"
    before = kept.stat().st_mtime_ns
    (tmp_path / "docs/catalogue.md").write_text("edited by hand")
    generate("--model", "model", "--out", tmp_path, folder=GOOD)
    assert kept.stat().st_mtime_ns == before
    assert files_of(tmp_path) == files_of(GOOD / "expected")


def test_the_ledger_is_extended_by_what_is_new_unless_the_model_contradicts_it(tmp_path):
    shutil.copytree(GOOD / "model", tmp_path / "model")
    ledger = tmp_path / "model/ledger.csv"
    whole = ledger.read_text()
    header, first, device, *others = whole.splitlines(keepends=True)

    def extend():
        return generate("--model", "model", "--extend-ledger", folder=tmp_path)

    ledger.unlink()
    assert extend() == (0, "11 rows added\n", "")
    assert ledger.read_text() == whole
    for end in ("", "\n"):
        ledger.write_text("".join([header, *others]).rstrip() + end)
        assert extend() == (0, "2 rows added\n", "")
        assert ledger.read_text() == "".join([header, *others, first, device])
    assert extend() == (0, "0 rows added\n", "")
    ledger.write_text(header + first.replace(",0,", ",8,"))
    assert extend() == (1, "", "model/memories/MemApp.yaml:6: "
                        "'AppLogLevel' was given out with location '8', not '0' (model/ledger.csv:2)\n")
    assert ledger.read_text() == header + first.replace(",0,", ",8,")


def test_what_tools_and_other_processes_take_of_the_device_is_sound(tmp_path):
    assert generate("--model", "gen/model", "--out", tmp_path, folder=TOP) == (0, "", "")
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror", "-fsyntax-only",
                    "-include", tmp_path / "gen/code/memories.h", "-x", "c", "/dev/null"], check=True)
    schemas = json.loads((tmp_path / "docs/openapi.json").read_text())["components"]["schemas"]
    for schema in schemas.values():
        Draft202012Validator.check_schema(schema)
    assert set(re.findall(r'"#/components/schemas/([^"]+)"', json.dumps(schemas))) <= set(schemas)
    assert schemas["Entry.UpdateState"]["enum"][2] == "FileValid"


def part(name):
    """A validator of a schema of the OpenAPI document."""
    return Draft202012Validator({"$ref": f"#/components/schemas/{name}", "components": OPENAPI["components"]})


def changed(path, value):
    """A tree in which something has another value."""
    tree = json.loads((GOOD / "tree.json").read_text())
    place = tree
    for key in path[:-1]:
        place = place[key]
    place[path[-1]] = value
    return tree


@pytest.mark.parametrize("whole, update", [
    (Draft202012Validator(SCHEMA), Draft202012Validator({"$ref": "#/$defs/update", "$defs": SCHEMA["$defs"]})),
    (part("Tree"), part("Changes")),
], ids=["schema", "openapi"])
def test_a_schema_takes_a_tree_and_none_in_which_something_is_wrong(whole, update):
    tree = json.loads((GOOD / "tree.json").read_text())
    whole.validate(tree)
    lens = tree["MemApp"]["ActiveLens"]
    for path, value in [
        (("MemApp", "AppLogLevel", "value"), "Warn"),
        (("MemApp", "ActiveLens", "Size"), "0"),
        (("MemApp", "Extra"), tree["MemSetup"]["Counter"]),
        (("MemSetup", "Lenses"), [lens]),
        (("MemSetup", "Flags", "value"), "00ff"),
        (("MemSetup", "FocusTorque", "max"), "5"),
        (("MemSetup", "LastFocus", "value"), "0.5"),
        (("MemSetup", "RadioPower"), True),
    ]:
        assert not whole.is_valid(changed(path, value)), path
    assert not whole.is_valid({"MemApp": {"ActiveLens": lens}})
    update.validate({"MemApp": {"ActiveLens": lens}})


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
def test_an_assignment_is_of_one_variable_and_of_what_would_be_stored(variable, good, bad):
    validator = part("Assignment")
    assert [value for value in good if not validator.is_valid({"MemSetup": {variable: value}})] == []
    assert [value for value in bad if validator.is_valid({"MemSetup": {variable: value}})] == []
    one = {variable: good[0]}
    for document in ({}, {"MemSetup": {}}, {"MemSetup": {**one, "Other": 1}}, {"MemOther": one},
                     {"MemSetup": one, "MemApp": {"ActiveLens": {"Size": 1}}},
                     {"MemSetup": {"Counter": 1, "FocusTorque": 1}}):
        assert not validator.is_valid(document), document
