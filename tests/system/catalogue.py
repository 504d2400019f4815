"""Reads the memories by the model alone, without a line of the service or of the generator.

    fill:   the bytes of a memory, each field made by a function that the test hands in
    decode: what all.cgi has to say about such bytes
"""

import math
import struct
from pathlib import Path

import yaml

MODEL = Path(__file__).resolve().parents[2] / "gen" / "model"
WIDTH = {"int": 4, "float": 4, "bool": 1}


def load(name):
    return yaml.safe_load((MODEL / name).read_text())


def float_text(raw):
    number = struct.unpack("<f", raw)[0]
    if math.isnan(number):
        return "-nan" if raw[3] & 0x80 else "nan"
    return "%f" % number


def text(raw):
    return raw.split(b"\0")[0].decode()


def as_float32(number):
    """The number, or what a text says, in the precision that the memories have."""
    return struct.unpack("<f", struct.pack("<f", float(number)))[0]


class Catalogue:
    def __init__(self):
        self.enumerations = {row["name"]: row["entries"] for row in load("enumerations.yaml")["enumerations"]}
        self.structures = {row["name"]: row["members"] for row in load("structures.yaml")["structures"]}
        memories = [load(f"memories/{path.name}") for path in (MODEL / "memories").iterdir()]
        self.memories = {row["memory"]: row for row in sorted(memories, key=lambda row: row["index"])}

    def sizes(self):
        return {name: memory["size"] for name, memory in self.memories.items()}

    def variable(self, memory, name):
        return next(row for row in self.memories[memory]["variables"] if row["name"] == name)

    # Layout

    def width(self, row):
        """Bytes of one element of a variable or of a member."""
        if row["type"] in ("string", "buffer"):
            return row["length"]
        if row["type"] in self.structures:
            members = self.structures[row["type"]]
            end = max(at + self.width(member) for member, at in self.places(members))
            alignment = max(self.alignment(member) for member in members)
            return -(-end // alignment) * alignment
        return WIDTH.get(row["type"], 4)

    def alignment(self, row):
        return 1 if row["type"] in ("bool", "string", "buffer") else 4

    def places(self, members):
        """Each member with its offset."""
        at = 0
        for member in members:
            at = -(-at // self.alignment(member)) * self.alignment(member)
            yield member, at
            at += self.width(member)

    def elements(self, row):
        """The offsets of a structure variable's elements from its location."""
        return range(0, self.width(row) * row.get("length", 1), self.width(row))

    # From fields to bytes

    def fill(self, memory, make):
        """Bytes of a memory; make(type, bytes, number of entries) gives each field, and "gap" what lies between."""
        size = self.memories[memory]["size"]
        data = bytearray(make("gap", size, 0))
        for row in self.memories[memory]["variables"]:
            if row["type"] in self.structures:
                for start in self.elements(row):
                    for member, at in self.places(self.structures[row["type"]]):
                        self._put(data, row["at"] + start + at, member, make)
            else:
                self._put(data, row["at"], row, make)
        assert len(data) == size
        return bytes(data)

    def _put(self, data, at, row, make):
        kind = "enum" if row["type"] in self.enumerations else row["type"]
        width = self.width(row)
        field = make(kind, width, len(self.enumerations.get(row["type"], ())))
        assert len(field) == width
        data[at:at + width] = field

    # From bytes to the document

    def decode(self, memory, data):
        """The memory's object in the tree. What is a number in JSON, a float of a structure, is read by as_float32."""
        return {row["name"]: self._value(row, data) for row in self.memories[memory]["variables"]}

    def _value(self, row, data):
        if row["type"] in self.structures:
            values = [self._structure(row, data, row["at"] + start) for start in self.elements(row)]
            return values if "length" in row else values[0]
        return self._scalar(row, data[row["at"]:row["at"] + self.width(row)])

    def _scalar(self, row, raw):
        kind = row["type"]
        if kind == "bool":
            return {"value": "true" if raw[0] else "false", "type": "bool", "textid": ["false", "true"]}
        if kind in self.enumerations:
            return {"value": self._entry(kind, raw), "type": kind, "textid": self.enumerations[kind]}
        low, high, value = {
            "int": ("-2147483648", "2147483647", lambda: str(struct.unpack("<i", raw)[0])),
            "float": ("-1e38", "1e38", lambda: float_text(raw)),
            "string": ("0", "0", lambda: text(raw)),
            "buffer": ("0", "0", raw.hex),
        }[kind]
        return {"max": str(row.get("max", high)), "min": str(row.get("min", low)),
                "type": "string" if kind == "buffer" else kind, "value": value()}

    def _structure(self, row, data, start):
        return {member["name"]: self._member(member, data[start + at:start + at + self.width(member)])
                for member, at in self.places(self.structures[row["type"]])}

    def _member(self, member, raw):
        kind = member["type"]
        if kind in self.enumerations:
            return self._entry(kind, raw)
        if kind == "float":
            number = struct.unpack("<f", raw)[0]
            return number if math.isfinite(number) else None
        return {"int": lambda: struct.unpack("<i", raw)[0], "bool": lambda: raw[0] != 0, "string": lambda: text(raw)}[
            kind]()

    def _entry(self, kind, raw):
        entries, value = self.enumerations[kind], struct.unpack("<I", raw)[0]
        return entries[value] if value < len(entries) else f"INVALID_VALUE:{value}"
