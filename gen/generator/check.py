"""Checks a model's meaning. Each rule has one function, which reports everything that it finds."""

import re

from layout import BASE_TYPES, BUFFER, FLOAT, INT, STRING, STRUCT, Types
from model import event_name
from words import KEYWORDS

# The generated names would be those of the hand-written getters and setters.
TAKEN_TYPES = ("Bool", "Buffer", "Enum", "Float", "Int", "String", "Structure")
LARGEST_FLOAT = 3.4028235e38
SMALLEST_FLOAT = 1.17549435e-38


def check(model, problems):
    """Reports the problems of a model. REQUIRES: it was read without problems."""
    check_names(model, problems)
    check_headers(model, problems)
    check_members(model, problems)
    if problems:  # sizes are unknown
        return
    check_memory_table(model, problems)
    check_events(model, problems)
    types = Types(model)
    for memory in model.memories:
        sound = [variable for variable in memory.variables if check_type(types, variable, problems)]
        check_locations(types, memory, sound, problems)


def check_names(model, problems):
    # All three become C names, some of them in capitals.
    named = model.enumerations + model.structures + model.memories
    refuse_duplicates("name", [item.name for item in named], problems, str.upper)
    variables = [variable.name for _, variable in model.variables()] + [event.name for event in model.device]
    refuse_duplicates("variable", variables, problems)
    for enumeration in model.enumerations:
        refuse_duplicates("entry", enumeration.entries, problems)
        check_identifiers([enumeration.name, *enumeration.entries], problems)
    for structure in model.structures:
        refuse_duplicates("member", [member.name for member in structure.members], problems)
        check_identifiers([structure.name, *(member.name for member in structure.members)], problems)
    check_identifiers(variables + [event.name for event in model.control], problems)
    for name in [item.name for item in model.enumerations + model.structures]:
        if name in BASE_TYPES or name in TAKEN_TYPES:
            problems.report(name.place, f"'{name}' names a base type")
    for memory in model.memories:
        if not re.fullmatch(r"Mem[A-Z][A-Za-z0-9]*", memory.name):
            problems.report(memory.name.place, f"'{memory.name}' is not a memory's name: 'Mem' and a capital are expected")


def check_identifiers(names, problems):
    for name in names:
        if not re.fullmatch(r"[A-Za-z](_?[A-Za-z0-9])*", name):
            problems.report(name.place, f"'{name}' is not an identifier")
        elif name in KEYWORDS:
            problems.report(name.place, f"'{name}' is a keyword of C++")


def refuse_duplicates(what, names, problems, key=str):
    first = {}
    for name in names:
        other = first.setdefault(key(name), name)
        if other is not name:
            problems.report(name.place, f"{what} '{name}' is already defined at {other.place}")


def check_headers(model, problems):
    for enumeration in model.enumerations:
        if not enumeration.entries:
            problems.report(enumeration.name.place, f"enumeration '{enumeration.name}' has no entries")
        header = enumeration.declared
        if header is not None and not re.fullmatch(r"[A-Za-z0-9_.-]+(/[A-Za-z0-9_.-]+)*\.h", header):
            problems.report(header.place, f"'{header}' is not a header")


def check_members(model, problems):
    types = Types(model)
    for structure in model.structures:
        if not structure.members:
            problems.report(structure.name.place, f"structure '{structure.name}' has no members")
        for member in structure.members:
            if types.base(member.type) in (BUFFER, STRUCT):
                problems.report(member.type.place, f"a member cannot be a '{member.type}'")
            else:
                check_length(types, member, problems)


def check_length(types, item, problems):
    """Reports an unknown type and a length that is missing, not allowed or 0; True without a problem."""
    base = types.base(item.type)
    if base is None:
        problems.report(item.type.place, f"unknown type '{item.type}'")
    elif base in (STRING, BUFFER) and item.length is None:
        problems.report(item.name.place, f"{item.type} '{item.name}' has no length")
    elif base not in (STRING, BUFFER, STRUCT) and item.length is not None:
        problems.report(item.length.place, f"'{item.name}' has a length, but {item.type} takes none")
    elif item.length == 0:
        problems.report(item.length.place, f"'{item.name}' has length 0")
    else:
        return True
    return False


