"""Reads YAML files as trees whose scalars are texts, and reports what has the wrong form."""

import re

import yaml

from problems import Number, Place, Text

MAX_NUMBER = 2147483647


class Source:
    """The forms of a model file. Reports what has another form."""

    def __init__(self, problems):
        self._problems = problems

    def document(self, path):
        """The root node of the file."""
        try:
            with open(path, encoding="utf-8") as file:
                root = yaml.compose(file.read(), Loader=yaml.SafeLoader)
        except yaml.MarkedYAMLError as error:
            mark = error.problem_mark or error.context_mark
            return self._refuse(Place(str(path), mark.line + 1), f"not YAML: {error.problem}")
        except OSError as error:
            return self._refuse(Place(str(path), 1), f"cannot be read: {error.strerror}")
        except (UnicodeDecodeError, yaml.YAMLError):
            return self._refuse(Place(str(path), 1), "not YAML: not UTF-8 text")
        if root is None:
            return self._refuse(Place(str(path), 1), "the file is empty")
        return root

    def mapping(self, file, node, required, optional=()):
        """The mapping's nodes by key. Reports missing, unknown and repeated keys and then returns the valid part."""
        place, fields = place_of(file, node), {}
        if not isinstance(node, yaml.MappingNode):
            self._refuse(place, "a mapping is expected here")
            return fields
        for key, value in node.value:
            name = key.value if isinstance(key, yaml.ScalarNode) else "?"
            if name not in (*required, *optional):
                self._refuse(place_of(file, key), f"unknown key '{name}'")
            elif name in fields:
                self._refuse(place_of(file, key), f"key '{name}' is repeated")
            fields.setdefault(name, value)
        for name in required:
            if name not in fields:
                self._refuse(place, f"key '{name}' is missing")
        return fields

    def sequence(self, file, node):
        """The list's nodes; empty for None and for another kind of node."""
        if node is None:
            return []
        if not isinstance(node, yaml.SequenceNode):
            self._refuse(place_of(file, node), "a list is expected here")
            return []
        return node.value

    def text(self, file, node):
        """The scalar as written; None for None."""
        if node is None:
            return None
        place = place_of(file, node)
        if not isinstance(node, yaml.ScalarNode):
            return self._refuse(place, "a text is expected here")
        return Text(node.value, place)

    def number(self, file, node):
        """A whole number from 0 to MAX_NUMBER in plain decimal digits."""
        text = self.text(file, node)
        if text is None:
            return None
        if not re.fullmatch(r"0|[1-9][0-9]*", text):
            return self._refuse(text.place, f"'{text}' is not a whole number")
        if int(text) > MAX_NUMBER:
            return self._refuse(text.place, f"{text} is above {MAX_NUMBER}")
        return Number(int(text), text.place)

    def _refuse(self, place, reason):
        self._problems.report(place, reason)


def place_of(file, node):
    return Place(file, node.start_mark.line + 1)
