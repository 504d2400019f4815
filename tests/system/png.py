"""Reads PNG images of 8 bits red, green, blue and alpha, with nothing but zlib."""

import struct
import zlib
from itertools import accumulate

SIGNATURE = b"\x89PNG\r\n\x1a\n"
PIXEL = 4


def chunks(data):
    assert data.startswith(SIGNATURE), data[:80]
    at = len(SIGNATURE)
    while at < len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        content = data[at + 8:at + 8 + size]
        assert zlib.crc32(kind + content) == struct.unpack_from(">I", data, at + 8 + size)[0], kind
        yield kind, content
        at += size + 12


def decode(data):
    """Width, height, and the rows from the top as bytes: red, green, blue, alpha of each pixel."""
    parts = list(chunks(data))
    assert parts[0][0] == b"IHDR" and parts[-1] == (b"IEND", b"")
    width, height, *kind = struct.unpack(">IIBBBBB", parts[0][1])
    assert kind == [8, 6, 0, 0, 0], "not red, green, blue, alpha of 8 bits, not interlaced"
    raw = zlib.decompress(b"".join(content for name, content in parts if name == b"IDAT"))
    size = width * PIXEL
    assert len(raw) == height * (size + 1)
    rows, above = [], bytes(size)
    for at in range(0, len(raw), size + 1):
        above = FILTERS[raw[at]](raw[at + 1:at + 1 + size], above)
        rows.append(above)
    return width, height, rows


def _none(row, _above):
    return row


def _sub(row, _above):
    result = bytearray(len(row))
    for channel in range(PIXEL):
        result[channel::PIXEL] = bytes(accumulate(row[channel::PIXEL], lambda a, b: (a + b) & 255))
    return bytes(result)


def _up(row, above):
    return bytes((a + b) & 255 for a, b in zip(row, above))


def _average(row, above):
    result = bytearray(PIXEL) + row
    for i, up in enumerate(above):
        result[i + PIXEL] = (result[i + PIXEL] + (result[i] + up) // 2) & 255
    return bytes(result[PIXEL:])


def _paeth(row, above):
    result = bytearray(PIXEL) + row
    corners = bytes(PIXEL) + above
    for i, up in enumerate(above):
        left, corner = result[i], corners[i]
        to_left, to_up, to_corner = abs(up - corner), abs(left - corner), abs(left + up - 2 * corner)
        nearest = left if to_left <= to_up and to_left <= to_corner else up if to_up <= to_corner else corner
        result[i + PIXEL] = (row[i] + nearest) & 255
    return bytes(result[PIXEL:])


FILTERS = [_none, _sub, _up, _average, _paeth]
