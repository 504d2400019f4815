"""Runs the system tests on a service that is ended at its first system call outside the unit's list, where the unit would
let that call fail: systemcalls.py BUILD_FOLDER

It makes a build folder like the given one, in which the service is a small program that takes the list and becomes the
service. Ends with 77, for "skipped", where the machine cannot tell what systemd's groups of calls hold.
"""

import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from skipping import run_tests, skip

REPOSITORY = Path(__file__).resolve().parents[2]
UNIT = REPOSITORY / "packaging" / "systemd" / "webservice.service"
# Not these: what they have the service do, the others do, too. They are about documents and web servers.
OTHERS = ("api_test.py", "examples_test.py", "webserver_test.py")
SERVICE = """#!/usr/bin/python3 -IS
import ctypes, os
END_PROCESS, ALLOW = 0x80000000, 0x7FFF0000
seccomp = ctypes.CDLL("libseccomp.so.2")
seccomp.seccomp_init.restype = ctypes.c_void_p
context = ctypes.c_void_p(seccomp.seccomp_init(ctypes.c_uint32(END_PROCESS)))
for name in {names}:
    number = seccomp.seccomp_syscall_resolve_name(name)
    if number >= 0:  # negative: no call of this processor
        seccomp.seccomp_rule_add(context, ctypes.c_uint32(ALLOW), number, 0)
if seccomp.seccomp_load(context) != 0:
    raise OSError("no filter")
os.execv("{program}", ["webservice"])
"""


def calls(words):
    """The calls that words of the unit's list stand for: names of calls and of systemd's groups, which hold both."""
    result = set()
    for word in words:
        if word.startswith("@"):
            listing = subprocess.run(["systemd-analyze", "syscall-filter", word], capture_output=True, text=True,
                                     check=True).stdout
            members = [line.partition("#")[0].strip() for line in listing.splitlines()[1:]]
            result |= calls(member for member in members if member)
        else:
            result.add(word)
    return result


def allowed():
    """The calls that the unit leaves to the service, as systemd reads its lines: the first one says that it is a list of
    what is allowed, each of the next adds to it or, with a tilde, takes away."""
    result = calls(["@default"])
    for line in UNIT.read_text().splitlines():
        name, _, value = line.partition("=")
        if name == "SystemCallFilter":
            named = calls(value.lstrip("~").split())
            result = result - named if value.startswith("~") else result | named
    return sorted(name.encode() for name in result)


def make_build(source, folder):
    """A build folder like `source`, but for the service."""
    (folder / "bin").mkdir()
    for entry in [*source.iterdir(), *(source / "bin").iterdir()]:
        if entry.name not in ("bin", "webservice"):
            (folder / entry.relative_to(source)).symlink_to(entry)
    service = folder / "bin" / "webservice"
    service.write_text(SERVICE.format(names=allowed(), program=source / "bin" / "webservice"))
    service.chmod(0o755)


if not shutil.which("systemd-analyze"):
    skip("THE LIST OF SYSTEM CALLS IS", "systemd-analyze is not installed")
with tempfile.TemporaryDirectory(prefix="confined-") as confined:
    make_build(Path(sys.argv[1]).resolve(), Path(confined))
    tests = sorted((REPOSITORY / "tests" / "system").glob("*_test.py"))
    run_tests([file for file in tests if file.name not in OTHERS], SYSTEM_TEST_BUILD=confined)
