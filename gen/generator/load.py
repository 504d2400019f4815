"""Reads the model's files into a Model."""

from pathlib import Path

from model import Enumeration, Event, Member, Memory, Model, Structure, Variable
from problems import Place
from source import Source

NUMBERS = ("event", "at", "length")


class Loader:
    """Reads the files one by one. Reports what has the wrong form; the model is then incomplete."""

    def __init__(self, problems):
        self._problems = problems
        self._source = Source(problems)
        self._file = ""

    def model(self, folder):
        folder = Path(folder)
        memories = [self._memory(path) for path in sorted((folder / "memories").glob("*.yaml"))]
        if not memories:
            self._problems.report(Place(str(folder / "memories"), 1), "the folder has no memory")
        enumerations = self._list(folder / "enumerations.yaml", "enumerations", self._enumeration)
        structures = self._list(folder / "structures.yaml", "structures", self._structure)
        events = self._root(folder / "events.yaml", ("count", "control", "device"))
        return Model(
            enumerations=enumerations,
            structures=structures,
            memories=sorted(memories, key=lambda memory: memory.index or 0),
            event_count=self._source.number(self._file, events.get("count")),
            control=self._rows(events.get("control"), self._event),
            device=self._rows(events.get("device"), self._event),
        )

    def _root(self, path, required):
        self._file = str(path)
        node = self._source.document(path)
        return {} if node is None else self._source.mapping(self._file, node, required)

    def _list(self, path, key, read):
        return self._rows(self._root(path, (key,)).get(key), read)

    def _rows(self, node, read):
        return [read(row) for row in self._source.sequence(self._file, node)]

    def _texts(self, node):
        return self._rows(node, lambda entry: self._source.text(self._file, entry))

    def _fields(self, node, required, optional=()):
        """The row's scalars by key, None for a key that is absent."""
        nodes = self._source.mapping(self._file, node, required, optional)
        read = {True: self._source.number, False: self._source.text}
        return {key: read[key in NUMBERS](self._file, nodes.get(key)) for key in (*required, *optional)}

    def _memory(self, path):
        nodes = self._root(path, ("memory", "index", "size", "count", "variables"))
        name = self._source.text(self._file, nodes.get("memory"))
        index, size, count = (self._source.number(self._file, nodes.get(key)) for key in ("index", "size", "count"))
        if name is not None and name != path.stem:
            self._problems.report(name.place, f"memory '{name}' is in the file of '{path.stem}'")
        return Memory(name, index, size, count, self._rows(nodes.get("variables"), self._variable))

    def _variable(self, node):
        return Variable(**self._fields(node, ("event", "at", "name", "type"), ("length", "min", "max", "about")))

    def _enumeration(self, node):
        nodes = self._source.mapping(self._file, node, ("name", "entries"), ("declared",))
        name, declared = (self._source.text(self._file, nodes.get(key)) for key in ("name", "declared"))
        return Enumeration(name, self._texts(nodes.get("entries")), declared)

    def _structure(self, node):
        nodes = self._source.mapping(self._file, node, ("name", "members"))
        name = self._source.text(self._file, nodes.get("name"))
        return Structure(name, self._rows(nodes.get("members"), self._member))

    def _member(self, node):
        return Member(**self._fields(node, ("name", "type"), ("length",)))

    def _event(self, node):
        return Event(**self._fields(node, ("event", "name")))
