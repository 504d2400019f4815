"""The framebuffer of a virtual device: a file of pixels and a file with its geometry.

Pixels have four bytes: blue, green, red, alpha. The state is described in device/preload/screenstate.h.
"""

import struct

BUFFERS = 3
BYTES_PER_PIXEL = 4
STATE = "=7I"


def make_framebuffer(folder, width, height):
    """Makes fb0 and fb0.state: three black buffers, the first one on display."""
    size = BUFFERS * height * width * BYTES_PER_PIXEL
    with open(folder / "fb0", "wb") as pixels:
        pixels.truncate(size)
    set_geometry(folder, (width, height, width, BUFFERS * height, BYTES_PER_PIXEL * 8, 0, size))


def geometry(folder):
    """xres, yres, xres_virtual, yres_virtual, bits_per_pixel, yoffset, smem_len."""
    return struct.unpack(STATE, (folder / "fb0.state").read_bytes())


def set_geometry(folder, words):
    """Sets any numbers, also inconsistent ones. Processes that have the framebuffer open see them immediately."""
    file = folder / "fb0.state"
    with open(file, "r+b" if file.exists() else "w+b") as state:
        state.write(struct.pack(STATE, *words))
