"""The ledger: what other processes were built with. A folder of tables, whose rows never change:

    variables.csv      name,event,memory,location,type,size      RadioPower,206,MemPersistent,40,bool,1
                                                                 CanBusLoad,95,,,,   (outside these memories)
    events.csv         name,event                                SubscribeAll,3
    memories.csv       memory,index,size                         MemApp,17,68
    enumerations.csv   enumeration,entry,value                   MotorStatus,Present,1
    structures.csv     structure,member,offset,type,size         LensFile,LensFileValid,32,bool,1
"""

import hashlib
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

from layout import Types
from problems import Place


def variable_rows(model):
    types = Types(model)
    rows = [(event.name, event.event, "", "", "", "") for event in model.device]
    for memory, variable in model.variables():
        rows.append((variable.name, variable.event, memory.name, variable.at, variable.type, types.size(variable)))
    return sorted(rows, key=lambda row: row[1])


def event_rows(model):
    return [(event.name, event.event) for event in model.control]


def memory_rows(model):
    return [(memory.name, memory.index, memory.size) for memory in model.memories]


def entry_rows(model):
    return [(enumeration.name, entry, value) for enumeration in model.enumerations
            for value, entry in enumerate(enumeration.entries)]


def member_rows(model):
    types = Types(model)
    return [(structure.name, field.item.name, field.offset, field.item.type, field.size)
            for structure in model.structures for field in types.members(structure)]


@dataclass(frozen=True)
class Table:
    """A kind of rows. The last of the `keys` columns has the place of a model's row."""

    file: str
    header: str
    keys: int  # the number of columns that name a row
    model_rows: Callable  # the rows of a model

    @property
    def columns(self):
        return self.header.split(",")

    def key(self, row):
        return ".".join(row[:self.keys])

    def path(self, folder):
        return Path(folder) / "ledger" / self.file


TABLES = (
    Table("variables.csv", "name,event,memory,location,type,size", 1, variable_rows),
    Table("events.csv", "name,event", 1, event_rows),
    Table("memories.csv", "memory,index,size", 1, memory_rows),
    Table("enumerations.csv", "enumeration,entry,value", 2, entry_rows),
    Table("structures.csv", "structure,member,offset,type,size", 2, member_rows),
)


def layout_hash(model):
    """16 hexadecimal digits, which are equal for models with the same rows in all tables."""
    rows = [f"{table.header}:" + ",".join(map(str, row)) for table in TABLES for row in table.model_rows(model)]
    return hashlib.sha256("\n".join(sorted(rows)).encode()).hexdigest()[:16]


def read_table(table, folder, problems):
    """The table's (place, columns); none without its file."""
    path = table.path(folder)
    if not path.exists():
        return []
    lines = path.read_text(encoding="utf-8", errors="replace").splitlines() or [""]
    if lines[0] != table.header:
        problems.report(Place(str(path), 1), f"the first line is not '{table.header}'")
    rows = []
    for number, line in enumerate(lines[1:], 2):
        row = tuple(line.split(","))
        if len(row) != len(table.columns):
            problems.report(Place(str(path), number), f"{len(table.columns)} columns are expected")
        else:
            rows.append((Place(str(path), number), row))
    return rows


def compare(table, published, model, problems):
    """Reports changes of the published rows, and returns the model's new rows as (place, columns)."""
    rows = {table.key(row): (row[table.keys - 1].place, tuple(map(str, row))) for row in table.model_rows(model)}
    known = set()
    for place, given in published:
        key = table.key(given)
        if key in known:
            problems.report(place, f"'{key}' is listed twice")
        known.add(key)
        if key not in rows:
            problems.report(place, f"'{key}' is no longer in the model, but published rows stay")
        elif given != rows[key][1]:
            report_differences(table, place, given, *rows[key], problems)
    return [row for key, row in rows.items() if key not in known]


def report_differences(table, ledger_place, given, place, row, problems):
    for column, old, new in zip(table.columns, given, row):
        if old != new:
            reason = f"'{table.key(row)}' was published with {column} '{old}', not '{new}' ({ledger_place})"
            problems.report(place, reason)


def check_ledger(model, folder, problems):
    """Reports changes of the ledger's rows, and returns the model's new rows by table."""
    return {table: compare(table, read_table(table, folder, problems), model, problems) for table in TABLES}


def check_complete(model, folder, problems):
    """As check_ledger; a new row is also a problem."""
    command = f"generate.py --model {folder} --extend-ledger"
    for table, fresh in check_ledger(model, folder, problems).items():
        for place, row in fresh:
            problems.report(place, f"'{table.key(row)}' is not in the ledger; add it with: {command}")


def extend_ledger(model, folder, problems):
    """Appends the new rows and returns their number. Writes nothing if there are problems."""
    new_rows = check_ledger(model, folder, problems)
    if problems:
        return 0
    for table, fresh in new_rows.items():
        append(table.path(folder), table.header, fresh)
    return sum(map(len, new_rows.values()))


def append(path, header, fresh):
    text = path.read_text(encoding="utf-8") if path.exists() else header
    lines = text.splitlines() + [",".join(row) for _, row in fresh]
    path.parent.mkdir(exist_ok=True)
    path.write_text("".join(line + "\n" for line in lines), encoding="utf-8")
