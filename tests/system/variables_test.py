"""The variables tool on a virtual device."""

import contextlib
import ctypes
import fcntl
import json
import os
import pty
import select
import shlex
import signal
import subprocess
from pathlib import Path

import pytest
from brokerclient import BrokerClient
from emulation import emulator
from systemdevice import BUILD, SystemDevice, ending, wait_until

COMPLETION = Path(__file__).resolve().parents[2] / "packaging/bash-completion/variables"
PTRACE_TRACEME, PTRACE_SYSCALL = 0, 24
LIBC = ctypes.CDLL(None)
LIBC.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]


def run(device, *words):
    """Exit status, standard output and standard error of the tool."""
    return device.run("variables", *words)


def start(device, *words):
    return subprocess.Popen(device.command("variables", *words), env=device.environment(), stdout=subprocess.PIPE,
                            text=True)


def test_values_are_those_of_the_web_api(device):
    document = device.ask("/api/v1/all.cgi").decode()
    names = [f"{memory}.{name}" for memory, variables in json.loads(document)["variables"].items()
             for name in variables]
    status, output, _ = run(device, "get", "--json", *names)
    values = output.splitlines()
    assert status == 0 and len(values) == len(names) == 816
    assert [name for name, value in zip(names, values) if f'"{name.split(".")[1]}" : {value}' not in document] == []
    rows = json.loads(run(device, "list", "--json", "--long", "MemPersistent.*Torque")[1])
    assert [(row["variable"], row["min"], row["max"], row["event"]) for row in rows][0] == (
        "MemPersistent.FocusTorque", 1, 4, 208)


def test_list_has_columns_and_cuts_long_values(device):
    names = ("*.DisplayUnit", "*.LensFileList", "*.ProductName", "*.IrisTorque")
    rows = run(device, "list", "--long", *names)[1].splitlines()
    types = rows[0].index("TYPE")
    assert [row[types:].split()[0] for row in rows[1:]] == ["string(20)", "int", "DisplayUnit", "LensFile[100]"]
    assert rows[2].split() == ["MemPersistent.IrisTorque", "int", "1", "to", "4", "209", "48+4", "1"]
    assert rows[3].endswith("  Default, Meter, Feet")
    assert run(device, "list", "--long", "RadioBoost")[1].endswith("  false  Sends with raised power where the region "
                                                                   "allows it.\n")
    assert '  [{"LensFileName":"Zoom' in rows[4] and "..." in rows[4] and len(rows[4]) < 200
    assert run(device, "list", "MemLens.LensFileListSize")[1].splitlines()[1].split() == [
        "MemLens.LensFileListSize", "int", "0", "to", "100", "8"]


@pytest.mark.parametrize("off, start", [("", b"\x1b[1mVARIABLE\x1b[0m"), ("1", b"VARIABLE  ")])
def test_colours_are_for_terminals(device, off, start):
    terminal, end = pty.openpty()
    environment = {**device.environment(), "TERM": "xterm", "NO_COLOR": off}
    subprocess.run(device.command("variables", "list", "FocusTorque"), env=environment, stdout=end, check=True)
    assert os.read(terminal, 1000).startswith(start)
    os.close(terminal)
    os.close(end)


def test_all_values_or_none_are_stored(device):
    assert run(device, "set", "FocusTorque=3", "LensFileList[2].LensFileName=Prime=50") == (0, "", "")
    assert run(device, "set", "FocusTorque=4", "IrisTorque=5", "Nowhere=1") == (
        1, "", "variables: IrisTorque: 5 is not between 1 and 4\nvariables: Nowhere is not a variable\n"
               "Nothing has been stored.\n")
    assert run(device, "get", "FocusTorque", "LensFileList[2].LensFileName") == (0, "3\nPrime=50\n", "")
    assert run(device, "fetch")[0] == 2


