"""The OpenAPI description of the web API: a hand-written frame and the schemas of the model's variables.

    Memory.<memory>                                   all variables of a memory, as all.cgi delivers them
    Change.<memory>                                   some of them, as update.cgi delivers them
    Value.<type>                                      their values
    SetMemory.<memory>, Set.<structure>               as set.cgi takes them
    Entry.<enumeration>                               the names of its entries, for both
"""

from pathlib import Path

import yaml

from jsonformat import format_json
from layout import BOOL, BUFFER, ENUM, FLOAT, INT, STRING, STRUCT, Types
from model import event_name
from schema import Schema, closed_object, complete_object

FRAME = Path(__file__).parent / "templates" / "openapi.yaml"
SCHEMAS = "#/components/schemas/"
ENTRY_DEPTH = 3  # a line for each schema
INT_BOUNDS = (-2147483648, 2147483647)
FLOAT_MAX = 3.4028234663852886e38
SMALLEST_NORMAL = 1.1754943508222875e-38  # where the service's check begins when there is only an upper bound
# The service's parser has no escapes: a backslash is an ordinary character, and a quotation mark ends the text.
PLAIN_TEXT = r'^[^"\\\u0000-\u001f]*$'


def openapi_text(model, comment):
    return document_text(FRAME, schemas(model), comment)


def document_text(frame, model_schemas, comment):
    """The frame's document with the schemas of the model, which replace those of the frame."""
    document = yaml.safe_load(frame.read_text())
    document["components"]["schemas"].update(model_schemas)
    return format_json({"openapi": document.pop("openapi"), "x-comment": comment, **document}, ENTRY_DEPTH) + "\n"


def schemas(model):
    types = Types(model)
    values, sets = Schema(types, SCHEMAS + "Value."), SetSchema(types)
    return {
        **tree(model),
        **{f"Memory.{memory.name}": read_memory(memory, values) for memory in model.memories},
        **{f"Change.{memory.name}": changed_memory(memory, values) for memory in model.memories},
        **{f"Value.{name}": value for name, value in values.values().items() if name in used_types(model)},
        **assignment(model),
        **{f"SetMemory.{memory.name}": sets.memory(memory) for memory in model.memories},
        **{f"Set.{structure.name}": sets.structure(structure) for structure in model.structures},
        **{f"Entry.{enumeration.name}": {"type": "string", "enum": list(enumeration.entries)}
           for enumeration in model.enumerations},
    }


def reference(name):
    return {"$ref": SCHEMAS + name}


def used_types(model):
    """The types that variables have; some enumerations occur in structures only."""
    return {variable.type for memory in model.memories for variable in memory.variables}


def tree(model):
    return {
        "Tree": {
            **complete_object({memory.name: reference(f"Memory.{memory.name}") for memory in model.memories}),
            "description": "Every memory with every variable.",
        },
        "Changes": {
            **closed_object({memory.name: reference(f"Change.{memory.name}") for memory in model.memories}),
            "description": "Those memories and variables that have changed.",
        },
    }


def read_memory(memory, values):
    return complete_object({variable.name: {**values.variable(variable), **about(variable)}
                            for variable in memory.variables})


def changed_memory(memory, values):
    return closed_object({variable.name: values.variable(variable) for variable in memory.variables})


def about(variable):
    """Description and event of a variable."""
    event = {"x-event": {"id": int(variable.event), "name": event_name(variable.name)}}
    return event if variable.about is None else {"description": str(variable.about), **event}


def assignment(model):
    properties = {memory.name: reference(f"SetMemory.{memory.name}") for memory in model.memories}
    return {"Assignment": {**one_of_them(properties), "description": "One variable of one memory."}}


def one_of_them(properties):
    return {**closed_object(properties), "minProperties": 1, "maxProperties": 1}


class SetSchema:
    """The values that set.cgi accepts. It also accepts numbers and booleans as texts."""

    def __init__(self, types):
        self._types = types

    def memory(self, memory):
        return one_of_them({variable.name: {**self._variable(variable), **about(variable)}
                            for variable in memory.variables})

    def structure(self, structure):
        """Some members, and the index of the element."""
        members = {member.name: self._member(member) for member in structure.members}
        return {
            **closed_object({"Index": {"type": "integer", "minimum": 0}, **members}),
            "minProperties": 1,
            "not": {"properties": {"Index": {}}, "required": ["Index"], "maxProperties": 1},
        }

    def _variable(self, variable):
        base = self._types.base(variable.type)
        if base == STRUCT:
            last = (variable.length or 1) - 1
            return {**reference(f"Set.{variable.type}"), "properties": {"Index": {"maximum": last}}}
        if base == INT:
            return {"type": "integer", "minimum": number(variable.min, INT_BOUNDS[0]),
                    "maximum": number(variable.max, INT_BOUNDS[1])}
        if base == FLOAT:
            lowest = -FLOAT_MAX if variable.max is None else SMALLEST_NORMAL
            return {"type": "number", "minimum": number(variable.min, lowest),
                    "maximum": number(variable.max, FLOAT_MAX)}
        return self._plain(variable, base)

    def _member(self, member):
        base = self._types.base(member.type)
        if base == INT:
            return {"type": "integer", "minimum": INT_BOUNDS[0], "maximum": INT_BOUNDS[1]}
        if base == FLOAT:
            return {"type": "number", "minimum": -FLOAT_MAX, "maximum": FLOAT_MAX}
        return self._plain(member, base)

    @staticmethod
    def _plain(item, base):
        """Types without bounds. Lengths are bytes of UTF-8, so fewer characters may fit."""
        return {
            BOOL: lambda: {"type": "boolean"},
            ENUM: lambda: reference(f"Entry.{item.type}"),
            STRING: lambda: {"type": "string", "maxLength": item.length - 1, "pattern": PLAIN_TEXT},
            BUFFER: lambda: {"type": "string", "maxLength": 2 * item.length, "pattern": "^([0-9a-fA-F]{2})*$"},
        }[base]()


def number(bound, otherwise):
    """A bound as a JSON number."""
    if bound is None:
        return otherwise
    value = float(bound)
    return int(value) if value.is_integer() and abs(value) < 2 ** 53 else value
