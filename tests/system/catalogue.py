"""Fills memories with values and tells what all.cgi has to print for them.

The places of variables and members come from the generator; the compiler checks them against the C structures.
"""

import math
import struct
import sys
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.append(str(REPOSITORY / "gen" / "generator"))

from layout import BOOL, BUFFER, ENUM, FLOAT, INT, STRING, STRUCT, Types
from load import Loader
from problems import Problems

DEFAULT_BOUNDS = {INT: ("-2147483648", "2147483647"), FLOAT: ("-1e38", "1e38"), STRING: ("0", "0"), BUFFER: ("0", "0")}


def as_float32(number):
    """The number, or the number that a text holds, in the precision of the memories."""
    return struct.unpack("<f", struct.pack("<f", float(number)))[0]


class Catalogue:
    """memories   the model's memories by name, in the order of their indexes"""

    def __init__(self):
        model = Loader(Problems()).model(REPOSITORY / "gen" / "model")
        self.memories = {memory.name: memory for memory in model.memories}
        self._types = Types(model)

    def sizes(self):
        return {name: memory.size for name, memory in self.memories.items()}

    def variable(self, memory, name):
        return next(variable for variable in self.memories[memory].variables if variable.name == name)

    def fill(self, memory, make):
        """Bytes of a memory. make(base type, bytes, number of entries) gives each value; None is the base type of the
        bytes between values."""
        data = bytearray(make(None, self.memories[memory].size, 0))
        for field in self._types.fields(self.memories[memory]):
            for member, at in self._members(field):
                entries = self.entries(member.item)
                data[at:at + member.size] = make(self._types.base(member.item.type), member.size, len(entries))
        return bytes(data)

    def decode(self, memory, data):
        """The memory's object in the tree, to be compared with one whose numbers were read by as_float32."""
        fields = {field.item.name: field for field in self._types.fields(self.memories[memory])}
        return {variable.name: self._value(fields[variable.name], data) for variable in self.memories[memory].variables}

    def _members(self, field):
        """Every member of every element with its offset; a variable without members is its own member."""
        structure = self._types.structures.get(field.item.type)
        if structure is None:
            return [(field, field.offset)]
        elements = range(field.offset, field.offset + field.size, self._types.structure_size(structure))
        return [(member, start + member.offset) for start in elements for member in self._types.members(structure)]

    def entries(self, item):
        """The names of an enumeration's values; empty for other types."""
        enumeration = self._types.enumerations.get(item.type)
        return enumeration.entries if enumeration else []

    def _value(self, field, data):
        item, base = field.item, self._types.base(field.item.type)
        if base == STRUCT:
            return self._structures(field, data)
        raw = data[field.offset:field.offset + field.size]
        value = self._plain(item, raw)
        if base == BOOL:
            return {"value": "true" if value else "false", "type": "bool", "textid": ["false", "true"]}
        if base == ENUM:
            return {"value": value, "type": item.type, "textid": self.entries(item)}
        low, high = DEFAULT_BOUNDS[base]
        if base == FLOAT:  # Python prints no sign of a NaN
            value = ("-" if raw[3] & 0x80 else "") + "%f" % abs(value)
        return {"max": item.max or high, "min": item.min or low, "type": "string" if base == BUFFER else item.type,
                "value": str(value)}

    def _structures(self, field, data):
        elements = []
        for member, at in self._members(field):
            if member.offset == 0:
                elements.append({})
            value = self._plain(member.item, data[at:at + member.size])
            is_number = not isinstance(value, float) or math.isfinite(value)
            elements[-1][member.item.name] = value if is_number else None
        return elements if field.item.length else elements[0]

    def _plain(self, item, raw):
        """The value as a number or text of Python."""
        base = self._types.base(item.type)
        if base == STRING:
            return raw.split(b"\0")[0].decode()
        if base == BUFFER:
            return raw.hex()
        if base == BOOL:
            return raw[0] != 0
        value = struct.unpack("<f" if base == FLOAT else "<I" if base == ENUM else "<i", raw)[0]
        if base != ENUM:
            return value
        entries = self.entries(item)
        return entries[value] if value < len(entries) else f"INVALID_VALUE:{value}"
