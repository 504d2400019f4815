"""An emulated board: starts qemu, runs commands in its root shell, moves files, cuts its power.

The board reaches this machine only through forwarded ports of 127.0.0.1: one for its shell, one for its web server.
"""

import contextlib
import io
import socket
import subprocess
import tarfile
import time
import urllib.request
from pathlib import Path

KERNEL_WORDS = "loglevel=4 systemd.show_status=0 panic=-1 printk.devkmsg=on net.ifnames=0 iomem=relaxed"
SHELL_PORT = 2300
CONNECT_SECONDS = 5
BOOT_SECONDS = 300
ANSWER_SECONDS = 120


class BoardError(Exception):
    """A command failed, or the board does not answer. The text holds the output."""


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


class Board:
    """One machine with one card. The card's content survives a restart and a power cut."""

    def __init__(self, machine, kernel, initrd, card, web_port=0):
        self.machine, self.kernel, self.initrd, self.card = machine, kernel, initrd, Path(card)
        self.console = self.card.with_name("console.log")
        self.web_port, self._shell_port = web_port or free_port(), free_port()
        self.cuts = 2  # power cuts of the tests
        self._qemu = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.cut_power()

    def start(self, *qemu, words=""):
        """Starts qemu with further arguments and words of the kernel's command line; does not wait."""
        empty = self.card.with_name("empty.img")
        with open(empty, "wb") as file:
            file.truncate(1 << 20)
        forwards = f"hostfwd=tcp:127.0.0.1:{self._shell_port}-:{SHELL_PORT},hostfwd=tcp:127.0.0.1:{self.web_port}-:80"
        tree = ["-dtb", self.initrd.with_name("device-tree")] if self.machine.device_tree else []
        command = ["qemu-system-arm", *(word.format(card=self.card, empty=empty) for word in self.machine.qemu), *tree,
                   "-kernel", self.kernel, "-initrd", self.initrd,
                   "-append", f"console={self.machine.console} {KERNEL_WORDS} {words}",
                   "-netdev", f"user,id=net,restrict=on,{forwards}", *self.machine.network,
                   "-display", "none", "-monitor", "none", "-serial", f"file:{self.console}", "-no-reboot", *qemu]
        self._qemu = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "--", *command], stdin=subprocess.DEVNULL)

    def is_on(self):
        return self._qemu is not None and self._qemu.poll() is None

    def cut_power(self):
        """Ends qemu at once: the card keeps what the board's kernel has written to it."""
        if self._qemu is not None:
            self._qemu.kill()
            self._qemu.wait()
            self._qemu = None

    def wait_for_end(self, seconds, meanwhile=lambda: None):
        """Waits until the board has switched itself off; raises BoardError otherwise."""
        end = time.monotonic() + seconds
        while self.is_on():
            if time.monotonic() > end:
                raise BoardError("the board does not end\n" + self.console_tail())
            meanwhile()
            time.sleep(0.2)

    def ask(self, path, body=None, method=None, headers=None):
        """The body of the web server's answer, whose status has to be 200. OSError otherwise."""
        with self.open(path, body, method, headers) as response:
            return response.read()

    def open(self, path, body=None, method=None, headers=None):
        """The web server's answer, to be read and closed. OSError if its status is not 200."""
        request = urllib.request.Request(f"http://127.0.0.1:{self.web_port}{path}", body, headers or {}, method=method)
        return urllib.request.urlopen(request, timeout=ANSWER_SECONDS)

    def run(self, script, data=b"", seconds=300):
        """The output of shell commands, standard error included. `data` is their standard input. Raises BoardError if the
        status is not 0."""
        output, status = self.try_run(script, data, seconds)
        if status != 0:
            raise BoardError(f"{script}: status {status}\n{output.decode(errors='replace')}")
        return output.decode(errors="replace")

    def try_run(self, script, data=b"", seconds=300):
        """Output as bytes, and status."""
        end = time.monotonic() + seconds
        with socket.create_connection(("127.0.0.1", self._shell_port), CONNECT_SECONDS) as shell:
            shell.settimeout(seconds)
            # The shell reads these lines and leaves the rest to the commands, which can end only their own subshell.
            shell.sendall(f"( {script}\n) 2>&1; printf '\\0%d' $?; exit\n".encode() + data)
            answer = b""
            while piece := self._receive(shell, end):
                answer += piece
        output, mark, status = answer.rpartition(b"\0")
        if not mark:
            raise BoardError(f"{script}: the board ended the connection\n{answer.decode(errors='replace')}")
        return output, int(status)

    @staticmethod
    def _receive(shell, end):
        shell.settimeout(max(0.01, end - time.monotonic()))
        try:
            return shell.recv(1 << 16)
        except TimeoutError as error:
            raise BoardError("the command takes too long") from error
        except ConnectionError:
            return b""

    def put(self, files, mode=0o644):
        """Stores files, given as path on the board and bytes, in one go."""
        archive = io.BytesIO()
        with tarfile.open(fileobj=archive, mode="w") as tar:
            for path, content in files.items():
                entry = tarfile.TarInfo(path.lstrip("/"))
                entry.size, entry.mode, entry.mtime = len(content), mode, int(time.time())
                tar.addfile(entry, io.BytesIO(content))
        data = archive.getvalue()
        self.run(f"head -c {len(data)} | tar --extract --directory=/ --no-same-owner", data)

    def read(self, path):
        """The bytes of a file or device."""
        output, status = self.try_run(f"cat {path}")
        if status != 0:
            raise BoardError(f"cannot read {path}: {output.decode(errors='replace')}")
        return output

    def wait(self, what, is_so, seconds=BOOT_SECONDS):
        """Waits until a function returns true; it may raise while the board is not ready."""
        end, error = time.monotonic() + seconds, ""
        while time.monotonic() < end and self.is_on():
            try:
                if result := is_so():
                    return result
            except (OSError, BoardError) as reason:
                error = reason
            time.sleep(0.2)
        raise BoardError(f"still waiting for: {what}; {error}\n{self.console_tail()}")

    def wait_for_shell(self):
        self.wait("the board's shell", lambda: self.run("echo up", seconds=20) == "up\n")

    def console_tail(self, lines=20):
        text = self.console.read_text(errors="replace") if self.console.exists() else ""
        return "\n".join(text.splitlines()[-lines:])

    def restart(self):
        """Starts the board again after a power cut."""
        self.cut_power()
        self.start()
        self.wait_for_shell()

    def reboot(self):
        """Shuts the system down in order and starts it again."""
        self.switch_off()
        self.restart()

    def switch_off(self):
        """Shuts the system down in order."""
        with contextlib.suppress(BoardError):  # the shutdown may end the connection first
            self.run("systemctl --no-block reboot")  # with -no-reboot, qemu ends
        self.wait_for_end(BOOT_SECONDS)


def copy_card(source, target):
    """A copy that keeps the holes of the file."""
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", source, target], check=True)
