"""Other programs under the restrictions of the service's unit."""

import re
from pathlib import Path

UNIT = Path(__file__).resolve().parents[2] / "packaging" / "systemd" / "webservice.service"
OUTPUT = "/run/probe"


def copy_of_unit(command, without="$^"):
    """The text of the unit with another program that runs once and writes to OUTPUT, less the settings whose names match a
    regular expression."""
    changes = {"ExecStart": command, "Type": "oneshot", "Restart": "no", "Requires": "", "After": "",
               "StandardInput": "null",
               "StandardOutput": f"file:{OUTPUT}", "StandardError": f"file:{OUTPUT}"}
    lines = (line.partition("=") for line in UNIT.read_text().splitlines() if not re.match(without, line))
    return "\n".join(f"{key}={changes.get(key, value)}" if mark else key for key, mark, value in lines)


def run_confined(board, command):
    """Result, as systemd names it, and output of a command that runs with the restrictions of the unit."""
    board.put({"/run/systemd/system/probe.service": copy_of_unit(command).encode()})
    board.run(f"rm -f {OUTPUT}; systemctl daemon-reload; systemctl start probe || true")
    return board.run("systemctl show -P Result probe").strip(), board.run(f"cat {OUTPUT}")
