"""Places in the model's files, and the collection of problems."""

from dataclasses import dataclass


@dataclass(frozen=True, order=True)
class Place:
    """A line of a model file; the first line is 1."""

    file: str
    line: int

    def __str__(self):
        return f"{self.file}:{self.line}"


class Text(str):
    """A scalar as written in the model, and its place."""

    def __new__(cls, value, place):
        text = super().__new__(cls, value)
        text.place = place
        return text


class Number(int):
    """A whole number of the model, and its place."""

    def __new__(cls, value, place):
        number = super().__new__(cls, value)
        number.place = place
        return number


class Problems:
    """Collects all problems of a run."""

    def __init__(self):
        self._found = []

    def report(self, place, reason):
        self._found.append((place, reason))

    def __bool__(self):
        return bool(self._found)

    def lines(self):
        """One "file:line: reason" per problem, by file and line; equal ones once."""
        return [f"{place}: {reason}" for place, reason in sorted(dict.fromkeys(self._found))]
