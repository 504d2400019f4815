"""Runs the system tests on a service that is ended at its first system call outside the unit's list, where the unit would
let that call fail: systemcalls.py BUILD_FOLDER [ARGUMENTS OF PYTEST]

It makes a build folder like the given one, in which the service is a small program that takes the list and becomes the
service. Ends with 77, for "skipped", where the machine cannot tell what systemd's groups of calls hold.
"""

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
UNIT = REPOSITORY / "packaging" / "systemd" / "webservice.service"
# Not these: what they have the service do, the others do, too. They are about documents and web servers.
OTHERS = ("api_test.py", "examples_test.py", "webserver_test.py")
SKIPPED = 77
SECCOMP = "libseccomp.so.2"
SERVICE = """#!/usr/bin/python3 -IS
import ctypes, os
END_PROCESS, ALLOW = 0x80000000, 0x7FFF0000
seccomp = ctypes.CDLL("{library}")
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


def skip(reason):
    print(f"THE LIST OF SYSTEM CALLS IS NOT TESTED: {reason}", flush=True)
    sys.exit(SKIPPED)


def groups():
    """All of systemd's groups of calls, by name, as they are listed: with the names of groups among them."""
    listing = subprocess.run(["systemd-analyze", "syscall-filter"], capture_output=True, text=True, check=True).stdout
    result, group = {}, None
    for line in listing.splitlines():
        word = line.partition("#")[0].strip()
        if word and not line.startswith(" "):
            group = result.setdefault(word, [])
        elif word:
            group.append(word)
    return result


def calls(word, known):
    """What a word of the unit's list stands for."""
    if not word.startswith("@"):
        return {word}
    return set().union(*(calls(member, known) for member in known[word]))


def allowed():
    """The calls that the unit leaves to the service, as systemd reads its lines: the first one says that it is a list of
    what is allowed, each of the next adds to it or, with a tilde, takes away."""
    known = groups()
    result = calls("@default", known)
    for line in UNIT.read_text().splitlines():
        name, _, value = line.partition("=")
        if name != "SystemCallFilter":
            continue
        named = set().union(*(calls(word, known) for word in value.lstrip("~").split()))
        result = result - named if value.startswith("~") else result | named
    return sorted(result)


def make_build(source, folder):
    """A build folder like `source`, but for the service."""
    for entry in source.iterdir():
        if entry.name != "bin":
            (folder / entry.name).symlink_to(entry)
    (folder / "bin").mkdir()
    for program in (source / "bin").iterdir():
        (folder / "bin" / program.name).symlink_to(program)
    service = folder / "bin" / "webservice"
    service.unlink()
    names = [name.encode() for name in allowed()]
    service.write_text(SERVICE.format(library=SECCOMP, names=names, program=source / "bin" / "webservice"))
    service.chmod(0o755)


def main():
    if not shutil.which("systemd-analyze"):
        skip("systemd-analyze is not installed")
    build = Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(prefix="confined-") as folder:
        make_build(build, Path(folder))
        environment = {**os.environ, "PYTHONDONTWRITEBYTECODE": "1", "SYSTEM_TEST_BUILD": folder}
        command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", *sys.argv[2:]]
        if not sys.argv[2:]:
            files = sorted((REPOSITORY / "tests" / "system").glob("*_test.py"))
            command += [file for file in files if file.name not in OTHERS]
        sys.exit(subprocess.run(command, env=environment, check=False).returncode)


main()
