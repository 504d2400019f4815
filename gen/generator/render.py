"""Fills the templates."""

from pathlib import Path

import jinja2

from clients import ClientTypes, about
from forms import Forms, cell, literal, words
from layout import Types
from ledger import layout_hash
from model import event_name
from openapi import openapi_text
from openapi2 import openapi2_text
from schema import schema_text

BANNER = (
    "Generated from gen/model; do not edit. Edit the model, then build, or run",
    "    python3 gen/generator/generate.py --model gen/model --out <folder>",
)
CATALOGUE_VERSION = 1

# Each has a template with the file's name and ".j2".
FILES = (
    "gen/code/introspection_gen.h",
    "gen/code/introspection_gen.cpp",
    "gen/code/descriptions_gen.h",
    "gen/code/descriptions_gen.cpp",
    "gen/code/enumerations_gen.h",
    "gen/code/enumerations_gen.cpp",
    "gen/code/structures_gen.h",
    "gen/code/structures_gen.cpp",
    "apps/common/event/events_gen.h",
    "apps/common/event/events_gen.cpp",
    "gen/code/memories.h",
    "docs/catalogue.md",
    "docs/api-variables.md",
    "clients/typescript/variables.ts",
    "clients/python/controller/variables.py",
)


def render(model):
    """The text of every generated file by its path in the output folder."""
    environment = environment_of(model)
    files = {name: environment.get_template(Path(name).name + ".j2").render() for name in FILES}
    comment = " ".join(" ".join(BANNER).split())
    files["docs/catalogue.schema.json"] = schema_text(model, comment)
    files["docs/openapi.json"] = openapi_text(model, comment)
    files["docs/openapi-v2.json"] = openapi2_text(model, comment)
    return files


def environment_of(model):
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(Path(__file__).parent / "templates"),
        undefined=jinja2.StrictUndefined, trim_blocks=True, lstrip_blocks=True, keep_trailing_newline=True)
    types = Types(model)
    environment.filters.update(words=words, cell=cell, literal=literal, event_name=event_name)
    environment.globals.update(
        model=model, types=types, forms=Forms(types), clients=ClientTypes(types), about=about, events=all_events(model),
        version=CATALOGUE_VERSION, layout_hash=layout_hash(model), banner=BANNER)
    return environment


def all_events(model):
    """(id, event name) in order of the ids."""
    variables = [variable for _, variable in model.variables()] + model.device
    rows = [(event.event, str(event.name)) for event in model.control]
    return sorted(rows + [(variable.event, event_name(variable.name)) for variable in variables])
