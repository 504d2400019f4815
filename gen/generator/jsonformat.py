"""Formats JSON for programs so that people can still search and compare it: one line per entry."""

import json


def format_json(value, depth):
    """The JSON text of `value`: a line per member of an object down to `depth` levels, one line for all below."""
    if depth == 0 or not isinstance(value, dict) or not value:
        return json.dumps(value)
    members = (f"{json.dumps(name)}: {format_json(member, depth - 1)}" for name, member in value.items())
    return "{\n" + ",\n".join(members) + "\n}"
