"""Draws variables of a recording over time: python3 docs/recording.py FILE PICTURE.png MemDynamic.FocusActPosNorm ..."""

import io
import struct
import sys
import zlib


def number(stream):
    """Reads a number of 7 bits a byte. Raises IndexError at the end."""
    value = shift = 0
    while (byte := stream.read(1)[0]) & 0x80:
        value, shift = value | (byte & 0x7F) << shift, shift + 7
    return value | byte << shift


def frames(data):
    """The contents of all whole frames, the description first."""
    stream, found = io.BytesIO(data), []
    assert stream.read(8) == b"VarRec1\n", "not a recording of version 1"
    while stream.tell() < len(data):
        try:
            found.append(stream.read(number(stream)))
        except IndexError:
            break
        if stream.read(4) != struct.pack("<I", zlib.crc32(found[-1])):
            return found[:-1]
    return found


def entries(data):
    """(seconds, words of the variable's description, arguments of the event, bytes of the value) of each entry."""
    description, *others = frames(data)
    variables = [line.split(" ") for line in description.decode().splitlines()[2:]]
    values = [bytearray(int(words[2])) for words in variables]
    time = place = 0
    for stream, size in ((io.BytesIO(content), len(content)) for content in others):
        while stream.tell() < size:
            time, packed = time + number(stream), number(stream)
            place += -(packed + 2 >> 2) if packed & 2 else packed >> 2
            arguments = (number(stream), number(stream)) if packed & 1 else (0, 0)
            length, offset = divmod(number(stream), len(values[place]) + 1)
            values[place][offset:offset + length] = stream.read(length)
            yield time / 1e6, variables[place], arguments, bytes(values[place])


def draw(data, picture, names):
    from matplotlib import pyplot  # pylint: disable=import-outside-toplevel  # reading does not need it
    for name in names:
        points = [(time, *struct.unpack({"float": "<f", "bool": "<?"}.get(words[1], "<i"), value))
                  for time, words, _, value in entries(data) if words[0] == name]
        pyplot.step(*zip(*points), where="post", label=name)
    pyplot.xlabel("seconds")
    pyplot.legend()
    pyplot.savefig(picture)


if __name__ == "__main__":
    with open(sys.argv[1], "rb") as recording:
        draw(recording.read(), sys.argv[2], sys.argv[3:])