def check_type(types, variable, problems):
    """Reports problems of type, length and bounds; True if the variable's size is known."""
    sound = check_length(types, variable, problems)
    base = types.base(variable.type)
    bounds = [bound for bound in (variable.min, variable.max) if bound is not None]
    if base is None or not bounds:
        return sound
    if base not in (INT, FLOAT):
        problems.report(bounds[0].place, f"'{variable.name}' has bounds, but {variable.type} takes none")
        return sound
    parse = parse_int if base == INT else parse_float
    values = [parse(bound, problems) for bound in bounds]
    if len(values) == 2 and None not in values and values[0] > values[1]:
        problems.report(variable.min.place, f"min {variable.min} of '{variable.name}' is above max {variable.max}")
    return sound


def parse_int(bound, problems):
    if not re.fullmatch(r"-?(0|[1-9][0-9]*)", bound):
        problems.report(bound.place, f"'{bound}' is not an int")
        return None
    if not -2147483648 <= int(bound) <= 2147483647:
        problems.report(bound.place, f"{bound} does not fit 32 bits")
        return None
    return int(bound)


def parse_float(bound, problems):
    if not re.fullmatch(r"[-+]?[0-9]+(\.[0-9]+)?([eE][-+]?[0-9]+)?", bound):
        problems.report(bound.place, f"'{bound}' is not a float")
        return None
    value = float(bound)
    lost = value == 0 and re.match(r"[^eE]*[1-9]", bound)
    if abs(value) > LARGEST_FLOAT or 0 < abs(value) < SMALLEST_FLOAT or lost:
        problems.report(bound.place, f"{bound} does not fit a 32-bit float")
        return None
    return value


def check_memory_table(model, problems):
    for place, memory in enumerate(model.memories):
        if memory.index != place:
            reason = f"memory index is {memory.index}, expected {place}"
            problems.report(memory.index.place, reason)
        if memory.count != len(memory.variables):
            reason = f"'{memory.name}' counts {memory.count} variables, but has {len(memory.variables)}"
            problems.report(memory.count.place, reason)
        if not memory.variables:
            problems.report(memory.name.place, f"'{memory.name}' has no variables")


def check_locations(types, memory, variables, problems):
    """REQUIRES: variables of known size."""
    for variable in variables:
        alignment, size = types.alignment(variable.type), types.size(variable)
        if variable.at % alignment:
            reason = (f"'{variable.name}' at {variable.at} is not aligned: "
                      f"{variable.type} needs a multiple of {alignment}")
            problems.report(variable.at.place, reason)
        if variable.at + size > memory.size:
            reason = f"'{variable.name}' ends at {variable.at + size}, '{memory.name}' at {memory.size}"
            problems.report(variable.at.place, reason)
        if memory.size % alignment:
            reason = f"size {memory.size} is not a multiple of {alignment}, which '{variable.name}' needs"
            problems.report(memory.size.place, reason)
    check_overlaps(types, variables, problems)


def check_overlaps(types, variables, problems):
    last = None
    for variable in sorted(variables, key=lambda variable: variable.at):
        if last is not None and variable.at < last.at + types.size(last):
            reason = (f"'{variable.name}' at {variable.at} overlaps '{last.name}', "
                      f"which ends at {last.at + types.size(last)} ({last.name.place})")
            problems.report(variable.at.place, reason)
        if last is None or variable.at + types.size(variable) > last.at + types.size(last):
            last = variable


def check_events(model, problems):
    """Ids are used once each, without a gap; no control event has another event's name."""
    variables = [variable for _, variable in model.variables()] + model.device
    changes = {event_name(variable.name) for variable in variables}
    refuse_duplicates("event", [event.name for event in model.control], problems)
    for event in model.control:
        if event.name in changes:
            problems.report(event.name.place, f"event '{event.name}' is a variable's")
    check_event_ids(model, [row.event for row in model.control + variables], problems)


def check_event_ids(model, events, problems):
    given = {}
    for event in events:
        other = given.setdefault(int(event), event)
        if other is not event:
            problems.report(event.place, f"event {event} is already used at {other.place}")
        elif event >= model.event_count:
            problems.report(event.place, f"event {event} is outside of 0 to {model.event_count - 1}")
    missing = [event for event in range(model.event_count) if event not in given]
    for event in missing[:10]:
        problems.report(model.event_count.place, f"event {event} is missing")
    if len(missing) > 10:
        problems.report(model.event_count.place, f"{len(missing) - 10} more events are missing")
