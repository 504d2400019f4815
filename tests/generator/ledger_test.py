"""Extending the ledger."""

import shutil

import pytest

from conftest import CASES, generate

HEADER = "event,name,memory,location,type,size\n"


@pytest.fixture
def folder(tmp_path):
    shutil.copytree(CASES / "ledger-incomplete/model", tmp_path / "model")
    return tmp_path


def extend(folder):
    return generate("--model", "model", "--extend-ledger", folder=folder)


def test_new_rows_are_appended_and_the_model_is_then_accepted(folder):
    result = extend(folder)
    assert (result.returncode, result.stdout, result.stderr) == (0, "2 rows added\n", "")
    ledger = (folder / "model/ledger.csv").read_text()
    assert ledger == HEADER + "1,Speed,MemApp,0,int,4\n2,Fresh,MemApp,4,int,4\n3,CanBusLoad,,,,\n"
    assert extend(folder).stdout == "0 rows added\n"
    assert generate("--model", "model", "--out", "out", folder=folder).returncode == 0


def test_a_model_without_ledger_gets_one(folder):
    (folder / "model/ledger.csv").unlink()
    assert extend(folder).stdout == "3 rows added\n"
    assert (folder / "model/ledger.csv").read_text().startswith(HEADER + "1,Speed,")


def test_a_ledger_that_the_model_contradicts_is_left_alone(folder):
    ledger = folder / "model/ledger.csv"
    ledger.write_text(HEADER + "1,Speed,MemApp,8,int,4")
    result = extend(folder)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == (
        "model/memories/MemApp.yaml:6: 'Speed' was given out with location '8', not '0' (model/ledger.csv:2)\n")
    assert ledger.read_text() == HEADER + "1,Speed,MemApp,8,int,4"
