"""/api/v1/screen.cgi: the picture of what is on display, and what a framebuffer can do to the service."""

import contextlib
import random

import pytest

import png
from framebuffer import BYTES_PER_PIXEL, geometry, set_geometry
from systemdevice import IS_EMULATED, SystemDevice, wait_until
from virtualdevice import DeviceError

HEADER = b"Content-type: image/png\r\n\r\n"
SCREEN = "/api/v1/screen.cgi"
STAMP_PIXELS = 32
# A picture has to be done before the display draws into the same buffer again, two frames later.
FRAME_MS = 600 if IS_EMULATED else 150


def ask(device):
    with device.connect() as connection:
        return connection.ask(SCREEN)


def picture(device):
    output = ask(device).output
    assert output.startswith(HEADER)
    return png.decode(output[len(HEADER):])


def in_png_order(pixels):
    """Blue, green, red, alpha as red, green, blue, alpha."""
    swapped = bytearray(pixels)
    swapped[0::4], swapped[2::4] = pixels[2::4], pixels[0::4]
    return bytes(swapped)


@pytest.mark.parametrize("size", [(480, 272), (800, 480), (1920, 1080)], ids=str)
def test_every_pixel_is_that_of_the_buffer_on_display(size):
    frame = size[0] * size[1] * BYTES_PER_PIXEL
    buffers = [random.Random(seed).randbytes(frame) for seed in range(3)]
    with SystemDevice(screen=size) as device:
        device.path("/dev/fb0").write_bytes(b"".join(buffers))
        words = list(geometry(device.path("/dev")))
        words[5] = 2 * size[1]
        set_geometry(device.path("/dev"), words)
        answer = ask(device)
    assert max(len(content) for _, _, content in answer.records) <= 16400, "the picture was gathered before it was sent"
    width, height, rows = png.decode(answer.output[len(HEADER):])
    assert (width, height) == size
    assert b"".join(rows) == in_png_order(buffers[2])


def test_a_framebuffer_that_lies_fails_the_picture_only(device):
    folder = device.path("/dev")
    good = geometry(folder)
    lies = {"xres": (0, 801, 0xffffffff), "yres": (0, 1441, 0xffffffff), "yoffset": (1440, 0xffffffff),
            "bits_per_pixel": (0, 16, 24, 0xffffffff)}
    places = {"xres": 0, "yres": 1, "bits_per_pixel": 4, "yoffset": 5}
    for name, values in lies.items():
        for value in values:
            words = list(good)
            words[places[name]] = value
            if name == "xres" and value == 801:
                words[5] = 2 * good[1]  # only the last buffer does not fit any more
            set_geometry(folder, words)
            before = len(device.log_lines(" PNG: write i"))
            assert not ask(device).output.endswith(b"IEND\xae\x42\x60\x82"), (name, value)
            assert len(device.log_lines(" PNG: write i")) > before, (name, value)
    set_geometry(folder, good)
    assert picture(device)[:2] == good[:2]
    with open(folder / "fb0", "r+b") as pixels:
        pixels.truncate(1000)
    assert not ask(device).output.endswith(b"IEND\xae\x42\x60\x82")
    with open(folder / "fb0", "r+b") as pixels:
        pixels.truncate(good[6])
    assert picture(device)[:2] == good[:2]


def test_without_a_framebuffer_the_service_does_not_start():
    with SystemDevice(service=False, may_fail={"service"}) as device:
        device.path("/dev/fb0").unlink()
        with contextlib.suppress(DeviceError):  # it may be ready for a moment
            device.start_service()
        wait_until(lambda: device.ended() == ["service"], "the end of the service")
        assert "frambuffer open: No such file or directory" in device.output("service")


def stamp(row, blue):
    """The number that the display has put into a row; `blue` is the place of that colour in a pixel."""
    return int("".join(str(row[pixel * 4 + blue] & 1) for pixel in range(STAMP_PIXELS)), 2)


def number_on_display(device):
    words = geometry(device.path("/dev"))
    with open(device.path("/dev/fb0"), "rb") as pixels:
        pixels.seek(words[5] * words[0] * BYTES_PER_PIXEL)
        return stamp(pixels.read(STAMP_PIXELS * BYTES_PER_PIXEL), 0)


def test_pictures_of_a_moving_display_are_of_frames_that_were_shown():
    with SystemDevice(simulation=(), display=("--interval", str(FRAME_MS))) as device:
        for _ in range(10):
            first = number_on_display(device)
            _, _, rows = picture(device)
            last = number_on_display(device)
            assert stamp(rows[0], 2) == stamp(rows[-1], 2), "two frames in one picture"
            assert first <= stamp(rows[0], 2) <= last
            wait_until(lambda before=last: number_on_display(device) > before, "the next frame")
        assert device.ended() == []
