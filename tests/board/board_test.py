"""What only a kernel for ARM with real drivers shows. script/board runs the tests on an emulated board, in this order."""

import contextlib
import io
import json
import random
import re
import threading
import time
import urllib.error

import pytest
from PIL import Image

from clients import set_value, upload
from units import run_confined

REFUSALS = ("Operation not permitted", "Permission denied", "Read-only file system", "Resource temporarily unavailable",
            "Address family not supported by protocol")
FILE = "/qorapp/v1/lenstables/file/Cut"
STREAMS = 64  # nginx's limit for one address
STREAM_SECONDS = 120
LIVE_MEMORY = 6_000_000


def test_unit_is_active_without_a_failure(board):
    board.run("systemctl is-system-running --wait")
    for unit in ("webservice", "webservice-live"):
        assert board.run(f"systemctl show -P Result -P NRestarts {unit}").split() == ["success", "0"]


def picture_equals_page(board, stride):
    picture = Image.open(io.BytesIO(board.ask("/api/v1/screen.cgi"))).convert("RGB")
    top = int(board.run("cat /sys/class/graphics/fb0/pan").split(",")[1]) * stride
    frame = Image.frombytes("RGB", picture.size, board.read("/dev/fb0")[top:top + picture.height * stride],
                            "raw", "BGRX", stride)
    return picture.tobytes() == frame.tobytes() and len(set(picture.getdata())) > 10


def test_picture_equals_the_framebuffer_on_every_page(board):
    def shown():
        return board.run("cat /sys/class/graphics/fb0/pan").strip()

    stride, pages = int(board.run("cat /sys/class/graphics/fb0/stride")), set()
    for percent in range(11, 30):
        before = shown()
        set_value(board, "MemDynamic", "BattPercent", percent)
        board.wait("a page", lambda page=before: shown() != page)
        board.run("systemctl kill -s STOP device-display")  # it may draw more than once
        # What the kernel draws, such as a cursor, can come between the picture and the reading.
        board.wait("a picture of the page", lambda: picture_equals_page(board, stride))
        pages.add(shown())
        board.run("systemctl kill -s CONT device-display")
        if len(pages) == 3:
            return
    assert False, f"only the pages {pages} are shown"


def test_log_has_the_lines_of_the_kernel(board):
    """A read of the service can end inside a colour escape, which then leaves its rest in the text."""
    def pattern(line):
        return r"(</?span[^>]*>|\[?\d*m?)".join(map(re.escape, re.split(r"\x1b\[\d*m", line)))

    def missing():
        log = board.ask("/api/v1/log.cgi").decode()
        return [line for line in kernel if not re.search(pattern(line), log)]

    board.run("echo '<4>board: a line' >/dev/kmsg")
    kernel = board.run("dmesg --color=always").splitlines()
    assert len(kernel) > 50
    board.wait("the lines", lambda: not missing())


def test_card_and_register_over_a_reboot(board):
    output, status = board.try_run("hwinfo set boot_failed_counter=5 2>&1")
    held = board.run("hwinfo get boot_failed_counter").strip()
    assert (status == 0) == (held == "5") and (status == 0 or held in output.decode())
    board.run("hwinfo set cal_comp=77")
    board.ask("/qorapp/v1/setups/file/Kept", b"kept", "PUT")
    board.reboot()
    board.wait("the service", lambda: board.ask("/qorapp/v1/setups/file/Kept") == b"kept")
    assert board.run("hwinfo get cal_comp") == "77\n"
    assert json.loads(board.ask("/qorapp/v1/device/info"))["serialnumber"] == "K1-00042"


def test_unit_refuses_what_the_service_does_not_need(board):
    _, output = run_confined(board, "/usr/bin/perl /opt/board/bin/confinement")
    tries = dict(line.split(": ", 1) for line in output.splitlines())
    assert "fork" in tries and {name: error for name, error in tries.items() if error not in REFUSALS} == {}


def test_memory_ceiling_ends_the_process_alone(board):
    assert run_confined(board, "/usr/bin/tail /dev/zero")[0] == "oom-kill"
    assert board.run("systemctl is-active webservice nginx").split() == ["active", "active"]


