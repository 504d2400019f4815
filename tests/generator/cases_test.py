"""One folder per case: cases/<case>/model, and what the generator makes of it, to the byte: the files in expected/, or
the whole message in expected.error."""

import pytest

from conftest import CASES, files_of, generate


@pytest.mark.parametrize("case", sorted(path.name for path in CASES.iterdir()))
def test_case_gives_exactly_what_is_expected(case, tmp_path):
    folder, out = CASES / case, tmp_path / "out"
    refused = (folder / "expected.error").exists()
    assert refused != (folder / "expected").exists(), "the case needs either expected/ or expected.error"
    result = generate("--model", "model", "--out", out, folder=folder)
    assert result.stdout == ""
    assert result.stderr == ((folder / "expected.error").read_text() if refused else "")
    assert result.returncode == (1 if refused else 0)
    assert files_of(out) == ({} if refused else files_of(folder / "expected"))
