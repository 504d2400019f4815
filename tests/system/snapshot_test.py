"""Snapshots of the variables tool: taken, compared, restored."""

import functools
import json
import os
import subprocess

import pytest

CHANGES = {"MemPersistent.FocusTorque": "4", "MemPersistent.KnobColor": "Magenta",
           "MemPersistent.ProductName": 'Other, "ü"', "MemCamera.CamShutterCustomSet": "90.5",
           "MemLens.LensFileList[2].LensFileName": "Prime=50"}


@pytest.fixture(name="run")
def run_tool(device, tmp_path):
    """Runs the tool in the test's folder: exit status, standard output and standard error."""
    return functools.partial(device.run, "variables", stdin=subprocess.DEVNULL, cwd=tmp_path)


def test_values_are_those_of_the_web_api_in_order(device, run, tmp_path):
    file = tmp_path / "all.json"
    assert run("snapshot", file.name) == (0, "", "")
    tree = json.loads(device.ask("/api/v1/all.cgi"))["variables"]
    snapshot = json.loads(file.read_text())
    def plain(value):
        return value["value"] if isinstance(value, dict) and "type" in value and "value" in value else value
    assert snapshot["memories"] == {memory: {name: plain(value) for name, value in variables.items()}
                                    for memory, variables in tree.items()}
    assert list(snapshot["memories"]) == sorted(tree) and (snapshot["snapshot"], snapshot["device"]) == (1, "Lens Control")
    before = file.stat()
    assert run("snapshot", file)[0] == 1
    assert run("snapshot", "--force", file)[0] == 0 and file.stat() == before  # nothing has changed


def test_what_differs_is_printed_and_restored(run, tmp_path):
    file, other = tmp_path / "before.json", tmp_path / "after.json"
    run("snapshot", file)
    assert run("diff", file) == (0, "", "")
    run("set", *(f"{name}={value}" for name, value in CHANGES.items()))
    run("snapshot", other, "MemPersistent.*", "MemLens.*", "MemCamera.*")
    status, output, _ = run("diff", file)
    assert status == 1 and sorted(line.split("  ")[0] for line in output.splitlines()) == sorted(CHANGES)
    assert "MemPersistent.FocusTorque  2 -> 4\n" in output and '-> "Magenta"\n' in output
    assert run("diff", other) == (0, "", "") and run("diff", file, other)[0] == 1
    assert run("restore", file)[2] == "variables: Nothing has been stored: --yes stores the values\n"
    assert run("restore", "--dry-run", file, "FocusTorque") == (0, "MemPersistent.FocusTorque  4 -> 2\n", "")
    assert run("diff", file)[1] == output
    assert run("restore", "--yes", file)[1].splitlines()[-1] == "5 values stored, 0 refused"
    assert run("diff", file) == (0, "", "")
    assert run("restore", "--yes", other)[0] == 0 and run("diff", other) == (0, "", "")
    run("restore", "--yes", file)


def test_refused_values_are_listed_and_the_others_stored(run, tmp_path):
    file = tmp_path / "edited.json"
    run("snapshot", file)
    snapshot = json.loads(file.read_text())
    snapshot["memories"]["MemPersistent"] |= {"FocusTorque": "5", "IrisTorque": "3", "ProductName": None, "Gone": "1"}
    file.write_text(json.dumps(snapshot))
    assert run("restore", "--yes", file) == (
        1, "MemPersistent.IrisTorque  1 -> 3\n1 value stored, 3 refused\n",
        "variables: MemPersistent.FocusTorque: 5 is not between 1 and 4\n"
        "variables: MemPersistent.Gone is not a variable\n"
        "variables: MemPersistent.ProductName could not be printed for the snapshot\n")
    assert run("get", "IrisTorque", "FocusTorque")[1] == "3\n2\n"
    assert 'MemPersistent.Gone  1 -> not there\n' in run("diff", file)[1]


def test_other_files_are_no_snapshots(run, tmp_path):
    file = tmp_path / "file"
    for text in ("", "[]", "{", '{"snapshot": 2, "memories": {}}', '{"snapshot": 1}', '{"snapshot": 1, "memories": 7}',
                 '{"snapshot": 1, "memories": {"M": 7}}', '{"snapshot": 1, "memories": {"M": {"v": 7}}}',
                 '{"snapshot": 1, "memories": {"M": {"v": %s}}}' % ("[" * 100000 + "]" * 100000), "[" * 1000000):
        file.write_text(text)
        assert run("diff", file) == (2, "", f"variables: {file}: this is not a snapshot of version 1\n")
    os.mkfifo(tmp_path / "pipe")
    assert run("snapshot", "--force", "pipe") == (1, "", "variables: pipe is not a regular file\n")
    assert run("diff", tmp_path / "none") == (2, "", f"variables: {tmp_path / 'none'}: No such file or directory\n")
