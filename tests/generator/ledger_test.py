"""The ledger refuses every single change of the real model that gives a published name another meaning."""

import sys
from dataclasses import replace
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "gen/generator"))

from ledger import TABLES, compare, read_table  # noqa: E402
from load import Loader  # noqa: E402
from model import Member  # noqa: E402
from problems import Number, Place, Problems, Text  # noqa: E402

VARIABLES, EVENTS, MEMORIES, ENUMERATIONS, STRUCTURES = TABLES
MODEL = Loader(Problems()).model(TOP / "gen/model")
LEDGER = {table: read_table(table, TOP / "gen/model", Problems()) for table in TABLES}
PLACE = Place("changed", 1)
NUMBERS = ("event", "at", "length", "index", "size")
TYPES = ("int", "float", "bool", "MotorSide", "buffer")


def numbers(item):
    return [field for field in NUMBERS if isinstance(getattr(item, field, None), int)]


def with_number(item, field, value):
    return replace(item, **{field: Number(value, PLACE)})


def others(item):
    """The item renamed, moved, resized and retyped, one change at a time."""
    if isinstance(item, Text):
        return [Text(item + "X", PLACE)]
    types = [name for name in TYPES if hasattr(item, "type") and (item.length or name != "buffer")]
    return [replace(item, name=Text(item.name + "X", PLACE)),
            *(with_number(item, field, getattr(item, field) + step) for field in numbers(item) for step in (-1, 1)),
            *(replace(item, type=Text(name, PLACE)) for name in types if name != item.type)]


def changes(items, fresh):
    """Every change of the list: other and deleted items, neighbours with exchanged numbers. If the position has a
    meaning, neighbours are exchanged themselves, and `fresh` is inserted before each item."""
    for at, item in enumerate(items):
        before, behind = items[:at], items[at + 1:]
        yield from (before + [other] + behind for other in others(item))
        if len(items) > 1:
            yield before + behind
        if fresh:
            yield before + [fresh, item] + behind
        for following in behind[:1]:
            if fresh:
                yield before + [following, item] + behind[1:]
            for field in ("event", "at", "index"):
                if field in numbers(item):
                    values = getattr(item, field), getattr(following, field)
                    yield (before + [with_number(item, field, values[1]), with_number(following, field, values[0])]
                           + behind[1:])


def lists():
    """Every list of the model: its table, the items, a fresh item if the position has a meaning, and a function that
    makes the model of a list of items. The models are reduced to the rows of the items, for speed."""
    def part(**rows):
        return replace(MODEL, **{"memories": [], "control": [], "device": [], **rows})

    member = Member(Text("Fresh", PLACE), Text("int", PLACE), None)
    yield ENUMERATIONS, MODEL.enumerations, None, lambda rows: replace(MODEL, enumerations=rows)
    for item in MODEL.enumerations:
        yield (ENUMERATIONS, item.entries, member.name,
               lambda rows, item=item: replace(MODEL, enumerations=[replace(item, entries=rows)]))
    yield STRUCTURES, MODEL.structures, None, lambda rows: replace(MODEL, structures=rows)
    for item in MODEL.structures:
        yield (STRUCTURES, item.members, member,
               lambda rows, item=item: replace(MODEL, structures=[replace(item, members=rows)]))
    for item in MODEL.memories:
        yield VARIABLES, item.variables, None, lambda rows, item=item: part(memories=[replace(item, variables=rows)])
    yield VARIABLES, MODEL.device, None, lambda rows: part(device=rows)
    yield EVENTS, MODEL.control, None, lambda rows: part(control=rows)
    yield MEMORIES, MODEL.memories, None, lambda rows: part(memories=rows)


def is_refused(table, published, model):
    problems = Problems()
    compare(table, published, model, problems)
    return bool(problems)


def test_every_change_of_meaning_is_refused():
    count, missed = 0, []
    for table, items, fresh, model in lists():
        keys = {table.key(row) for row in table.model_rows(model(items))}
        published = [(place, row) for place, row in LEDGER[table] if table.key(row) in keys]
        assert not is_refused(table, published, model(items + [fresh] if fresh else items))
        for changed in changes(items, fresh):
            count += 1
            if not is_refused(table, published, model(changed)):
                missed.append((table.file, changed))
    assert not missed
    assert count > 10000
