"""The 32-bit and the 64-bit programs answer alike, in texts of numbers above all; the sizes of programs."""

import json
import os
import random
import re
import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))

from catalogue import Catalogue
from fastcgi import Connection
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


WRONG = {"DisplayBrightness": 11, "KnobAssignment": "Knob", "ProductName": 30 * "a", "MemLens.LensFileList[100]": {},
         "RadioRegionFlags": "0", "FocusMotor": {"MotorTarget": 1e39, "MotorState": "No"}, "No": 1}
PATCHES = [f'{{"{memory}.{name}":{number}}}' for memory, name in VARIABLES for number in NUMBERS] + [json.dumps(WRONG)]


def first_events(port):
    """The events with the present values, without their numbers, which tell the time."""
    with Connection(port) as stream:
        stream.send_request("/api/v2/events", REQUEST_METHOD="GET")
        text = b""
        while sum(len(json.loads(data)) for data in re.findall(rb"data: (.*)\n\n", text)) < 816:
            text += stream.record()[2]
        return re.sub(rb"id: \d+", b"", text)


def answers_of_version_2(device):
    def ask(path, method="GET", body=""):
        with Connection(device.live_port) as connection:
            return connection.ask(f"/api/v2/{path}", body.encode(), REQUEST_METHOD=method).output.partition(b"\r\n\r\n")[2]

    yield ask("catalogue")
    yield ask("values")
    yield first_events(device.live_port)
    yield from (ask("values", "PATCH", body) for body in PATCHES)
    for memory, size in Catalogue().sizes().items():
        if memory != "MemApp":
            device.write(memory, 0, random.Random(memory).randbytes(size))
    yield ask("values")


def test_version_2_has_the_same_bytes_in_both_widths():
    with SystemDevice(build=os.environ["NATIVE_TEST_BUILD"], live=True) as native, SystemDevice(live=True) as other:
        for number, (expected, got) in enumerate(zip(answers_of_version_2(native), answers_of_version_2(other))):
            assert got == expected and len(got) > 10, number


@pytest.mark.parametrize("program, size", [("variables", 400_000), ("webservice-live", 450_000)])
def test_program_is_small(tmp_path, program, size):
    subprocess.run(["arm-linux-gnueabihf-strip", "-o", tmp_path / program, Path(BUILD, "bin", program)], check=True)
    assert (tmp_path / program).stat().st_size <= size