def change_until_printed(device, watch):
    """Returns when the process prints changes."""
    for turn in range(1000):
        run(device, "set", f"LensFileList[3].LensFileName=turn {turn}")
        if select.select([watch.stdout], [], [], 0)[0]:
            return
    raise AssertionError("no change is printed")


def test_changes_are_printed_until_a_value_is_there(device):
    with ending(start(device, "watch", "MemLens.*", "MemPersistent.*", "--json", "--until", "ZoomTorque=4")) as watch:
        change_until_printed(device, watch)
        run(device, "set", "IrisTorque=2")
        changes = [json.loads(watch.stdout.readline())]
        while changes[-1]["variable"] != "MemPersistent.IrisTorque":
            changes.append(json.loads(watch.stdout.readline()))
        run(device, "set", "ZoomTorque=4")
        changes += [json.loads(line) for line in watch.stdout]
    assert watch.returncode == 0
    assert "MemLens.LensFileList[3].LensFileName" in {change["variable"] for change in changes}
    assert all(change["old"] != change["value"] for change in changes)
    run(device, "set", "ZoomTorque=2")
    assert run(device, "watch", "--for", "100ms", "--until", "ZoomTorque=1")[0] == 1


def sockets(pid):
    """The number of the process's sockets."""
    links = []
    for file in Path(f"/proc/{pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):  # closed since the folder was read
            links += [os.readlink(file)] if file.name > "2" else []
    return sum(link.startswith("socket:") for link in links)


def is_asleep(pid):
    """Whether the process waits, so that it has read what has been sent to it."""
    return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] == "S"


def test_watch_receives_events_while_its_lines_are_not_read(device):
    run(device, "set", "FocusTorque=1")
    with contextlib.ExitStack() as stack, ending(start(device, "watch", "--until", "FocusTorque=4")) as watch:
        fcntl.fcntl(watch.stdout, fcntl.F_SETPIPE_SZ, 4096)
        change_until_printed(device, watch)
        events = stack.enter_context(BrokerClient(device))
        for turn in range(4):
            run(device, "set", *(f"LensFileList[{place}].LensFileName={turn}" for place in range(100)))
        events.posted()  # the broker has sent all to the earlier client
        wait_until(lambda: is_asleep(watch.pid), "all changes read")
        run(device, "set", "FocusTorque=4")
        wait_until(lambda: sockets(watch.pid) == 0, "the value")
        assert watch.poll() is None and watch.stdout.read().count("\n") >= 100
    assert watch.returncode == 0


@pytest.mark.parametrize("typed, completed", [
    ("wat\t", "variables watch "), ("list --lo\t", "list --long "), ("set RadioBo\tt\t", "set RadioBoost=true "),
    ("set MemPersistent.DisplayUnit=M\t", "MemPersistent.DisplayUnit=Meter "), ("get MemPersi\t", "MemPersistent."),
    ("get 'LensFileList[2].LensFileN\t", "'LensFileList[2].LensFileName"),
    ("set LensFileList[99\t.LensFileN\t", "[99].LensFileName="),
    ("watch --until=DisplayUnit=Fe\t", "=Feet ")])
def test_bash_completes_commands_names_and_entries(device, typed, completed):
    """In a terminal, because bash itself decides where words begin."""
    terminal, end = pty.openpty()
    script = f"PS1=; variables() {{ {shlex.join(device.command('variables'))} \"$@\"; }}; . {COMPLETION}\n"
    with ending(subprocess.Popen(["bash", "--norc", "--noprofile", "-i"], stdin=end, stdout=end, stderr=end,
                                 env={**device.environment(), "TERM": "dumb"}, start_new_session=True)) as bash:
        os.write(terminal, f"{script}variables {typed}".encode())
        shown = ""
        while completed not in shown:
            assert select.select([terminal], [], [], 60)[0], shown
            shown += os.read(terminal, 1000).decode()
        bash.kill()
    os.close(terminal)
    os.close(end)


