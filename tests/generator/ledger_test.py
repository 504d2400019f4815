"""The ledger refuses every single change of the real model that gives a published name another meaning."""

import re
import sys
from dataclasses import replace
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "gen/generator"))

from ledger import TABLES, compare, read_table  # noqa: E402
from load import Loader  # noqa: E402
from model import Member  # noqa: E402
from problems import Number, Problems, Text  # noqa: E402

VARIABLES, EVENTS, MEMORIES, ENUMERATIONS, STRUCTURES = TABLES
MODEL = Loader(Problems()).model(TOP / "gen/model")
LEDGER = {table: read_table(table, TOP / "gen/model", Problems()) for table in TABLES}
NUMBERS = ("event", "at", "length", "index", "size")
TYPES = ("int", "float", "bool", "MotorSide", "buffer")
REFUSAL = re.compile(r"[^ :]+\.(yaml|csv):\d+: '[\w.]+' (is no longer in the model, but published rows stay"
                     r"|was published with \w+ '\w*', not '-?\w*' \([^ :]+\.csv:\d+\))")


def renamed(item, end):
    name = getattr(item, "name", item)
    name = Text(name + end, name.place)
    return name if isinstance(item, Text) else replace(item, name=name)


def with_number(item, field, value):
    return replace(item, **{field: Number(value, getattr(item, field).place)})


def others(item):
    """The item renamed, moved, resized and retyped, one change at a time."""
    numbers = [field for field in NUMBERS if isinstance(getattr(item, field, None), int)]
    types = [name for name in TYPES if hasattr(item, "type") and (item.length or name != "buffer")]
    return [renamed(item, "X"),
            *(with_number(item, field, getattr(item, field) + step) for field in numbers for step in (-1, 1)),
            *(replace(item, type=Text(name, item.type.place)) for name in types if name != item.type)]


def changes(items, inserted):
    """Every change of the list: other and deleted items, and neighbours with exchanged numbers. If the position has a
    meaning, neighbours are exchanged themselves, and `inserted` is put before each item."""
    for at, item in enumerate(items):
        before, behind = items[:at], items[at + 1:]
        yield from (before + [other] + behind for other in others(item))
        if len(items) > 1:
            yield before + behind
        if inserted:
            yield before + [inserted, item] + behind
        for following in behind[:1]:
            if inserted:
                yield before + [following, item] + behind[1:]
            for field in ("event", "at", "index"):
                one, other = getattr(item, field, None), getattr(following, field, None)
                if isinstance(one, int):
                    yield before + [with_number(item, field, other), with_number(following, field, one)] + behind[1:]


def lists():
    """Every list of the model: its table, the items, an item to insert if the position has a meaning, and a function
    that makes the model of a list of items. The models are reduced to the rows of the items, for speed."""
    def part(**rows):
        return replace(MODEL, **{"memories": [], "control": [], "device": [], **rows})

    yield ENUMERATIONS, MODEL.enumerations, None, lambda rows: replace(MODEL, enumerations=rows)
    for item in MODEL.enumerations:
        yield (ENUMERATIONS, item.entries, renamed(item.entries[0], "Inserted"),
               lambda rows, item=item: replace(MODEL, enumerations=[replace(item, entries=rows)]))
    yield STRUCTURES, MODEL.structures, None, lambda rows: replace(MODEL, structures=rows)
    for item in MODEL.structures:
        yield (STRUCTURES, item.members, Member(renamed(item.name, "Inserted"), Text("int", item.name.place), None),
               lambda rows, item=item: replace(MODEL, structures=[replace(item, members=rows)]))
    for item in MODEL.memories:
        yield VARIABLES, item.variables, None, lambda rows, item=item: part(memories=[replace(item, variables=rows)])
    yield VARIABLES, MODEL.device, None, lambda rows: part(device=rows)
    yield EVENTS, MODEL.control, None, lambda rows: part(control=rows)
    yield MEMORIES, MODEL.memories, None, lambda rows: part(memories=rows)


def reported(table, published, model):
    problems = Problems()
    compare(table, published, model, problems)
    return problems.lines()


def test_changes_of_meaning_are_refused_and_additions_accepted():
    count, missed = 0, []
    for table, items, inserted, model in lists():
        keys = {table.key(row) for row in table.model_rows(model(items))}
        published = [(place, row) for place, row in LEDGER[table] if table.key(row) in keys]
        assert reported(table, published, model(items + [inserted or renamed(items[-1], "Added")])) == []
        for changed in changes(items, inserted):
            count += 1
            lines = reported(table, published, model(changed))
            if not lines or not all(map(REFUSAL.fullmatch, lines)):
                missed.append((table.file, changed, lines))
    assert not missed
    assert count > 14000
