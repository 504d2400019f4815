"""What the memories, the card and the screen hold is told in the same bytes, whichever processor runs the service: two
virtual devices side by side, one of this machine's own programs, one of those for the controller.
"""

import os
import random
import struct
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))

from all_test import PATTERNS
from brokerclient import BrokerClient
from catalogue import Catalogue
from systemdevice import BUILD, SystemDevice, wait_until  # puts the launcher on the path
from framebuffer import BYTES_PER_PIXEL, geometry, set_geometry

CATALOGUE = Catalogue()
CARD_AT, CARD_SIZE = 0x100000, 512
REGISTER_AT = 0x20CC068
SCREEN = (480, 272)
ALL, SET = "/api/v1/all.cgi", "/api/v1/set.cgi"
IDS = [row["event"] for memory in CATALOGUE.memories.values() for row in memory["variables"]]
ERRORS_ONLY = struct.pack("<i", 7)


@pytest.fixture(scope="module")
def devices():
    with SystemDevice(build=os.environ["NATIVE_TEST_BUILD"], screen=SCREEN) as native, \
            SystemDevice(build=BUILD, screen=SCREEN) as other:
        yield native, other


def same(devices, answer, about=b""):
    """What `answer` gives for each device, which has to be the same and something."""
    native, other = (answer(device) for device in devices)
    # Not left to the runner, which would compare hundreds of thousands of bytes one by one to show the difference.
    at = next((i for i, (a, b) in enumerate(zip(native, other)) if a != b), min(len(native), len(other)))
    is_same = native == other
    assert is_same, f"{about} at {at}: {native[max(at - 40, 0):at + 40]!r}, but {other[max(at - 40, 0):at + 40]!r}"
    assert native
    return native


def output(device, script, body=b"", **params):
    """An answer. Into how many records a long one is cut depends on how fast it is taken."""
    with device.connect() as connection:
        return connection.ask(script, body, **params).output


def memories(device):
    return b"".join(device.read(name, 0, size) for name, size in CATALOGUE.sizes().items())


def fill(devices, make):
    for memory in CATALOGUE.memories:
        content = CATALOGUE.fill(memory, make)
        for device in devices:
            device.write(memory, 0, content)
    for device in devices:
        device.write("MemApp", 0, ERRORS_ONLY)


def update(device, ids):
    device.forget_changes()
    with BrokerClient(device) as events, device.wait_for_update() as waiting:
        events.post(*ids)
        return waiting.answer().output


@pytest.mark.parametrize("pattern", PATTERNS)
def test_the_tree_and_the_update_document_are_the_same(devices, pattern):
    fill(devices, pattern)
    assert len(same(devices, lambda device: output(device, ALL))) > 100_000
    for some in (IDS[:300], IDS[300:600], IDS[600:]):
        assert len(same(devices, lambda device, some=some: update(device, some))) > 1000


def variables(kind):
    """Some of each sort: with both bounds, with one, and with none."""
    sorts = {}
    for memory, rows in CATALOGUE.memories.items():
        for row in rows["variables"]:
            if row["type"] == kind:
                sorts.setdefault(("min" in row, "max" in row), []).append((memory, row["name"]))
    return [place for places in sorts.values() for place in places[:4]]


NUMBERS = ["0", "-0", "1", "7.5", "0.1", "1e-3", "3.4028235e38", "1e38", "-1e38", "1e39", "-1e39", "1e-37",
           "1.17549435e-38", "1.1754943e-38", "1e-39", "-1e-39", "1e-46", "0x1p-126", "16777217", "0.30000001192092896",
           "inf", "-inf", "nan", "2147483647", "2147483648", "-2147483648", "-2147483649", "4294967295", "0x7fffffff",
           "0x80000000", "017", "9223372036854775808", "-9223372036854775809", "12abc", "", "-"]
INDEXES = ["9", "10", "-1", "2147483647", "2147483648", "4294967295", "4294967296", "9223372036854775808"]
BODIES = [f'{{"{memory}":{{"{name}":"{number}"}}}}'.encode()
          for kind in ("int", "float") for memory, name in variables(kind) for number in NUMBERS]
BODIES += [f'{{"MemPersistent":{{"MruLensFileList":{{"Index":{index},"LensFileName":"a"}}}}}}'.encode()
           for index in INDEXES]
BODIES += [b'{"MemPersistent":{"ProductName":"\xff\xfe\x80"}}', b'{"MemGuiLocal":{"RadioRegionFlags":"0aff80"}}',
           b'{"MemPersistent":{"ProductName":"caf\xc3\xa9"}} x', b"\xff"]


def test_what_is_set_is_taken_or_refused_and_stored_alike(devices):
    fill(devices, PATTERNS[0])
    for body in BODIES:
        same(devices, lambda device, body=body: output(device, SET, body), body)
        same(devices, memories, body)
    same(devices, lambda device: output(device, ALL))


def test_the_companion_app_is_told_the_same(devices):
    for device in devices:
        device.end("simulation")
        device.start_simulation("--still")

    def app(device, path):
        return output(device, "/qorapp/v1", PATH_INFO=path, REQUEST_METHOD="GET")

    # The room on the machine's disk may change between the two questions.
    wait_until(lambda: app(devices[0], "/device/info") == app(devices[1], "/device/info"), "the same information")
    assert b"K1-00042" in app(devices[0], "/device/info")
    same(devices, lambda device: app(device, "/device/status"))


@pytest.mark.parametrize("colours", [2, 256], ids=["drawing", "noise"])
def test_a_picture_is_the_same_file(devices, colours):
    source = random.Random(colours)
    words = geometry(devices[0].path("/dev"))
    buffers = bytes(source.randrange(colours) * (255 // (colours - 1)) for _ in range(words[2] * words[3] *
                                                                                      BYTES_PER_PIXEL))
    for device in devices:
        device.path("/dev/fb0").write_bytes(buffers)
        set_geometry(device.path("/dev"), (*words[:5], words[1], words[6]))
    assert b"\x89PNG" in same(devices, lambda device: output(device, "/api/v1/screen.cgi"))


def block(device):
    content = b""
    for path, at, size in (("/dev/mmcblk1", CARD_AT, CARD_SIZE), ("/dev/mem", REGISTER_AT, 4)):
        with open(device.path(path), "rb") as file:
            file.seek(at)
            content += file.read(size)
    return content


def test_card_and_register_hold_the_same_block(devices):
    assert any(same(devices, block))
    for change in (["set", "serial=K1-99999", "boot_failed_counter=3", "cal_comp=4294967295"],
                   ["set", "board=" + "b" * 30, "zoom_zero_pos_x=0xffff"],
                   ["create", "--force", "serial=new", "bemf_gain=1"]):
        for device in devices:
            device.hwinfo(*change)
        same(devices, block)
        same(devices, lambda device: device.hwinfo("print", "--all"))
