"""Follows the worked examples of CONTRIBUTING.md in a copy of the sources, build/contributing, in their order.

Applies blocks of the kind "diff". In blocks of the kind "console", the lines after "$ " are run, and their output has to
be the lines that follow. Prints the first difference and ends with status 1. The copy keeps its builds, so that the next
run compiles only what has changed.
"""

import re
import shutil
import subprocess
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parents[1]
COPY = TOP / "build/contributing"
BLOCK = re.compile(r"^```(diff|console)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
COMMAND = re.compile(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", re.MULTILINE)
NOT_COPIED = (".git", "build", "__pycache__")


def copy_sources():
    """Copies with the files' times. The examples' files are newer than the builds, so they are compiled again."""
    COPY.mkdir(parents=True, exist_ok=True)
    for path in COPY.iterdir():
        if path.is_dir() and path.name != "build":
            shutil.rmtree(path)
    shutil.copytree(TOP, COPY, ignore=shutil.ignore_patterns(*NOT_COPIED), dirs_exist_ok=True)


def output(command, text=None):
    """What a shell's command in the copy prints."""
    return subprocess.run(["bash", "-c", command], cwd=COPY, input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False).stdout


def follow(kind, text):
    """Yields each step of a block: the step, what it has to print, and what it prints."""
    if kind == "diff":
        yield text, "", output("patch --silent --strip=1 --fuzz=3 --no-backup-if-mismatch", text)
    else:
        for command, expected in COMMAND.findall(text):
            yield command, expected, output(command)


def main():
    copy_sources()
    for kind, text in BLOCK.findall((TOP / "CONTRIBUTING.md").read_text(encoding="utf-8")):
        for step, expected, printed in follow(kind, text):
            if printed != expected:
                return f"{step}\nprinted:\n{printed}\nexpected:\n{expected}"
    return 0


if __name__ == "__main__":
    sys.exit(main())
