"""What the generator's tests share."""

import subprocess
import sys
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]
CASES = Path(__file__).resolve().parent / "cases"


def generate(*arguments, folder):
    """Runs the generator in `folder`, so that messages name paths in it."""
    command = [sys.executable, TOP / "gen/generator/generate.py", *arguments]
    return subprocess.run(command, cwd=folder, capture_output=True, text=True, check=False)


def files_of(folder):
    """The bytes of every file under `folder` by its path in it."""
    return {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


@pytest.fixture(scope="session")
def catalogue(tmp_path_factory):
    """The folder that the device's own model is generated into."""
    out = tmp_path_factory.mktemp("catalogue")
    result = generate("--model", "gen/model", "--out", out, folder=TOP)
    assert result.returncode == 0, result.stderr
    return out
