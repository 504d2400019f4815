"""/api/v1/screen.cgi on a display that moves."""

from io import BytesIO

from framebuffer import BYTES_PER_PIXEL, geometry
from PIL import Image
from systemdevice import SystemDevice, wait_until

HEADER = b"Content-type: image/png\r\n\r\n"
STAMP_PIXELS = 32
LONGEST_RECORD = 16400  # bytes; longer ones would show that the picture was collected before it was sent


def ask(device):
    with device.connect() as connection:
        return connection.ask("/api/v1/screen.cgi")


def stamp(blue):
    """The frame number that the display draws into a row: the lowest bits of blue, highest bit first."""
    return int("".join(str(byte & 1) for byte in blue), 2)


def number_on_display(device):
    words = geometry(device.path("/dev"))
    with open(device.path("/dev/fb0"), "rb") as pixels:
        pixels.seek(words[5] * words[0] * BYTES_PER_PIXEL)
        return stamp(pixels.read(STAMP_PIXELS * BYTES_PER_PIXEL)[::BYTES_PER_PIXEL])


def numbers_in_picture(answer):
    """The frame numbers of the first and the last row."""
    image = Image.open(BytesIO(answer.output.removeprefix(HEADER)))
    assert (image.mode, image.size) == ("RGBA", (480, 272))
    return [stamp(image.crop((0, row, STAMP_PIXELS, row + 1)).getchannel("B").tobytes()) for row in (0, 271)]


def test_picture_shows_one_frame_of_a_moving_display():
    interval_ms, good = 100, 0
    with SystemDevice(simulation=(), screen=(480, 272), display=("--interval", str(interval_ms))) as device:
        while good < 5:
            before = number_on_display(device)
            answer = ask(device)
            after = number_on_display(device)
            if after > before + 1:  # this machine is too slow: the display may have drawn into the same buffer again
                interval_ms *= 2
                device.end("display")
                device.start_display("--interval", str(interval_ms))
                continue
            top, bottom = numbers_in_picture(answer)
            assert before <= top == bottom <= after
            assert max(len(content) for _, _, content in answer.records) <= LONGEST_RECORD
            good += 1
            wait_until(lambda last=after: number_on_display(device) > last, "the next frame")
        assert device.ended() == []
