"""How the programs of a build run on this machine."""

from pathlib import Path

EMULATOR = "CMAKE_CROSSCOMPILING_EMULATOR:STRING="


def emulator(build):
    """The words in front of a program that was built for another processor; none for this machine's own.

    They end in a dynamic loader and its options, to which "--preload LIBRARY" can be added.
    """
    cache = Path(build) / "CMakeCache.txt"
    for line in cache.read_text().splitlines() if cache.exists() else ():
        if line.startswith(EMULATOR):
            return [word for word in line.removeprefix(EMULATOR).split(";") if word]
    return []
