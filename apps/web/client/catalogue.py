#!/usr/bin/env python3
"""Writes what the console knows beside the values themselves, from the catalogue's model.

    catalogue.py --generator gen/generator --model gen/model --out catalogue.json

The service's answers lack the capacity of texts, which texts are buffers, and the types of structure members.
"""

import argparse
import json
import sys
from pathlib import Path


def arguments():
    parser = argparse.ArgumentParser(description="Writes the console's catalogue.")
    parser.add_argument("--generator", required=True, help="the folder of the generator, whose loader reads the model")
    parser.add_argument("--model", required=True, help="the model's folder")
    parser.add_argument("--out", required=True, help="the file to write")
    return parser.parse_args()


def form(item):
    """Type, length and description of a variable or member, as far as the model has them."""
    fields = {"type": item.type, "length": item.length, "about": getattr(item, "about", None)}
    return {key: value for key, value in fields.items() if value is not None}


def catalogue(model):
    plain = ("int", "float", "bool")
    used = {member.type for structure in model.structures for member in structure.members}
    return {
        "variables": {f"{memory.name}.{variable.name}": form(variable) for memory, variable in model.variables()
                      if variable.type not in plain or variable.about},
        "structures": {structure.name: {member.name: form(member) for member in structure.members}
                       for structure in model.structures},
        "enumerations": {enumeration.name: enumeration.entries for enumeration in model.enumerations
                         if enumeration.name in used},
    }


def main():
    options = arguments()
    sys.path.insert(0, options.generator)
    from ledger import layout_hash  # pylint: disable=import-outside-toplevel
    from load import Loader  # pylint: disable=import-outside-toplevel
    from problems import Problems  # pylint: disable=import-outside-toplevel

    problems = Problems()
    model = Loader(problems).model(options.model)
    if problems:
        sys.exit("\n".join(problems.lines()))
    content = {"hash": layout_hash(model), **catalogue(model)}  # the hash as in memories.h
    Path(options.out).write_text(json.dumps(content, separators=(",", ":")), encoding="utf-8")


main()
