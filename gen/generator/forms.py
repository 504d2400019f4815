"""The forms of a model's parts in C++, C and Markdown, for the templates."""

import re

from layout import BOOL, BUFFER, ENUM, FLOAT, INT, STRING, STRUCT

FUNCTION_NAMES = {INT: "Int", FLOAT: "Float", BOOL: "Bool", STRING: "String", BUFFER: "Buffer"}
C_TYPES = {INT: "int32_t", FLOAT: "float", BOOL: "uint8_t", STRING: "char", BUFFER: "uint8_t", ENUM: "int32_t"}


class Forms:
    """REQUIRES: types of a checked model."""

    def __init__(self, types):
        self._types = types
        self._enumerations = list(types.enumerations)

    def base(self, item):
        return self._types.base(item.type)

    def getter(self, variable):
        return f"get{self._function(variable)}Introspection" + self._capacity(variable, (STRING, BUFFER))

    def setter(self, variable):
        return f"set{self._function(variable)}Introspection" + self._capacity(variable, (BUFFER,))

    def json_setter(self, variable):
        return f"set{variable.type}Json" if self.base(variable) == STRUCT else "nullptr"

    def is_array(self, variable):
        base = self.base(variable)
        return int(base == STRING or (base == STRUCT and variable.length is not None))

    def capacity(self, member):
        return member.length if self.base(member) == STRING else 0

    def enumeration(self, member):
        """The address of a member's row in the table of enumerations."""
        if self.base(member) != ENUM:
            return "nullptr"
        return f"&ENUM_ARRAY[{self._enumerations.index(member.type)}]"

    def declaration(self, field):
        """A field of a C structure; without an `item` it is a gap."""
        if field.item is None:
            return f"uint8_t gap{field.offset}[{field.size}];"
        base = self.base(field.item)
        c_type = f"struct {field.item.type}" if base == STRUCT else C_TYPES[base]
        length = f"[{field.item.length}]" if field.item.length is not None else ""
        comment = f" /* {field.item.type} */" if base == ENUM else ""
        return f"{c_type} {field.item.name}{length};{comment}"

    def page_type(self, item):
        """The type with its length and a link to its section."""
        base = self.base(item)
        name = f"[{item.type}](#{item.type.lower()})" if base in (ENUM, STRUCT) else str(item.type)
        return name if item.length is None else f"{name}[{item.length}]"

    def takes(self, item):
        """The values that a variable or member accepts, in words."""
        base = self.base(item)
        if base in (INT, FLOAT):
            return self._range(item)
        return {
            BOOL: lambda: "true, false",
            STRING: lambda: f"up to {item.length - 1} bytes",
            BUFFER: lambda: f"up to {2 * item.length} digits",
            ENUM: lambda: "an entry",
            STRUCT: lambda: "members" if item.length is None else f"members, Index 0 to {item.length - 1}",
        }[base]()

    @staticmethod
    def _range(item):
        """REQUIRES: an int or float. Members have no bounds."""
        lowest, highest = getattr(item, "min", None), getattr(item, "max", None)
        if lowest is None and highest is None:
            return "any"
        if lowest is None:
            return f"up to {highest}" + (", above 0" if item.type == "float" else "")
        return f"from {lowest}" if highest is None else f"{lowest} to {highest}"

    def _function(self, variable):
        return FUNCTION_NAMES.get(self.base(variable), variable.type)

    def _capacity(self, variable, bases):
        return f"<{variable.length}>" if self.base(variable) in bases else ""


def words(name):
    """MemLensMarkers to MEM_LENS_MARKERS."""
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])", "_", name).upper()


def cell(text):
    """A text in a table of a page."""
    return "" if text is None else " ".join(str(text).split()).replace("|", "\\|")


def literal(text):
    """A name or number as a C++ text, nullptr for None."""
    return "nullptr" if text is None else f'"{text}"'
