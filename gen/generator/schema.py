"""The JSON Schema of the variable tree that the web API delivers."""

from jsonformat import format_json
from layout import BOOL, BUFFER, ENUM, FLOAT, INT, STRING, STRUCT, Types

ENTRY_DEPTH = 2  # a line for each definition
INVALID_VALUE = "^INVALID_VALUE:[0-9]+$"
DEFAULT_BOUNDS = {INT: ("-2147483648", "2147483647"), FLOAT: ("-1e38", "1e38"), STRING: ("0", "0"), BUFFER: ("0", "0")}


def schema_text(model, comment):
    return format_json(Schema(Types(model)).tree(model, comment), ENTRY_DEPTH) + "\n"


class Schema:
    """The whole tree has all memories and variables; an update has those that changed."""

    def __init__(self, types, place="#/$defs/"):
        """place   prefix of a type's name in references."""
        self._types = types
        self._place = place

    def tree(self, model, comment):
        memories = {memory.name: f"#/$defs/memories/{memory.name}" for memory in model.memories}
        return {
            "$schema": "https://json-schema.org/draft/2020-12/schema",
            "$comment": comment,
            "title": "The variable tree",
            "description": "'variables' of all.cgi; '#/$defs/update' is that of update.cgi.",
            "$ref": "#/$defs/update",
            "required": list(memories),
            "properties": {
                memory.name: {"required": [variable.name for variable in memory.variables]}
                for memory in model.memories
            },
            "$defs": {
                "update": closed_object({name: {"$ref": target} for name, target in memories.items()}),
                "memories": {memory.name: self._memory(memory) for memory in model.memories},
                **self.values(),
            },
        }

    def values(self):
        """The values of every type by its name."""
        return {
            **base_definitions(),
            **{enumeration.name: enumeration_value(enumeration) for enumeration in self._types.enumerations.values()},
            **{structure.name: self._structure(structure) for structure in self._types.structures.values()},
        }

    def _memory(self, memory):
        return closed_object({variable.name: self.variable(variable) for variable in memory.variables})

    def variable(self, variable):
        base = self._types.base(variable.type)
        value = {"$ref": self._place + variable.type}
        if base == BOOL:
            return value
        if base in (ENUM, STRUCT):
            return value if variable.length is None else fixed_array(value, variable.length)
        return {**value, "properties": bounds_and_length(variable, base)}

    def _structure(self, structure):
        members = {member.name: self._member(member) for member in structure.members}
        return complete_object(members)

    def _member(self, member):
        base = self._types.base(member.type)
        if base == ENUM:
            return {"anyOf": entry_names(self._types.enumerations[member.type])}
        if base == STRING:
            return {"type": "string", "maxLength": member.length}
        return {INT: {"type": "integer", "minimum": -2147483648, "maximum": 2147483647},
                FLOAT: {"type": ["number", "null"]}, BOOL: {"type": "boolean"}}[base]


def closed_object(properties):
    return {"type": "object", "properties": properties, "additionalProperties": False}


def fixed_array(items, length):
    return {"type": "array", "items": items, "minItems": length, "maxItems": length}


def base_definitions():
    """Values as objects of texts."""
    return {
        "bool": complete_object({"value": {"enum": ["true", "false"]}, "type": {"const": "bool"},
                             "textid": {"const": ["false", "true"]}}),
        "int": described_value("int", {"pattern": "^-?[0-9]+$"}),
        "float": described_value("float", {"pattern": "^-?([0-9]+\\.[0-9]{6}|inf|nan)$"}),
        "string": described_value("string", {}),
        "buffer": described_value("string", {"pattern": "^([0-9a-f]{2})*$"}),
    }


def described_value(type_name, value):
    return complete_object({"max": {"type": "string"}, "min": {"type": "string"}, "type": {"const": type_name},
                        "value": {"type": "string", **value}})


def complete_object(properties):
    """All of them are there."""
    return {**closed_object(properties), "required": list(properties)}


def bounds_and_length(variable, base):
    lowest, highest = DEFAULT_BOUNDS[base]
    properties = {"max": {"const": variable.max or highest}, "min": {"const": variable.min or lowest}}
    if base == STRING:
        properties["value"] = {"maxLength": variable.length}
    elif base == BUFFER:
        properties["value"] = {"minLength": 2 * variable.length, "maxLength": 2 * variable.length}
    return properties


def entry_names(enumeration):
    """An entry, or the text for a stored value that is not an entry."""
    return [{"enum": list(enumeration.entries)}, {"type": "string", "pattern": INVALID_VALUE}]


def enumeration_value(enumeration):
    return complete_object({"value": {"anyOf": entry_names(enumeration)}, "type": {"const": enumeration.name},
                        "textid": {"const": list(enumeration.entries)}})
