"""A fresh minimal Debian in a container: it boots with its own systemd, has its own processes and network, and forgets
all changes when it ends. Nothing of the machine that it runs on is touched.

    with Container(base, {"/packages": folder}) as container:
        container.run("dpkg", "--install", ...)
"""

import contextlib
import ctypes
import os
import signal
import subprocess
import time
from pathlib import Path

PACKAGES = ("systemd", "systemd-sysv", "dbus", "nginx-light", "python3", "libpng16-16", "libcairo2", "libstdc++6")
SUITE = "bookworm"
WAIT_SECONDS = 60
CLONE_NEWNET = 0x40000000
NAMESPACES = ("-m", "-u", "-i", "-n", "-p", "-C")


def mirror():
    """Where this machine's own packages come from."""
    listing = subprocess.run(["apt-get", "indextargets", "--format", "$(REPO_URI)", "Identifier: Packages",
                              f"Codename: {SUITE}"], capture_output=True, text=True, check=True).stdout.split()
    if not listing:
        raise RuntimeError("this machine has no package lists of Debian: apt-get update fetches them")
    return listing[0].rstrip("/")


def make_base(folder):
    """Makes the folder of a minimal Debian if it is not there yet, with what the packages depend on."""
    if folder.exists():
        return
    print(f"Making {folder}", flush=True)
    part = folder.with_name(folder.name + ".part")
    subprocess.run(["rm", "-rf", part], check=True)
    part.parent.mkdir(parents=True, exist_ok=True)
    subprocess.run(["debootstrap", "--variant=minbase", f"--include={','.join(PACKAGES)}", SUITE, part, mirror()],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["chroot", part, "apt-get", "clean"], check=True)
    (part / "etc" / "machine-id").write_text("")
    part.rename(folder)


def wait_until(is_so, what):
    end = time.monotonic() + WAIT_SECONDS
    while not is_so():
        assert time.monotonic() < end, f"still waiting for: {what}"
        time.sleep(0.02)


class Container:
    def __init__(self, base, folders):
        self._base = base
        self._folders = folders
        self._process = None
        self._leader = None

    def __enter__(self):
        # With the unified tree of control groups and the call "bpf", systemd can put the unit's packet filter on.
        binds = [f"--bind-ro={source}:{target}" for target, source in self._folders.items()]
        self._process = subprocess.Popen(
            ["systemd-nspawn", "-q", "--register=no", "--keep-unit", "-D", self._base, "--volatile=overlay",
             "--private-network", "--capability=CAP_SYS_RAWIO,CAP_SYSLOG", "--system-call-filter=bpf",
             "--machine", f"package-{os.getpid()}", *binds, "--boot", "--console=pipe"],
            env={**os.environ, "SYSTEMD_NSPAWN_UNIFIED_HIERARCHY": "1"}, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            wait_until(self._has_booted, "the container's system")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        # Ends all of the container at once: there is nothing in it that would have to be kept.
        with contextlib.suppress(ProcessLookupError):
            os.kill(int(self._leader or self._process.pid), signal.SIGKILL)
        with contextlib.suppress(subprocess.TimeoutExpired):
            self._process.communicate(timeout=10)
        if self._process.poll() is None:
            self._process.kill()
            self._process.communicate()

    def _has_booted(self):
        assert self._process.poll() is None, self._process.stdout.read().decode(errors="replace")
        self._leader = self._find_leader()
        return self._leader and self.run("systemctl", "is-system-running", fails=True).stdout == "running\n"

    def _find_leader(self):
        children = Path(f"/proc/{self._process.pid}/task/{self._process.pid}/children").read_text().split()
        own = os.readlink("/proc/self/ns/net")
        for child in children:
            with contextlib.suppress(OSError):  # one that has ended meanwhile
                if os.readlink(f"/proc/{child}/ns/net") != own:
                    return child
        return None

    def run(self, *command, fails=False):
        """Runs a command inside. Its failure fails the test unless that is expected."""
        result = subprocess.run(["nsenter", "-t", self._leader, *NAMESPACES, "--", *command],
                                stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60, check=False)
        assert fails or result.returncode == 0, f"{command}: {result.stdout}{result.stderr}"
        return result

    def enter_network(self):
        """From now on all connections of this process are the container's."""
        libc = ctypes.CDLL(None, use_errno=True)
        with open(f"/proc/{self._leader}/ns/net", "rb") as network:
            if libc.setns(network.fileno(), CLONE_NEWNET) < 0:
                raise OSError(ctypes.get_errno(), "setns")

    def show(self, unit, what):
        """A property that systemd knows of a unit."""
        return self.run("systemctl", "show", "-P", what, unit).stdout.strip()
