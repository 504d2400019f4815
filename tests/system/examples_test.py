"""The worked examples in the API reference are what the commands give."""

from pathlib import Path

import pytest

import examples

PAGES = sorted((Path(__file__).resolve().parents[2] / "docs" / "api").glob("*.md"))


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_every_example_gives_what_the_page_says(page):
    text = page.read_text()
    assert examples.run_page(text) == text, "script/examples writes the pages anew"


def test_there_are_examples_for_every_endpoint():
    commands = "".join(block for page in PAGES for block in examples.BLOCK.findall(page.read_text()))
    for path in ("/api/v1/all.cgi", "/api/v1/set.cgi", "/api/v1/update.cgi", "/api/v1/log.cgi", "/api/v1/screen.cgi",
                 "/device/info", "/device/update", "/device/status", "/lenstables/list", "/lenstables/file/",
                 "/focusrings/", "/setups/"):
        assert path in commands
