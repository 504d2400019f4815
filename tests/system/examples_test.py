"""The worked examples in the API reference show what their commands print."""

import sys
from pathlib import Path

import pytest

from systemdevice import BUILD

API = Path(__file__).resolve().parents[2] / "docs" / "api"
sys.path.insert(0, str(API))

import examples


@pytest.mark.parametrize("page", sorted(API.glob("*.md")), ids=lambda page: page.stem)
def test_examples_print_what_the_page_shows(page):
    text = page.read_text()
    assert examples.run_page(text, BUILD) == text, "script/examples rewrites the pages"