def run_until(device, is_reached, *words):
    """Kills the tool at the first start or end of a system call at which is_reached(process id, number of the step). Returns
    the steps before that, and the tool's exit status or None."""
    command, environment = device.command("variables", *words), {**device.environment(), "ASAN_OPTIONS": "detect_leaks=0"}
    if (pid := os.fork()) == 0:
        LIBC.ptrace(PTRACE_TRACEME, 0, None, None)
        os.execvpe(command[0], command, environment)
    _, status = os.waitpid(pid, 0)
    steps = 0
    while not is_reached(pid, steps):
        steps += 1
        LIBC.ptrace(PTRACE_SYSCALL, pid, None, None)
        _, status = os.waitpid(pid, 0)
        if os.WIFEXITED(status):
            return steps, os.WEXITSTATUS(status)
    os.kill(pid, signal.SIGKILL)
    os.waitpid(pid, 0)
    return steps, None


def test_output_that_cannot_be_written_fails_unless_its_reader_has_gone(device):
    def status(pipeline):
        script = pipeline.replace("TOOL", shlex.join(device.command("variables"))) + "; exit ${PIPESTATUS[0]}"
        return subprocess.run(["bash", "-c", script], env=device.environment(), check=False, timeout=120).returncode

    assert [status(f"TOOL {words} >/dev/full") for words in ("get FocusTorque", "list", "list --json")] == [1, 1, 1]
    assert [status(f"TOOL {words} | true") for words in ("get '*'", "watch", "watch --until IrisTorque=4")] == [0, 0, 1]


@pytest.mark.skipif(bool(emulator(BUILD)), reason="the steps would be the emulator's")
def test_a_tool_that_is_killed_at_any_step_gives_the_semaphore_back(device):
    semaphore = next(Path("/dev/shm").glob(f"sem.{device.name}*"))
    # Without a socket it has no semaphore either.
    before, status = run_until(device, lambda pid, _: sockets(pid) > 0, "set", "FocusTorque=1")
    last = before - 5
    while status is None:
        last += 1
        steps, status = run_until(device, lambda _, step: step >= last, "set", f"FocusTorque={1 + last % 4}")
        wait_until(lambda: semaphore.read_bytes()[0] == 1, f"the semaphore after {last} steps")
    assert status == 0 and steps > before + 50


def test_texts_that_are_not_utf8_are_refused_and_hide_nothing(device):
    assert run(device, "set", "ProductName=a\udcff") == (
        1, "", 'variables: ProductName takes a text of UTF-8, not "a\\ufffd"\nNothing has been stored.\n')
    place = json.loads(run(device, "list", "--json", "--long", "ProductName")[1])[0]["location"]
    with (ending(start(device, "watch", "--until", "ProductName=a?")) as watch,
          open(device.segment("MemPersistent"), "r+b") as memory):
        memory.seek(4 + place)
        memory.write(b"a\xff\0")
        memory.flush()
        assert watch.wait(120) == 0
    assert run(device, "get", "ProductName") == (0, "a?\n", "")
    assert run(device, "list")[1].count("\n") == 817
    run(device, "set", "ProductName=Lens Control")


@pytest.mark.parametrize("how, reason", [(signal.SIGTERM, "No such file or directory"),
                                         (signal.SIGKILL, "Connection refused")])  # its socket stays
def test_reading_works_without_a_broker(how, reason, tmp_path):
    file = tmp_path / "recording"
    file.write_text("an older one")
    with SystemDevice(service=False, may_fail={"broker"}) as device:
        device.end("broker", how)
        missing = "variables: The message broker is not running; the values may be out of date\n"
        assert run(device, "get", "FocusTorque") == (0, "2\n", missing)
        unreached = (1, "", f"variables: The message broker cannot be reached: {reason}\n")
        assert run(device, "set", "FocusTorque=3") == run(device, "record", "--force", str(file)) == unreached
        assert file.read_text() == "an older one"
        assert run(device, "get", "FocusTorque") == (0, "2\n", missing)
