"""Sizes, alignments and offsets as in the C ABI of the 32-bit ARM target."""

from dataclasses import dataclass
from typing import Optional

from model import Member, Variable

INT, FLOAT, BOOL, STRING, BUFFER, ENUM, STRUCT = (
    "BaseInt", "BaseFloat", "BaseBool", "BaseString", "BaseBuffer", "BaseEnum", "BaseStruct")

BASE_TYPES = {"int": INT, "float": FLOAT, "bool": BOOL, "string": STRING, "buffer": BUFFER}
WORD = 4


def aligned(offset, alignment):
    return (offset + alignment - 1) // alignment * alignment


@dataclass(frozen=True)
class Field:
    """A member of a structure or a variable of a memory, with offset and size in bytes."""

    item: Optional[Member | Variable]  # None for a gap
    offset: int
    size: int


class Types:
    """The types of a model by name. Structures are laid out in order with natural alignment."""

    def __init__(self, model):
        self.enumerations = {enumeration.name: enumeration for enumeration in model.enumerations}
        self.structures = {structure.name: structure for structure in model.structures}

    def base(self, name):
        """The base type's constant, None for an unknown name."""
        if name in BASE_TYPES:
            return BASE_TYPES[name]
        if name in self.enumerations:
            return ENUM
        return STRUCT if name in self.structures else None

    def alignment(self, name):
        base = self.base(name)
        if base == STRUCT:
            return max(self.alignment(member.type) for member in self.structures[name].members)
        return WORD if base in (INT, FLOAT, ENUM) else 1

    def size(self, item):
        """Bytes of a member or variable, all elements together."""
        base = self.base(item.type)
        if base in (STRING, BUFFER):
            return item.length
        if base == STRUCT:
            return self.structure_size(self.structures[item.type]) * (item.length or 1)
        return 1 if base == BOOL else WORD

    def members(self, structure):
        fields, end = [], 0
        for member in structure.members:
            offset = aligned(end, self.alignment(member.type))
            fields.append(Field(member, offset, self.size(member)))
            end = offset + fields[-1].size
        return fields

    def structure_size(self, structure):
        last = self.members(structure)[-1]
        return aligned(last.offset + last.size, self.alignment(structure.name))

    def memory_alignment(self, memory):
        return max((self.alignment(variable.type) for variable in memory.variables), default=1)

    def fields(self, memory):
        """The memory's variables by location, without gaps."""
        placed = sorted(memory.variables, key=lambda variable: variable.at)
        return [Field(variable, int(variable.at), self.size(variable)) for variable in placed]

    def fields_and_gaps(self, memory):
        """As fields, with the gaps that alignment does not produce, also that at the end."""
        rows, end = [], 0
        for field in self.fields(memory):
            if field.offset != aligned(end, self.alignment(field.item.type)):
                rows.append(Field(None, end, field.offset - end))
            rows.append(field)
            end = field.offset + field.size
        if aligned(end, self.memory_alignment(memory)) != memory.size:
            rows.append(Field(None, end, memory.size - end))
        return rows
