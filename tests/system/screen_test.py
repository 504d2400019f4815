"""/api/v1/screen.cgi: the picture of what is on display, and what a framebuffer can do to the service."""

import random

import png
from framebuffer import BYTES_PER_PIXEL, geometry, set_geometry
from systemdevice import SystemDevice, wait_until

HEADER = b"Content-type: image/png\r\n\r\n"
LAST_BYTES = b"IEND\xae\x42\x60\x82"
STAMP_PIXELS = 32


def ask(device):
    with device.connect() as connection:
        return connection.ask("/api/v1/screen.cgi")


def test_every_pixel_is_that_of_the_buffer_on_display(device):
    folder = device.path("/dev")
    words = list(geometry(folder))
    buffers = [random.Random(seed).randbytes(words[0] * words[1] * BYTES_PER_PIXEL) for seed in range(3)]
    with open(folder / "fb0", "r+b") as pixels:
        pixels.write(b"".join(buffers))
    words[5] = 2 * words[1]
    set_geometry(folder, words)
    answer = ask(device)
    assert max(len(content) for _, _, content in answer.records) <= 16400, "the picture was gathered before it was sent"
    width, height, rows = png.decode(answer.output[len(HEADER):])
    assert (width, height) == tuple(words[:2])
    expected = bytearray(buffers[2])
    expected[0::4], expected[2::4] = expected[2::4], expected[0::4]  # blue, green, red, alpha
    assert b"".join(rows) == expected


def test_a_framebuffer_that_lies_fails_the_picture_only(device):
    folder = device.path("/dev")
    good = geometry(folder)
    for lie in ({0: 0}, {0: 801, 5: 2 * good[1]}, {1: 1441}, {1: 0xffffffff}, {4: 16}, {5: 0xffffffff}):
        set_geometry(folder, [lie.get(place, word) for place, word in enumerate(good)])
        before = len(device.log_lines(" PNG: write i"))
        assert not ask(device).output.endswith(LAST_BYTES), lie
        assert len(device.log_lines(" PNG: write i")) > before, lie
    set_geometry(folder, good)
    for size, is_whole in ((1000, False), (good[6], True)):
        with open(folder / "fb0", "r+b") as pixels:
            pixels.truncate(size)
        assert ask(device).output.endswith(LAST_BYTES) == is_whole


def stamp(row, blue):
    """The number that the display has put into a row; `blue` is the place of that colour in a pixel."""
    return int("".join(str(row[pixel * 4 + blue] & 1) for pixel in range(STAMP_PIXELS)), 2)


def number_on_display(device):
    words = geometry(device.path("/dev"))
    with open(device.path("/dev/fb0"), "rb") as pixels:
        pixels.seek(words[5] * words[0] * BYTES_PER_PIXEL)
        return stamp(pixels.read(STAMP_PIXELS * BYTES_PER_PIXEL), 0)


def test_pictures_of_a_moving_display_are_of_frames_that_were_shown():
    interval_ms, good = 100, 0
    with SystemDevice(simulation=(), screen=(480, 272), display=("--interval", str(interval_ms))) as device:
        while good < 5:
            first = number_on_display(device)
            output = ask(device).output
            last = number_on_display(device)
            if last > first + 1:  # the display may have drawn into the same buffer again: too fast for this machine
                interval_ms *= 2
                device.end("display")
                device.start_display("--interval", str(interval_ms))
                continue
            _, _, rows = png.decode(output[len(HEADER):])
            assert stamp(rows[0], 2) == stamp(rows[-1], 2), "two frames in one picture"
            assert first <= stamp(rows[0], 2) <= last
            good += 1
            wait_until(lambda before=last: number_on_display(device) > before, "the next frame")
        assert device.ended() == []
