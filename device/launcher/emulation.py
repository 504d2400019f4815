"""The emulator that runs the programs of a build for another processor."""

from pathlib import Path

EMULATOR = "CMAKE_CROSSCOMPILING_EMULATOR:STRING="


def emulator(build):
    """Returns the command that runs the programs of the build, an empty list if they are native.

    It ends with a dynamic loader and its options, to which "--preload LIBRARY" can be added.
    """
    cache = Path(build) / "CMakeCache.txt"
    for line in cache.read_text().splitlines() if cache.exists() else ():
        if line.startswith(EMULATOR):
            return [word for word in line.removeprefix(EMULATOR).split(";") if word]
    return []
