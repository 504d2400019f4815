"""Makes a controller of a board with bare Debian: the device's other processes and the package of the service."""

from pathlib import Path

from hardwareinfo import FACTORY_VALUES
from progress import step

GUEST = Path(__file__).with_name("guest")
PROGRAMS = ("message-broker", "device-simulation", "device-display")
PACKAGE = "/opt/board/webservice.deb"


def install(board, repository):
    """Returns when the service answers."""
    with step("Copying the programs"):
        binaries = repository / "build" / "armhf" / "bin"
        board.put({f"/opt/board/bin/{name}": (binaries / name).read_bytes() for name in PROGRAMS}, mode=0o755)
        units = {f"/{file.relative_to(GUEST)}": file.read_bytes() for file in GUEST.rglob("*") if file.is_file()}
        package = next((repository / "build" / "packages").glob("webservice_*_armhf.deb"))
        board.put({**units, PACKAGE: package.read_bytes()})
    with step("Installing the package"):
        board.run("systemctl daemon-reload; systemctl enable --now message-broker device-simulation")
        board.run(f"dpkg --install {PACKAGE} && hwinfo create --force {' '.join(FACTORY_VALUES)}")
        board.run("systemctl enable --now device-display; systemctl restart webservice")
    wait_for_service(board)


def wait_for_service(board):
    with step("Waiting for the service"):
        board.wait("the service", lambda: board.run("systemctl is-active webservice device-display").split() ==
                   ["active", "active"] and board.ask("/qorapp/v1/device/status"))
