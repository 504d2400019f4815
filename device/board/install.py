"""Makes a controller of a board with bare Debian: the device's other processes and the packages of the service."""

import hashlib
from pathlib import Path

from hardwareinfo import FACTORY_VALUES
from progress import step

GUEST = Path(__file__).with_name("guest")
PROGRAMS = ("message-broker", "device-simulation", "device-display")
BINARIES = "/opt/board/bin"
PACKAGES = {name: f"/opt/board/{name}.deb" for name in ("webservice", "webservice-live")}


def contents(repository):
    """The files that an installation needs, as path on the board and bytes: the programs, units and packages."""
    binaries, packages = repository / "build" / "armhf" / "bin", repository / "build" / "packages"
    return {**{f"{BINARIES}/{name}": (binaries / name).read_bytes() for name in PROGRAMS},
            **{f"/{file.relative_to(GUEST)}": file.read_bytes() for file in sorted(GUEST.rglob("*")) if file.is_file()},
            **{path: next(packages.glob(f"{name}_*_armhf.deb")).read_bytes() for name, path in PACKAGES.items()}}


def stamp_of(files):
    """A text that differs if an installation with other files, or by another program, would differ."""
    return hashlib.sha256(b"".join([Path(__file__).read_bytes(), *files.values()])).hexdigest()


def install(board, files):
    """Returns when the service answers. `files` are those of contents()."""
    with step("Copying the programs"):
        board.put({path: content for path, content in files.items() if path.startswith(BINARIES)}, mode=0o755)
        board.put({path: content for path, content in files.items() if not path.startswith(BINARIES)})
    with step("Installing the packages"):
        board.run("systemctl daemon-reload; systemctl enable --now message-broker device-simulation")
        board.run(f"dpkg --install {' '.join(PACKAGES.values())} && hwinfo create --force {' '.join(FACTORY_VALUES)}")
        board.run("systemctl enable --now device-display; systemctl restart webservice webservice-live")
    wait_for_service(board)


def wait_for_service(board):
    with step("Waiting for the service"):
        board.wait("the service", lambda: board.run("systemctl is-active webservice device-display").split() ==
                   ["active", "active"] and board.ask("/qorapp/v1/device/status") and board.ask("/api/v2/health"))
