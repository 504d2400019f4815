"""Packs what is in a build folder, and tests the packages in a fresh minimal Debian: run.py BUILD_FOLDER

Ends with 77, for "skipped", where the machine does not let it run containers.
"""

import fcntl
import os
import shutil
import subprocess
import sys
from pathlib import Path

import container
from skipping import run_tests, skip

HERE = Path(__file__).resolve().parent
REPOSITORY = HERE.parents[1]
BASE = REPOSITORY / "build" / "package" / "base"
TOOLS = ("debootstrap", "systemd-nspawn", "nsenter", "dh", "lintian")
# An own process tree, network and tree of mounts is what the container is made of.
NAMESPACES = ("unshare", "--mount", "--net", "--pid", "--uts", "--ipc", "--fork", "mount", "-t", "tmpfs", "none",
              "/mnt")


def missing():
    """Why it cannot be done here; empty when it can."""
    if os.geteuid() != 0:
        return "only root can make a root folder and start a container"
    tools = [tool for tool in TOOLS if not shutil.which(tool)]
    if tools:
        return f"not installed: {', '.join(tools)}"
    return "" if subprocess.run(NAMESPACES, check=False).returncode == 0 else "the kernel gives no namespaces"


if reason := missing():
    skip("THE PACKAGES ARE", reason)
# Packages and root folder are one for all builds: runs that come at once follow each other.
BASE.parent.mkdir(parents=True, exist_ok=True)
lock = open(BASE.parent / "lock", "w")
fcntl.flock(lock, fcntl.LOCK_EX)
container.make_base(BASE)
subprocess.run([REPOSITORY / "script" / "package", "--build", Path(sys.argv[1]).resolve()], check=True)
run_tests([HERE / "package_test.py"], PACKAGE_TEST_BASE=str(BASE))
