"""Packs a build folder and tests the packages in a minimal Debian: run.py BUILD_FOLDER

The Debian boots in a container, runs package_test.py there, and drops all changes when it ends.
"""

import fcntl
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
FOLDER = REPOSITORY / "build" / "package"
SUITE = "bookworm"
CONTENT = "systemd,systemd-sysv,dbus,iproute2,nginx-light,python3,python3-pytest,libpng16-16,libcairo2,libstdc++6"
ROOT = FOLDER / f"{SUITE}-pytest"
TOOLS = ("debootstrap", "systemd-nspawn", "dh", "lintian")
NAMESPACES = ("unshare", "-muinpf", "mount", "-t", "tmpfs", "none", "/mnt")
SKIPPED = 77


def obstacle():
    """Why this machine cannot run the container; empty if it can."""
    if os.geteuid() != 0:
        return "only root can start a container"
    if tools := [tool for tool in TOOLS if not shutil.which(tool)]:
        return f"not installed: {', '.join(tools)}"
    return "" if subprocess.run(NAMESPACES, check=False).returncode == 0 else "the kernel gives no namespaces"


def mirror():
    """The address from which this machine installs its packages."""
    return subprocess.run(["apt-get", "indextargets", "--format", "$(REPO_URI)", "Identifier: Packages",
                           f"Codename: {SUITE}"], capture_output=True, text=True, check=True).stdout.split()[0]


def make_root():
    part = ROOT.with_name("part")
    shutil.rmtree(part, ignore_errors=True)
    subprocess.run(["debootstrap", "--variant=minbase", f"--include={CONTENT}", SUITE, part, mirror()],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["chroot", part, "apt-get", "clean"], check=True)
    part.rename(ROOT)


def run_container(results):
    """Returns the status of the tests and prints their output."""
    # With the unified control groups and the call "bpf", systemd can install the unit's packet filter.
    console = subprocess.run(
        ["systemd-nspawn", "-q", "--register=no", "--keep-unit", "-D", ROOT, "--volatile=overlay", "--private-network",
         "--capability=CAP_SYS_RAWIO,CAP_SYSLOG", "--system-call-filter=bpf", "--machine", f"package-{os.getpid()}",
         f"--bind-ro={REPOSITORY}:/repository", f"--bind={results}:/results",
         f"--bind-ro={REPOSITORY}/tests/package/package-test.service:/etc/systemd/system/package-test.service",
         "--console=pipe", "--boot", "systemd.wants=package-test.service"],
        env={**os.environ, "SYSTEMD_NSPAWN_UNIFIED_HIERARCHY": "1"}, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        timeout=1200, check=False)
    output = Path(results, "output")
    print(output.read_text() if output.exists() else console.stdout.decode(errors="replace"))
    return console.returncode


if reason := obstacle():
    print(f"SKIPPED, THE PACKAGES ARE NOT TESTED: {reason}", flush=True)
    sys.exit(SKIPPED)
FOLDER.mkdir(parents=True, exist_ok=True)
with open(FOLDER / "lock", "w") as lock, tempfile.TemporaryDirectory() as results:
    fcntl.flock(lock, fcntl.LOCK_EX)  # packages and container are shared by all builds
    if not ROOT.exists():
        make_root()
    subprocess.run([REPOSITORY / "script" / "package", "--build", Path(sys.argv[1]).resolve()], check=True)
    status = run_container(results)
sys.exit(status)
