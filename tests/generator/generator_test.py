"""The generator's output for models. One folder per case: cases/<case>/model and either expected/, the documents that the
generator writes, or expected.error, its whole message. Both are compared byte for byte. Wrong code does not compile, or
fails the tests of the introspection and the tree.
"""

import shutil
import subprocess
import sys
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]
CASES = Path(__file__).resolve().parent / "cases"
GOOD = CASES / "good"


def generate(*arguments, folder):
    """Runs the generator in `folder`, so that messages have relative paths. Returns status, output and message."""
    command = [sys.executable, TOP / "gen/generator/generate.py", *arguments]
    result = subprocess.run(command, cwd=folder, capture_output=True, text=True, check=False)
    return result.returncode, result.stdout, result.stderr


def files_of(folder):
    """The bytes of every file under `folder` by its path in it."""
    return {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


@pytest.mark.parametrize("case", sorted(path.name for path in CASES.iterdir()))
def test_case_gives_the_expected_files_or_message(case, tmp_path):
    folder, out = CASES / case, tmp_path / "out"
    refused = (folder / "expected.error").exists()
    assert refused != (folder / "expected").exists(), "the case needs either expected/ or expected.error"
    message = (folder / "expected.error").read_text() if refused else ""
    assert generate("--model", "model", "--out", out, folder=folder) == (int(refused), "", message)
    assert files_of(out / "docs") == ({} if refused else files_of(folder / "expected/docs"))
    assert out.exists() != refused


def test_unchanged_files_are_not_written_again(tmp_path):
    shutil.copytree(GOOD / "expected", tmp_path, dirs_exist_ok=True)
    kept, edited = tmp_path / "docs/openapi.json", tmp_path / "docs/catalogue.md"
    before = kept.stat().st_mtime_ns
    edited.write_text("edited by hand")
    generate("--model", "model", "--out", tmp_path, folder=GOOD)
    assert kept.stat().st_mtime_ns == before
    assert files_of(tmp_path / "docs") == files_of(GOOD / "expected/docs")


def test_ledger_gets_new_rows_unless_the_model_differs(tmp_path):
    shutil.copytree(GOOD / "model", tmp_path / "model")
    ledger = tmp_path / "model/ledger/variables.csv"
    whole = ledger.read_text()
    header, first, device, *others = whole.splitlines(keepends=True)

    def extend():
        return generate("--model", "model", "--extend-ledger", folder=tmp_path)

    shutil.rmtree(ledger.parent)
    assert extend() == (0, "24 rows added\n", "")
    assert files_of(ledger.parent) == files_of(GOOD / "model/ledger")
    for end in ("", "\n"):
        ledger.write_text("".join([header, *others]).rstrip() + end)
        assert extend() == (0, "2 rows added\n", "")
        assert ledger.read_text() == "".join([header, *others, first, device])
    assert extend() == (0, "0 rows added\n", "")
    ledger.write_text(header + first.replace(",0,", ",8,"))
    assert extend() == (1, "", "model/memories/MemApp.yaml:6: "
                        "'AppLogLevel' was published with location '8', not '0' (model/ledger/variables.csv:2)\n")
    assert ledger.read_text() == header + first.replace(",0,", ",8,")


def test_header_of_the_device_is_valid_c(tmp_path):
    assert generate("--model", "gen/model", "--out", tmp_path, folder=TOP) == (0, "", "")
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror", "-fsyntax-only",
                    "-include", tmp_path / "gen/code/memories.h", "-x", "c", "/dev/null"], check=True)
