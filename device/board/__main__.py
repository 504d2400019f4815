"""The board in one command; script/board calls it when the packages are built.

    device/board FOLDER [--machine NAME] [--keep] [-- COMMAND...]

FOLDER keeps what runs share: "kernel" (the unpacked packages) and the cards "debian.img" (as makeroot made it),
"configured.img" and "installed.img", with the packages. COMMAND is "test" (the default), "cuts NUMBER", "bench",
"flash MINUTES", or a command for the board's shell.
"""

import argparse
import contextlib
import readline  # pylint: disable=unused-import  # input() then edits its line
import shlex
import sys
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path += [str(REPOSITORY / "bench"), str(REPOSITORY / "device" / "launcher")]

# pylint: disable=wrong-import-position  # the two folders hold what some of them import
from bench import QEMU as COUNTED, bench
from board import Board, BoardError, copy_card
from flash import flash
from initrd import make_device_tree, make_initrd
from install import contents, install, stamp_of, wait_for_service
from machines import MACHINES
from progress import step, summary

TESTS = REPOSITORY / "tests" / "board"
CONFIGURE_SECONDS = 1800


def make_board(folder, name, card, web_port=0):
    """A board of the machine; its files are in a folder of the machine's name."""
    place = folder / name
    place.mkdir(exist_ok=True)
    kernel = folder / "kernel"
    make_initrd(place / "initrd.gz", kernel, MACHINES[name])
    if MACHINES[name].device_tree:
        make_device_tree(place / "device-tree", kernel, MACHINES[name])
    image = next((kernel / "boot").glob("vmlinuz-*"))
    return Board(MACHINES[name], image, place / "initrd.gz", place / card, web_port)


def configure(folder):
    """Configures Debian's packages in the fastest machine, once for all machines."""
    with step("Configuring Debian in the emulated machine") as note:
        board = make_board(folder, "virt", "configuring.img")
        copy_card(folder / "debian.img", board.card)
        with board:
            board.start(words="init=/usr/local/sbin/board-configure")
            board.wait_for_end(CONFIGURE_SECONDS, lambda: note(board.console_tail(1)))
        if "board-configure: done" not in board.console_tail():
            raise BoardError("Debian's packages cannot be configured\n" + board.console_tail())
        board.card.rename(folder / "configured.img")


def install_package(folder):
    """Installs the packages in the fastest machine, once for all machines, if they are not those on "installed.img"."""
    files = contents(REPOSITORY)
    stamp, stamp_file = stamp_of(files), folder / "installed.stamp"
    if stamp_file.exists() and stamp_file.read_text() == stamp:
        return
    stamp_file.unlink(missing_ok=True)
    board = make_board(folder, "virt", "installing.img")
    copy_card(folder / "configured.img", board.card)
    with board:
        with step("Starting the machine virt for the installation"):
            board.start()
            board.wait_for_shell()
        install(board, files)
        board.switch_off()
        board.card.rename(folder / "installed.img")
    stamp_file.write_text(stamp)


class ForTests:
    """Hands the board to the tests, as a plugin of pytest."""

    def __init__(self, board):
        self._board = board

    @pytest.fixture(scope="session")
    def board(self):
        return self._board


def test(board, *selection):
    return pytest.main(["-p", "no:cacheprovider", "-v", "--tb=short", "--rootdir", str(TESTS), str(TESTS), *selection],
                       plugins=[ForTests(board)])


def execute(board, command):
    """Returns an exit status."""
    if command[0] == "test":
        return test(board, "-k", "not cuts")
    if command[0] == "cuts":
        board.cuts = int(command[1])
        return test(board, "-k", "cuts")
    if command[0] == "bench":
        return bench(board, REPOSITORY)
    if command[0] == "flash":
        return flash(board, REPOSITORY, int(command[1]))
    output, status = board.try_run(shlex.join(command), seconds=3600)
    sys.stdout.write(output.decode(errors="replace"))
    return status


def prompt(board):
    print(f"\nThe console: http://127.0.0.1:{board.web_port}/   Each line is a command on the board; Ctrl-D ends the board.")
    with contextlib.suppress(EOFError):
        while board.is_on():
            try:
                sys.stdout.write(board.try_run(input("board# "))[0].decode(errors="replace"))
            except BoardError as error:
                print(error)


def main():
    parser = argparse.ArgumentParser(prog="script/board", description="Runs the package on an emulated ARM board.")
    parser.add_argument("folder", type=Path, help=argparse.SUPPRESS)
    parser.add_argument("--machine", choices=MACHINES, default="virt", help="the emulated machine (%(default)s)")
    parser.add_argument("--keep", action="store_true", help="keep the board afterwards, with a prompt and a web port")
    parser.add_argument("--port", type=int, default=0, help="the web port on this machine")
    parser.add_argument("command", nargs="*", default=["test"],
                        help="test, cuts NUMBER, bench, flash MINUTES, or a shell command")
    options = parser.parse_intermixed_args()  # parse_args refuses a command after an option
    if not (options.folder / "configured.img").exists():
        configure(options.folder)
        (options.folder / "installed.stamp").unlink(missing_ok=True)
    install_package(options.folder)
    board = make_board(options.folder, options.machine, "card.img", options.port)
    copy_card(options.folder / "installed.img", board.card)
    with board:
        with step(f"Starting the machine {options.machine}"):
            board.start(*(COUNTED if options.command[0] == "bench" else ()))
            board.wait_for_shell()
        wait_for_service(board)
        status = execute(board, options.command)
        if options.keep:
            prompt(board)
    summary(status)
    return status


try:
    sys.exit(main())
except BoardError as failure:
    sys.exit(f"script/board: {failure}")
except KeyboardInterrupt:
    sys.exit(130)
