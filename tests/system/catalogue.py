"""Places of variables.

They come from the generator; the compiler checks them against the C structures.
"""

import sys
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.append(str(REPOSITORY / "gen" / "generator"))

from load import Loader
from problems import Problems


class Catalogue:
    """memories   the model's memories by name, in the order of their indexes"""

    def __init__(self):
        model = Loader(Problems()).model(REPOSITORY / "gen" / "model")
        self.memories = {memory.name: memory for memory in model.memories}

    def sizes(self):
        return {name: memory.size for name, memory in self.memories.items()}

    def variable(self, memory, name):
        return next(variable for variable in self.memories[memory].variables if variable.name == name)
