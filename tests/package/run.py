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

HERE = Path(__file__).resolve().parent
REPOSITORY = HERE.parents[1]
BASE = REPOSITORY / "build" / "package" / "base"
TOOLS = ("debootstrap", "systemd-nspawn", "nsenter", "dh", "lintian")
SKIPPED = 77


def skip(reason):
    print(f"THE PACKAGES ARE NOT TESTED: {reason}", flush=True)
    sys.exit(SKIPPED)


def require_rights():
    if os.geteuid() != 0:
        skip("only root can make a root folder and start a container")
    missing = [tool for tool in TOOLS if not shutil.which(tool)]
    if missing:
        skip(f"not installed: {', '.join(missing)}")
    # An own process tree, network and tree of mounts is what the container is made of.
    namespaces = ["unshare", "--mount", "--net", "--pid", "--uts", "--ipc", "--fork", "mount", "-t", "tmpfs", "none", "/mnt"]
    if subprocess.run(namespaces, check=False).returncode != 0:
        skip("the kernel gives no namespaces")


def main():
    build = Path(sys.argv[1]).resolve()
    require_rights()
    # Packages and root folder are one for all builds: runs that come at once follow each other.
    BASE.parent.mkdir(parents=True, exist_ok=True)
    lock = open(BASE.parent / "lock", "w")
    fcntl.flock(lock, fcntl.LOCK_EX)
    container.make_base(BASE)
    subprocess.run([REPOSITORY / "script" / "package", "--build", build], check=True)
    environment = {**os.environ, "PYTHONDONTWRITEBYTECODE": "1", "PACKAGE_TEST_BASE": str(BASE)}
    sys.exit(subprocess.run([sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", HERE / "package_test.py"],
                            env=environment, check=False).returncode)


main()
