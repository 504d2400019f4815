"""The protections of the release's programs, as readelf shows them."""

import re
import subprocess
from pathlib import Path

import pytest

from systemdevice import BUILD

SIGNS = ["Type: +DYN", "GNU_RELRO", "FLAGS_1.*NOW.*PIE", "GNU_STACK.* RW +0x", "__stack_chk_fail", "__[a-z]+_chk@"]
# Landing instructions of indirect calls, in programs of processors that have them.
LANDING = {"X86-64": b"\xf3\x0f\x1e\xfa", "AArch64": b"\x3f\x23\x03\xd5"}


@pytest.mark.parametrize("program", ["webservice", "hwinfo"])
def test_release_programs_are_hardened(program):
    if "CMAKE_BUILD_TYPE:STRING=Release\n" not in Path(BUILD, "CMakeCache.txt").read_text():
        pytest.skip("not a release")
    file = Path(BUILD, "bin", program)
    elf = subprocess.run(["readelf", "--wide", "--all", file], capture_output=True, text=True, check=True).stdout
    assert [sign for sign in SIGNS if not re.search(sign, elf)] == []
    assert all(file.read_bytes().count(code) > 50 for machine, code in LANDING.items() if machine in elf)