def test_version_2_sends_changes_in_little_memory_until_it_is_removed(board):
    before = board.ask("/api/v1/all.cgi")
    with contextlib.ExitStack() as stack:
        # Few values: nginx disconnects a client that does not read for a minute, and one after another is read here.
        streams = [stack.enter_context(board.open("/api/v2/events?vars=MemDynamic.*")) for _ in range(STREAMS)]
        board.ask("/api/v2/values", board.ask("/api/v2/values"), "PATCH")
        for percent in (44, 87):  # the second is the value before
            set_value(board, "MemDynamic", "BattPercent", percent)
            text, end = b'"MemDynamic.BattPercent":%d' % percent, time.monotonic() + STREAM_SECONDS
            for stream in streams:
                assert text in next(line for line in stream if text in line or time.monotonic() > end)
        memory = re.search(rb"live_resident_memory_bytes (\d+)", board.ask("/api/v2/metrics"))
    print(f"resident with {STREAMS} streams: {int(memory[1])} bytes")
    assert int(memory[1]) <= LIVE_MEMORY
    board.run("dpkg --remove webservice-live")
    with pytest.raises(urllib.error.HTTPError, match="404"):
        board.ask("/api/v2/health")
    assert board.ask("/api/v1/all.cgi") == before


def test_firmware_runs_to_its_end(board):
    """For the controller and for an accessory, with a device that carries the updates out."""
    board.put({"/run/systemd/system/device-simulation.service.d/moving.conf":
               b'[Service]\nEnvironment="OPTIONS=--speed 8"\n'})
    board.run("systemctl daemon-reload; systemctl restart device-simulation device-display webservice")
    board.wait("the service", lambda: board.ask("/qorapp/v1/device/info"))
    for device, name, text in (("K1-K1-00042", "Lens Control", "4.3.0;1"),
                               ("Ultrasonic Ranger-5512", "Ultrasonic Ranger", "2.0.0;4")):
        board.run("systemctl restart webservice")  # after an own update, the status is about that
        board.wait("the service", lambda: board.ask("/qorapp/v1/device/info"))
        assert upload(board, device, f"firmware;{name};{text}\n".encode()) == {"taskid": device}
        board.wait(name, lambda: json.loads(board.ask("/qorapp/v1/device/status"))["status"] == "Success")
    board.run("rm -r /run/systemd/system/device-simulation.service.d; systemctl daemon-reload")
    board.run("systemctl restart device-simulation device-display webservice")


def test_power_cuts_lose_and_tear_nothing(board):
    versions = {"file": 0, "firmware": 0}  # acknowledged

    def content(kind, version):
        return f"{kind} {version}\n".encode() * (20_000 if kind == "file" else 200_000)

    def store(end):
        with contextlib.suppress(OSError):
            while not end.is_set():
                assert board.ask(FILE, content("file", versions["file"] + 1), "PUT") == b'{"result": "Success" }'
                versions["file"] += 1
                assert upload(board, "K1-K1-00042", content("firmware", versions["firmware"] + 1))
                versions["firmware"] += 1

    for number in range(board.cuts):
        end = threading.Event()
        thread = threading.Thread(target=store, args=(end,))
        thread.start()
        board.wait("uploads", lambda before=versions["firmware"]: versions["firmware"] > before)
        time.sleep(random.uniform(0, 3))
        board.cut_power()
        end.set()
        thread.join()
        board.restart()
        board.wait("the service", lambda: board.ask("/qorapp/v1/device/status"))
        for kind, path in (("file", "/var/LDA/Cut"), ("firmware", "/update/host.swu")):
            found = board.read(path)
            is_whole = any(found == content(kind, versions[kind] + new) for new in (0, 1))
            assert is_whole, f"cut {number + 1}: {versions}, {path}: {len(found)} bytes, {found[:20]}"
            versions[kind] = int(found.split()[1])
        print(f"cut {number + 1}: {versions}", flush=True)
