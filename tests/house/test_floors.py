"""The folder of a file is its room, and the room has a floor: includes go to the same floor or a lower one."""

import re
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
SERVICE = "apps/web/service/"

# From the bottom. A folder stands for its files without those of its subfolders, "folder/name." for one file.
FLOORS = [
    ["apps/common/diagnostics/", "apps/common/files/"],
    ["apps/common/event/", "apps/common/sharedmemory/"],
    ["gen/code/", "apps/common/introspection/", "apps/common/introspection_enum/"],
    [SERVICE + "fcgi.", SERVICE + "request.", SERVICE + "requeststream.", SERVICE + "fastcgi/", "apps/gui/common/",
     "apps/libs/lhwinfo/"],
    [SERVICE + "variables/", SERVICE + "logging.", SERVICE + "log/", SERVICE + "screencapture.",
     SERVICE + "qorapp.", SERVICE + "app/", "apps/libs/lhwinfo/tool/"],
    [SERVICE + "requesthandler."],
    [SERVICE + "main."],
]


def floor(path):
    folder, name = path.rsplit("/", 1)
    for number, rooms in enumerate(FLOORS):
        if f"{folder}/" in rooms or f"{folder}/{name.split('.')[0]}." in rooms:
            return number
    return None


def sources():
    """(path, included path) of every include of the house."""
    for folder in ("apps", "gen/code"):
        for file in (REPOSITORY / folder).rglob("*"):
            if file.suffix in (".h", ".cpp"):
                included = re.findall(r'^#include "([^"]+)"', file.read_text(), re.MULTILINE)
                yield file.relative_to(REPOSITORY).as_posix(), included


def test_every_file_is_in_a_room():
    assert [path for path, _ in sources() if floor(path) is None] == []


def test_includes_go_downwards():
    wrong = [f"{path} includes {name}" for path, included in sources() for name in included
             if floor(name) is None or floor(name) > floor(path)]
    assert wrong == []


def test_helpers_do_not_include_the_file_they_serve():
    doors = {"fastcgi": ("fcgi.h", "request.h"), "log": ("logging.h",), "app": ("qorapp.h",)}
    wrong = [f"{path} includes {name}" for path, included in sources() for name in included
             for room, files in doors.items() if path.startswith(f"{SERVICE}{room}/")
             if name in [SERVICE + file for file in files]]
    assert wrong == []


def test_includes_have_no_cycle():
    graph = dict(sources())
    path = []

    def visit(file):
        assert file not in path, f"cycle: {' -> '.join(path[path.index(file):] + [file])}"
        path.append(file)
        for name in graph.get(file, []):
            visit(name)
        path.pop()

    for file in list(graph):
        visit(file)
