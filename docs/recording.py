"""Draws variables of a recording over time: python3 docs/recording.py FILE PICTURE.png MemDynamic.FocusActPosNorm ..."""
import contextlib
import io
import struct
import sys
import zlib


def number(stream):
    """Reads a number of 7 bits a byte. Raises IndexError at the end."""
    byte = stream.read(1)[0]
    return byte if byte < 0x80 else byte - 0x80 + (number(stream) << 7)


def frames(data):
    """The contents of all whole frames, the description first."""
    stream = io.BytesIO(data)
    assert stream.read(8) == b"VarRec1\n", "not a recording of version 1"
    with contextlib.suppress(IndexError):
        while (content := stream.read(number(stream))) and stream.read(4) == struct.pack("<I", zlib.crc32(content)):
            yield content


def entries(data):
    """(seconds, words of the variable's description, arguments of the event, bytes of the value) of each entry."""
    description, *others = frames(data)
    variables = [line.split(" ") for line in description.decode().splitlines()[2:]]
    values, time, place = [bytearray(int(words[2])) for words in variables], 0, 0
    for stream, size in ((io.BytesIO(content), len(content)) for content in others):
        while stream.tell() < size:
            time, packed = time + number(stream), number(stream)
            place += -(packed + 2 >> 2) if packed & 2 else packed >> 2
            arguments = (number(stream), number(stream)) if packed & 1 else (0, 0)
            length, offset = divmod(number(stream), len(values[place]) + 1)
            values[place][offset:offset + length] = stream.read(length)
            yield time / 1e6, variables[place], arguments, bytes(values[place])


if __name__ == "__main__":
    from matplotlib import pyplot
    with open(sys.argv[1], "rb") as file:
        recorded = list(entries(file.read()))
    for name in sys.argv[3:]:
        points = [(time, *struct.unpack({"float": "<f", "bool": "<?"}.get(words[1], "<i"), value))
                  for time, words, _, value in recorded if words[0] == name]
        pyplot.step(*zip(*points), where="post", label=name)
    pyplot.legend()
    pyplot.savefig(sys.argv[2])
