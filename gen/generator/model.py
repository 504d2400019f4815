"""The model as written in the files, with the place of each part."""

from dataclasses import dataclass
from typing import Optional

from problems import Number, Text


@dataclass(frozen=True)
class Enumeration:
    name: Text
    entries: list[Text]
    declared: Optional[Text]  # the header that declares it by hand


@dataclass(frozen=True)
class Member:
    name: Text
    type: Text
    length: Optional[Number]


@dataclass(frozen=True)
class Structure:
    name: Text
    members: list[Member]


@dataclass(frozen=True)
class Variable:
    event: Number
    at: Number
    name: Text
    type: Text
    length: Optional[Number]
    min: Optional[Text]
    max: Optional[Text]
    about: Optional[Text]


@dataclass(frozen=True)
class Memory:
    name: Text
    index: Number
    size: Number
    count: Number
    variables: list[Variable]


@dataclass(frozen=True)
class Event:
    """An event without a variable in the catalogue. A device event has the name of its variable."""

    event: Number
    name: Text


@dataclass(frozen=True)
class Model:
    enumerations: list[Enumeration]
    structures: list[Structure]
    memories: list[Memory]  # by index
    event_count: Number
    control: list[Event]
    device: list[Event]

    def variables(self):
        """Every (memory, variable) in catalogue order."""
        return [(memory, variable) for memory in self.memories for variable in memory.variables]


def event_name(variable_name):
    return f"Var{variable_name}Changed"
