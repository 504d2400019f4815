"""A file's folder determines its floor; includes and links go to the same floor or a lower one, without cycles."""

import re
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
SERVICE = "apps/web/service/"

# From the bottom. A folder stands for its files without those of its subfolders, "folder/name." for one module.
FLOORS = [
    ["apps/common/diagnostics/", "apps/common/files/"],
    ["apps/common/event/", "apps/common/sharedmemory/"],
    ["gen/code/", "apps/common/introspection/", "apps/common/introspection_enum/", "apps/common/fastcgi/"],
    ["apps/common/values/", "apps/gui/common/", "apps/libs/lhwinfo/", SERVICE + "fcgi.", SERVICE + "request.",
     SERVICE + "requeststream.", SERVICE + "fastcgi/", "apps/variables/recording/"],
    [SERVICE + "variables/", SERVICE + "logging.", SERVICE + "log/", SERVICE + "screencapture.",
     SERVICE + "qorapp.", SERVICE + "app/", "apps/libs/lhwinfo/tool/", "apps/variables/", "apps/live/"],
    [SERVICE + "requesthandler."],
    [SERVICE + "main."],
]
HELPERS_OF = {"fastcgi": ("fcgi", "request"), "log": ("logging",), "app": ("qorapp",)}


def floor(path):
    folder, name = path.rsplit("/", 1)
    for number, rooms in enumerate(FLOORS):
        if f"{folder}/" in rooms or f"{folder}/{name.split('.')[0]}." in rooms:
            return number
    return None


def module(path):
    """A header and its source are one module."""
    return path.rsplit(".", 1)[0]


def sources():
    for folder in ("apps", "gen/code"):
        files = (file for file in (REPOSITORY / folder).rglob("*") if file.suffix in (".h", ".cpp"))
        yield from ((file.relative_to(REPOSITORY).as_posix(), file.read_text()) for file in files)


def includes():
    """(including path, included path) of every include of the house."""
    for path, text in sources():
        yield from ((path, name) for name in re.findall(r'^#include "([^"]+)"', text, re.MULTILINE))


def links():
    """(target, linked target) of every link of the house."""
    for folder in ("apps", "gen"):
        for file in (REPOSITORY / folder).rglob("CMakeLists.txt"):
            for names in re.findall(r"target_link_libraries\(([^)]+)\)", file.read_text()):
                target, *linked = names.split()
                yield from ((target, name) for name in linked)


def cycles(edges):
    """The nodes from which a path leads back to them."""
    graph = {}
    for source, target in edges:
        if source != target:
            graph.setdefault(source, set()).add(target)
    while leaves := [node for node, targets in graph.items() if not targets & graph.keys()]:
        for leaf in leaves:
            del graph[leaf]
    return graph


def test_every_file_has_a_floor():
    assert [path for path, _ in sources() if floor(path) is None] == []


def test_includes_go_downwards():
    assert [edge for edge in includes() if floor(edge[1]) is None or floor(edge[1]) > floor(edge[0])] == []


def test_helpers_do_not_include_the_module_they_serve():
    doors = {f"{SERVICE}{room}/": [SERVICE + name for name in names] for room, names in HELPERS_OF.items()}
    assert [(path, name) for path, name in includes() for room, modules in doors.items()
            if path.startswith(room) and module(name) in modules] == []


def test_modules_and_libraries_have_no_cycle():
    assert list(includes()) and list(links())
    assert not cycles((module(path), module(name)) for path, name in includes())
    assert not cycles(links())


def test_versions_agree():
    files = {"CMakeLists.txt": r"project\(webservice VERSION (\S+)", "CHANGELOG.md": r"^## \[(\d\S*)\]",
             "packaging/debian/changelog": r"^webservice \((\S+)\)"}
    versions = [re.search(form, (REPOSITORY / name).read_text(), re.MULTILINE)[1] for name, form in files.items()]
    assert len(set(versions)) == 1, versions
