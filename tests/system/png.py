"""Reads PNG images of 8 bits red, green, blue and alpha, with nothing but zlib."""

import struct
import zlib

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
        above = unfiltered(FORETOLD[raw[at]], raw[at + 1:at + 1 + size], above)
        rows.append(above)
    return width, height, rows


def unfiltered(foretold, row, above):
    """A row holds of each byte the difference to what its filter foretells from the bytes left, above and between."""
    if foretold is None:
        return row
    result, corners = bytearray(PIXEL) + row, bytes(PIXEL) + above
    for i, up in enumerate(above):
        result[i + PIXEL] = (row[i] + foretold(result[i], up, corners[i])) & 255
    return bytes(result[PIXEL:])


def nearest(left, up, corner):
    """The neighbour that is nearest to left + up - corner."""
    return min(left, up, corner, key=lambda byte: abs(left + up - corner - byte))


FORETOLD = [None, lambda left, up, corner: left, lambda left, up, corner: up,
            lambda left, up, corner: (left + up) // 2, nearest]
