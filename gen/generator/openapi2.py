"""The OpenAPI description of version 2 of the web API: a hand-written frame and the schemas of the model's variables.

    Values, SomeValues             names and values, as GET and the events deliver them
    Changes                        new values of whole variables, as PATCH takes them
    Parts, NewParts                the same for elements of arrays and members of structures by their names
    Structure.<structure>          values of a structure
    NewStructure.<structure>       some of its members, to set
    Entry.<enumeration>            the names of its entries
"""

import re
from pathlib import Path

from layout import BOOL, BUFFER, ENUM, FLOAT, INT, STRING, STRUCT, Types
from openapi import FLOAT_MAX, INT_BOUNDS, about, document_text, number, reference
from schema import DEFAULT_BOUNDS, closed_object, complete_object, fixed_array

FRAME = Path(__file__).parent / "templates" / "openapi-v2.yaml"
MEMBER_BOUNDS = {INT: INT_BOUNDS, FLOAT: (-FLOAT_MAX, FLOAT_MAX)}


def openapi2_text(model, comment):
    return document_text(FRAME, schemas(model), comment)


def schemas(model):
    types = Types(model)
    values, changes = Plain(types, "Structure.", delivered), Plain(types, "NewStructure.", accepted)
    return {
        "Values": {**complete_object(described(model, values)), "description": "All variables."},
        "SomeValues": {**closed_object(whole(model, values)), "description": "Some variables."},
        "Changes": {**closed_object(whole(model, changes)), "description": "New values of whole variables."},
        "Parts": {**parts(model, values), "description": "Elements of arrays and members of structures."},
        "NewParts": {**parts(model, changes), "description": "New values of elements and members."},
        **{f"Structure.{structure.name}": complete_object(members(structure, values))
           for structure in model.structures},
        **{f"NewStructure.{structure.name}": closed_object(members(structure, changes))
           for structure in model.structures},
        **{f"Entry.{enumeration.name}": {"type": "string", "enum": list(enumeration.entries)}
           for enumeration in model.enumerations},
    }


def whole(model, values):
    return {f"{memory.name}.{variable.name}": values.schema(variable) for memory, variable in model.variables()}


def described(model, values):
    return {f"{memory.name}.{variable.name}": {**values.schema(variable), **about(variable)}
            for memory, variable in model.variables()}


def members(structure, values):
    return {member.name: values.schema(member) for member in structure.members}


def parts(model, values):
    """By names such as "MemLens.LensFileList[2].LensFileName"."""
    properties, patterns = {}, {}
    for memory, variable in model.variables():
        structure = values.types.structures.get(variable.type)
        name = f"{memory.name}.{variable.name}"
        if structure and variable.length is None:
            properties.update({f"{name}.{member}": value for member, value in members(structure, values).items()})
        elif structure:
            element = f"^{re.escape(name)}\\[[0-9]+\\]"
            patterns[f"{element}$"] = values.structure(structure.name)
            patterns.update({f"{element}\\.{member}$": value for member, value in members(structure, values).items()})
    return {**closed_object(properties), "patternProperties": patterns}


class Plain:
    """Values without type and bounds: numbers, booleans, texts, objects of members, arrays of such objects."""

    def __init__(self, types, structures, simple):
        """structures   prefix of the schema of a structure
        simple       the schema of a variable or member that is not a structure
        """
        self.types = types
        self._structures = structures
        self._simple = simple

    def schema(self, item):
        """Of a variable or a member."""
        base = self.types.base(item.type)
        if base != STRUCT:
            return self._simple(item, base)
        value = self.structure(item.type)
        return value if item.length is None else fixed_array(value, item.length)

    def structure(self, name):
        return reference(self._structures + name)


def delivered(item, base):
    """Another process may have stored any bytes: a number beyond the bounds, a text without its terminator. The text for
    a number that is not an entry of its enumeration is left out, because generators would make of it any text.
    """
    return {
        INT: lambda: {"type": "integer", "minimum": INT_BOUNDS[0], "maximum": INT_BOUNDS[1]},
        FLOAT: lambda: {"type": ["number", "null"]},
        BOOL: lambda: {"type": "boolean"},
        STRING: lambda: {"type": "string", "maxLength": item.length},
        BUFFER: lambda: {"type": "string", "pattern": f"^[0-9a-f]{{{2 * item.length}}}$"},
        ENUM: lambda: reference(f"Entry.{item.type}"),
    }[base]()


def accepted(item, base):
    """Lengths are bytes of UTF-8, so fewer characters may fit."""
    return {
        INT: lambda: {"type": "integer", **bounds(item, INT)},
        FLOAT: lambda: {"type": "number", **bounds(item, FLOAT)},
        BOOL: lambda: {"type": "boolean"},
        STRING: lambda: {"type": "string", "maxLength": item.length - 1, "pattern": "^[^\\u0000]*$"},
        BUFFER: lambda: {"type": "string", "maxLength": 2 * item.length, "pattern": "^([0-9a-fA-F]{2})*$"},
        ENUM: lambda: reference(f"Entry.{item.type}"),
    }[base]()


def bounds(item, base):
    """Members have those of their type."""
    if not hasattr(item, "min"):
        lowest, highest = MEMBER_BOUNDS[base]
        return {"minimum": lowest, "maximum": highest}
    lowest, highest = DEFAULT_BOUNDS[base]
    return {"minimum": number(item.min or lowest, None), "maximum": number(item.max or highest, None)}
