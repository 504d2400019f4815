"""The types of variables and members in TypeScript and Python, for the clients' templates."""

from layout import BOOL, BUFFER, ENUM, FLOAT, INT, STRING, STRUCT

# A float is null where the memory has no finite number.
TYPESCRIPT = {INT: "number", FLOAT: "number | null", BOOL: "boolean", STRING: "string", BUFFER: "string"}
PYTHON = {INT: "int", FLOAT: "Optional[float]", BOOL: "bool", STRING: "str", BUFFER: "str"}
PYTHON_NEW = {**PYTHON, FLOAT: "float"}


class ClientTypes:
    """REQUIRES: types of a checked model."""

    def __init__(self, types):
        self._types = types

    def typescript(self, item):
        base = self._types.base(item.type)
        if base == ENUM:
            return f"{item.type} | Invalid"
        if base == STRUCT:
            return item.type if item.length is None else f"Elements<{item.type}, {item.length}>"
        return TYPESCRIPT[base]

    def python(self, item):
        """The type of a delivered value."""
        return self._python(item, PYTHON, "")

    def python_new(self, item):
        """The type of a value to set. Of a structure it has some members."""
        return self._python(item, PYTHON_NEW, "Change")

    def _python(self, item, plain, suffix):
        base = self._types.base(item.type)
        if base == STRUCT:
            return item.type + suffix if item.length is None else f"List[{item.type}{suffix}]"
        return plain.get(base, item.type)

    def arrays(self, model, structure):
        """The full names of the arrays of a structure."""
        return [f"{memory.name}.{variable.name}" for memory, variable in model.variables()
                if variable.type == structure.name and variable.length is not None]


def about(variable):
    """What the variable is, and its bounds: one line, empty if the model says neither."""
    return " ".join([*str(variable.about or "").split(), *bounds(variable)])


def bounds(variable):
    if variable.min is None:
        return [] if variable.max is None else [f"At most {variable.max}."]
    return [f"At least {variable.min}." if variable.max is None else f"From {variable.min} to {variable.max}."]
