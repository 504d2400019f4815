"""JSON for tools that a person can still search and compare: a line for each entry, and not for each of its words."""

import json


def json_text(value, depth):
    """The JSON text of `value`. Objects have a line for each member down to `depth` levels; below, a line holds all."""
    if depth == 0 or not isinstance(value, dict) or not value:
        return json.dumps(value)
    members = (f"{json.dumps(name)}: {json_text(member, depth - 1)}" for name, member in value.items())
    return "{\n" + ",\n".join(members) + "\n}"
