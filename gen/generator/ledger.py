"""The ledger of published event ids and locations: one line per event of a variable, which never changes.

    event,name,memory,location,type,size
    206,RadioPower,MemPersistent,40,bool,1
    95,CanBusLoad,,,,                          a device variable outside these memories
"""

from pathlib import Path

from layout import Types
from problems import Place

HEADER = "event,name,memory,location,type,size"
COLUMNS = HEADER.split(",")


def ledger_path(folder):
    return Path(folder) / "ledger.csv"


def model_rows(model):
    """The model's rows: (place, columns as text) by event id."""
    types = Types(model)
    rows = [(event.name.place, (str(event.event), str(event.name), "", "", "", "")) for event in model.device]
    for memory, variable in model.variables():
        row = (variable.event, variable.name, memory.name, variable.at, variable.type, types.size(variable))
        rows.append((variable.name.place, tuple(str(column) for column in row)))
    return sorted(rows, key=lambda row: int(row[1][0]))


def read_ledger(path, problems):
    """The ledger's (place, columns); None without a ledger."""
    if not path.exists():
        return None
    lines = path.read_text(encoding="utf-8", errors="replace").splitlines() or [""]
    if lines[0] != HEADER:
        problems.report(Place(str(path), 1), f"the first line is not '{HEADER}'")
    rows = []
    for number, line in enumerate(lines[1:], 2):
        row = tuple(line.split(","))
        if len(row) != len(COLUMNS):
            problems.report(Place(str(path), number), f"{len(COLUMNS)} columns are expected")
        else:
            rows.append((Place(str(path), number), row))
    return rows


def check_ledger(model, folder, problems):
    """Reports changes of the ledger's rows, and returns the model's new rows."""
    rows = model_rows(model)
    ledger = read_ledger(ledger_path(folder), problems) or []
    by_name = {row[1]: (place, row) for place, row in rows}
    known = set()
    for place, given in ledger:
        if given[1] in known:
            problems.report(place, f"'{given[1]}' is listed twice")
        known.add(given[1])
        if given[1] not in by_name:
            problems.report(place, f"'{given[1]}' is no longer in the model, but published rows stay")
        else:
            check_row(place, given, *by_name[given[1]], problems)
    return [(place, row) for place, row in rows if row[1] not in known]


def check_row(ledger_place, given, place, row, problems):
    for column, old, new in zip(COLUMNS, given, row):
        if old != new:
            reason = f"'{row[1]}' was published with {column} '{old}', not '{new}' ({ledger_place})"
            problems.report(place, reason)


def check_complete(model, folder, problems):
    """As check_ledger; a new row is also a problem."""
    for place, row in check_ledger(model, folder, problems):
        command = f"generate.py --model {folder} --extend-ledger"
        problems.report(place, f"'{row[1]}' is not in the ledger; add it with: {command}")


def extend_ledger(model, folder, problems):
    """Appends the new rows in order of the event ids and returns their number. Writes nothing if there are
    problems."""
    fresh = check_ledger(model, folder, problems)
    if problems:
        return 0
    path = ledger_path(folder)
    text = path.read_text(encoding="utf-8") if path.exists() else HEADER
    lines = text.splitlines() + [",".join(row) for _, row in fresh]
    path.write_text("".join(line + "\n" for line in lines), encoding="utf-8")
    return len(fresh)
