"""Texts of numbers are accepted, refused and stored alike by the 32-bit and the 64-bit service; the size of a program."""

import os
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))

from systemdevice import BUILD, SystemDevice

NUMBERS = ["0", "-0", "1", "7.5", "0.1", "1e-3", "3.4028235e38", "1e38", "-1e38", "1e39", "-1e39", "1e-37",
           "1.17549435e-38", "1.1754943e-38", "1e-39", "1e-46", "0x1p-126", "16777217", "0.30000001192092896",
           "inf", "-inf", "nan", "2147483647", "2147483648", "-2147483648", "-2147483649", "4294967295", "0x7fffffff",
           "0x80000000", "017", "9223372036854775808", "-9223372036854775809", "12abc", "", "-"]
# Integers and floats with both bounds, with one bound, and without.
VARIABLES = [("MemPersistent", "DisplayBrightness"), ("MemDynamic", "LostFrameCounter"),
             ("MemPersistent", "LastKnownFocusValue"), ("MemPersistent", "CircleofConfusion")]
INDEX = '{{"MemPersistent":{{"MruLensFileList":{{"Index":"{}","LensFileName":"a"}}}}}}'
BODIES = [INDEX.format(number).encode() for number in [*NUMBERS, "9", "10", "4294967296"]]
BODIES += [f'{{"{memory}":{{"{name}":"{number}"}}}}'.encode() for memory, name in VARIABLES for number in NUMBERS]


def answers(device):
    """For each body the answer and the bytes of the memories after it."""
    return [(device.ask("/api/v1/set.cgi", body), device.segment("MemPersistent").read_bytes(),
             device.segment("MemDynamic").read_bytes()) for body in BODIES]


def test_numbers_mean_the_same_in_both_widths():
    with SystemDevice(build=os.environ["NATIVE_TEST_BUILD"]) as native, SystemDevice() as other:
        for body, expected, got in zip(BODIES, answers(native), answers(other)):
            assert got == expected, body


def test_variables_tool_is_small(tmp_path):
    subprocess.run(["arm-linux-gnueabihf-strip", "-o", tmp_path / "variables", Path(BUILD, "bin/variables")], check=True)
    assert (tmp_path / "variables").stat().st_size <= 400_000
