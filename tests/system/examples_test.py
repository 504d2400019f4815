"""The worked examples in the API reference are what the commands give."""

from pathlib import Path

import pytest

import examples

PAGES = sorted((Path(__file__).resolve().parents[2] / "docs" / "api").glob("*.md"))


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_every_example_gives_what_the_page_says(page):
    text = page.read_text()
    assert examples.run_page(text) == text, "script/examples writes the pages anew"
