"""The picture of the includes: a file includes only from its own floor or a lower one, and nobody includes device/."""

import re
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]

# The longest prefix that fits decides.
FLOORS = {
    "apps/web/service/main.cpp": 5,
    "apps/web/service/": 4,
    **{f"apps/web/service/{name}": 3 for name in
       ("descriptor", "fcgi", "receivebuffer", "request.", "requeststream", "sendall", "textstream", "unserved")},
    "apps/gui/common/": 3,
    "apps/libs/lhwinfo/": 3,
    "gen/code/": 2,
    "apps/common/introspection/": 2,
    "apps/common/introspection_enum/": 2,
    "apps/common/event/": 1,
    "apps/common/sharedmemory/": 1,
    "apps/common/diagnostics/": 0,
}


def floor(path):
    prefixes = [prefix for prefix in FLOORS if path.startswith(prefix)]
    return FLOORS[max(prefixes, key=len)] if prefixes else None


def test_includes_go_downwards():
    sources = [file for folder in ("apps", "gen/code") for file in (REPOSITORY / folder).rglob("*")
               if file.suffix in (".h", ".cpp")]
    assert len(sources) > 30
    wrong = []
    for source in sources:
        path = source.relative_to(REPOSITORY).as_posix()
        for included in re.findall(r'^#include "([^"]+)"', source.read_text(), re.MULTILINE):
            if floor(path) is None or floor(included) is None or floor(included) > floor(path):
                wrong.append(f"{path} includes {included}")
    assert wrong == []
