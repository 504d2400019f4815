"""What the memories, the card and the screen hold is told in the same bytes, whichever processor runs the service."""

import random
import struct

import pytest

from all_test import PATTERNS
from brokerclient import BrokerClient
from framebuffer import BYTES_PER_PIXEL, geometry, set_geometry
from systemdevice import wait_until

CARD_AT, CARD_SIZE = 0x100000, 512
REGISTER_AT = 0x20CC068
SET = "/api/v1/set.cgi"
IDS = ["nothing", "largest", "smallest", "foreign", "beyond", "any1", "any2"]
ERRORS_ONLY = struct.pack("<i", 7)


def same(devices, answer):
    """What `answer` gives for each device, which has to be the same and something."""
    native, other = (answer(device) for device in devices)
    # Not left to the runner, which would compare hundreds of thousands of bytes one by one to show the difference.
    at = next((i for i, (a, b) in enumerate(zip(native, other)) if a != b), min(len(native), len(other)))
    is_same = native == other
    assert is_same, f"at {at}: {native[max(at - 40, 0):at + 40]!r}, but {other[max(at - 40, 0):at + 40]!r}"
    assert native
    return native


def answer_of(script, body=b"", **params):
    """Asks a device for its answer. Into how many records a long one is cut depends on how fast it is taken."""
    def ask(device):
        with device.connect() as connection:
            return connection.ask(script, body, **params).output

    return ask


def memories(catalogue):
    return lambda device: b"".join(device.read(name, 0, size) for name, size in catalogue.sizes().items())


def fill(devices, catalogue, make):
    for memory in catalogue.memories:
        content = catalogue.fill(memory, make)
        for device in devices:
            device.write(memory, 0, content)
    for device in devices:
        device.write("MemApp", 0, ERRORS_ONLY)


def test_the_simulation_fills_the_memories_alike(devices, catalogue):
    assert any(same(devices, memories(catalogue)))
    same(devices, answer_of("/api/v1/all.cgi"))


@pytest.mark.parametrize("pattern", range(len(PATTERNS)), ids=IDS)
def test_the_tree_and_the_update_document_are_the_same(devices, catalogue, pattern):
    fill(devices, catalogue, PATTERNS[pattern])
    tree = same(devices, answer_of("/api/v1/all.cgi"))
    assert len(tree) > 100_000
    ids = [row["event"] for memory in catalogue.memories.values() for row in memory["variables"]]
    for some in (ids[:300], ids[300:600], ids[600:]):
        assert len(same(devices, lambda device, some=some: update(device, some))) > 1000


def update(device, ids):
    device.forget_changes()
    with BrokerClient(device) as events, device.wait_for_update() as waiting:
        events.post(*ids)
        return waiting.answer().output


def variables(catalogue, kind):
    """Some of each sort: with both bounds, with one, and with none."""
    sorts = {}
    for memory, rows in catalogue.memories.items():
        for row in rows["variables"]:
            if row["type"] == kind:
                sorts.setdefault(("min" in row, "max" in row), []).append((memory, row["name"]))
    return [place for places in sorts.values() for place in places[:4]]


NUMBERS = ["0", "-0", "1", "7.5", "0.1", "1e-3", "3.4028235e38", "1e38", "-1e38", "1e39", "-1e39", "1e-37",
           "1.17549435e-38", "1.1754943e-38", "1e-39", "-1e-39", "1e-46", "0x1p-126", "16777217", "0.30000001192092896",
           "inf", "-inf", "nan", "2147483647", "2147483648", "-2147483648", "-2147483649", "4294967295", "0x7fffffff",
           "0x80000000", "017", "9223372036854775808", "-9223372036854775809", "12abc", "", "-"]


@pytest.mark.parametrize("kind", ["int", "float"])
def test_numbers_are_taken_or_refused_and_stored_alike(devices, catalogue, kind):
    fill(devices, catalogue, PATTERNS[0])
    for memory, name in variables(catalogue, kind):
        for number in NUMBERS:
            same(devices, answer_of(SET, f'{{"{memory}":{{"{name}":"{number}"}}}}'.encode()))
            same(devices, lambda device, memory=memory, size=catalogue.sizes()[memory]: device.read(memory, 0, size))
    same(devices, answer_of("/api/v1/all.cgi"))


@pytest.mark.parametrize("body", [
    b'{"MemPersistent":{"MruLensFileList":{"Index":%s,"LensFileName":"a"}}}' % index
    for index in (b"9", b"10", b"-1", b"2147483647", b"2147483648", b"4294967295", b"4294967296",
                  b"9223372036854775808")
] + [b'{"MemPersistent":{"ProductName":"\xff\xfe\x80"}}', b'{"MemGuiLocal":{"RadioRegionFlags":"0aff80"}}',
     b'{"MemPersistent":{"ProductName":"caf\xc3\xa9"}} x', b"\xff"])
def test_what_else_is_set_changes_the_memories_alike(devices, catalogue, body):
    fill(devices, catalogue, PATTERNS[5])
    same(devices, answer_of(SET, body))
    same(devices, memories(catalogue))
    same(devices, answer_of("/api/v1/all.cgi"))


def test_the_companion_app_is_told_the_same(devices):
    for device in devices:
        device.end("simulation")
        device.start_simulation("--still")
    answers = {}

    def are_same():
        # The room on the machine's disk may change between the two questions.
        for device in devices:
            answers[device] = answer_of("/qorapp/v1", PATH_INFO="/device/info", REQUEST_METHOD="GET")(device)
        return len(set(answers.values())) == 1

    wait_until(are_same, "the same device information")
    assert b"K1-00042" in answers[devices[0]]
    same(devices, answer_of("/qorapp/v1", PATH_INFO="/device/status", REQUEST_METHOD="GET"))


@pytest.mark.parametrize("colours", [2, 256], ids=["drawing", "noise"])
def test_a_picture_is_the_same_file(devices, colours):
    source = random.Random(colours)
    words = geometry(devices[0].path("/dev"))
    buffers = bytes(source.randrange(colours) * (255 // (colours - 1)) for _ in range(words[2] * words[3] *
                                                                                      BYTES_PER_PIXEL))
    for device in devices:
        device.path("/dev/fb0").write_bytes(buffers)
        set_geometry(device.path("/dev"), (*words[:5], words[1], words[6]))
    assert b"\x89PNG" in same(devices, answer_of("/api/v1/screen.cgi"))


def block(device):
    content = b""
    for path, at, size in (("/dev/mmcblk1", CARD_AT, CARD_SIZE), ("/dev/mem", REGISTER_AT, 4)):
        with open(device.path(path), "rb") as file:
            file.seek(at)
            content += file.read(size)
    return content


@pytest.mark.parametrize("change", [
    ["print"], ["set", "serial=K1-99999", "boot_failed_counter=3", "cal_comp=4294967295"],
    ["set", "board=" + "b" * 30, "zoom_zero_pos_x=0xffff"], ["create", "--force", "serial=new", "bemf_gain=1"],
], ids=["made", "numbers", "texts", "new"])
def test_card_and_register_hold_the_same_block(devices, change):
    for device in devices:
        device.hwinfo(*change)
    assert any(same(devices, block))
    same(devices, lambda device: device.hwinfo("print", "--all"))
