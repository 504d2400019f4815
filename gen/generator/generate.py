#!/usr/bin/env python3
"""Checks the catalogue's model and writes the generated code and pages.

    generate.py --model gen/model --out <folder>        writes <folder>/gen/code/... and <folder>/docs/...
    generate.py --model gen/model --extend-ledger       adds new rows to gen/model/ledger

Problems go to standard error, one "file:line: reason" each; then nothing is written and the status is 1. Unchanged
files are not rewritten.
"""

import argparse
import sys

from check import check
from ledger import check_complete, extend_ledger
from load import Loader
from problems import Problems
from render import render
from write import write_changed


def arguments():
    parser = argparse.ArgumentParser(description="Generates the catalogue.")
    parser.add_argument("--model", required=True, help="the model's folder")
    action = parser.add_mutually_exclusive_group(required=True)
    action.add_argument("--out", help="the folder to write to")
    action.add_argument("--extend-ledger", action="store_true", help="add new rows to the ledger")
    return parser.parse_args()


def checked_model(folder, problems):
    model = Loader(problems).model(folder)
    if not problems:
        check(model, problems)
    return model


def add_rows(model, options, problems):
    added = extend_ledger(model, options.model, problems)
    if not problems:
        print(f"{added} rows added")


def write_files(model, options, problems):
    check_complete(model, options.model, problems)
    if not problems:
        write_changed(options.out, render(model))


def main():
    options, problems = arguments(), Problems()
    model = checked_model(options.model, problems)
    if not problems:
        action = add_rows if options.extend_ledger else write_files
        action(model, options, problems)
    for line in problems.lines():
        print(line, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except OSError as error:
        sys.exit(f"{error.filename}: {error.strerror}")
