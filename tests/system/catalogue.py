"""Places and values of variables.

The places come from the generator; the compiler checks them against the C structures.
"""

import sys
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.append(str(REPOSITORY / "gen" / "generator"))

from layout import Types
from load import Loader
from problems import Problems


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
                enumeration = self._types.enumerations.get(member.item.type)
                entries = len(enumeration.entries) if enumeration else 0
                data[at:at + member.size] = make(self._types.base(member.item.type), member.size, entries)
        return bytes(data)

    def _members(self, field):
        """Every member of every element with its offset; a variable without members is its own member."""
        structure = self._types.structures.get(field.item.type)
        if structure is None:
            return [(field, field.offset)]
        elements = range(field.offset, field.offset + field.size, self._types.structure_size(structure))
        return [(member, start + member.offset) for start in elements for member in self._types.members(structure)]
