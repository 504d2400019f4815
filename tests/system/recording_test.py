"""Recordings made and played by the variables tool, read by the example of docs/recording.py."""

import contextlib
import os
import pty
import random
import re
import signal
import subprocess
import sys
import zlib
from pathlib import Path

import pytest

from brokerclient import BrokerClient
from faultswitches import FaultSwitches
from systemdevice import SystemDevice, wait_until

sys.path.append(str(Path(__file__).resolve().parents[2] / "docs"))

from recording import entries, frames  # pylint: disable=wrong-import-position

VARIABLES = 816


def start(device, *words, **environment):
    return subprocess.Popen(device.command("variables", *words), env=device.environment() | environment,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def end(process, number=None):
    """Exit status, standard output and standard error."""
    if number is not None:
        process.send_signal(number)
    output = process.communicate(timeout=120)
    return process.returncode, *output


def read(file):
    """All entries; none while the description is not there."""
    try:
        return list(entries(file.read_bytes()))
    except (OSError, AssertionError, ValueError):
        return []


def changes(file):
    """Name, arguments and value of each entry behind the start values."""
    return [(words[0], arguments, value) for _, words, arguments, value in read(file)[VARIABLES:]]


def state(recorded):
    return {words[0]: value for _, words, _, value in recorded}


@pytest.fixture(scope="module", name="killed")
def killed_recording(tmp_path_factory):
    """A recording of the moving device, killed at a random time."""
    file = tmp_path_factory.mktemp("recording") / "killed"
    count = random.randint(100, 300)
    with SystemDevice(simulation=(), service=False) as device:
        recorder = start(device, "record", str(file))
        wait_until(lambda: len(changes(file)) >= count, "changes")
        assert end(recorder, signal.SIGKILL)[0] == -signal.SIGKILL
    return file


@pytest.mark.parametrize("speed", ["1", "10"])
def test_a_replay_makes_the_same_changes_in_the_same_order(killed, tmp_path, speed):
    first = changes(killed)
    file = tmp_path / "again"
    with SystemDevice(service=False) as device:
        recorder = start(device, "record", str(file))
        wait_until(lambda: read(file), "a recorder")
        assert end(start(device, "replay", "--speed", speed, str(killed)))[0] == 0
        wait_until(lambda: changes(file)[-1:] == first[-1:] and state(read(file)) == state(read(killed)), "all changes")
        assert end(recorder, signal.SIGTERM)[0] == 0
    second = changes(file)[-len(first):]
    assert [change[:2] for change in second] == [change[:2] for change in first]
    # A recorder that gets no processor for a while reads the value of a later change.
    for place, (name, _, value) in enumerate(second):
        assert value in {later for each, _, later in first[place:] if each == name}


def test_from_and_to_choose_a_part(killed, tmp_path):
    recorded = read(killed)
    begin, stop = (recorded[-count][0] for count in (60, 20))
    with SystemDevice(service=False) as device:
        words = ["--from", f"{1000 * begin:.0f}ms", "--to", f"{1000 * stop:.0f}ms"]
        assert end(start(device, "replay", str(killed), *words))[0] == 0
        assert end(start(device, "record", str(tmp_path / "part"), "--for", "0"))[0] == 0
    assert state(read(tmp_path / "part")) == state(entry for entry in recorded if entry[0] <= round(stop, 3))


def test_a_full_disk_ends_a_recording_with_its_last_whole_entry(tmp_path):
    file = tmp_path / "full"
    with SystemDevice(simulation=(), service=False) as device:
        switches = FaultSwitches(device.path("/tmp/faults"))
        recorder = start(device, "record", str(file), **switches.environment)
        wait_until(lambda: changes(file), "changes")
        switches.set("full_disk", 1)
        assert end(recorder) == (1, "", f"variables: {file}: No space left on device\n")
        assert end(start(device, "replay", "--speed", "100", str(file))) == (0, f"Playing {file}\n", "")


def test_files_that_cannot_be_used_are_refused(killed, tmp_path):
    with SystemDevice(service=False) as device:
        assert end(start(device, "record", str(killed))) == (
            1, "", f"variables: {killed} exists; --force replaces it\n")
        content = killed.read_bytes()
        file = tmp_path / "file"
        file.write_bytes(content[:-1000] + bytes(1000))
        status, _, error = end(start(device, "replay", str(file)))
        assert status == 1 and f"{file}: the recording is damaged after" in error


def test_what_the_device_does_not_have_is_listed_and_the_rest_played(killed, tmp_path):
    def sum_of(content):
        return zlib.crc32(content).to_bytes(4, "little")

    old, file = next(frames(killed.read_bytes())), tmp_path / "other"
    new = re.sub(b"catalogue .", b"catalogue -", old).replace(b".FocusTorque int", b".Focus\x1borque int")
    file.write_bytes(killed.read_bytes().replace(old + sum_of(old), new + sum_of(new)))
    with SystemDevice(service=False) as device:
        assert end(start(device, "replay", "--speed", "100", str(file)))[2].splitlines()[:2] == [
            "variables: The recording was made with another catalogue",
            "variables: not played, because this device does not have it: MemPersistent.Focus?orque int 4"]
        assert end(start(device, "record", str(tmp_path / "again"), "--for", "0"))[0] == 0
    assert state(read(tmp_path / "again")) == state(read(killed))


def test_a_terminal_shows_the_size_and_rate_of_a_recording(tmp_path):
    line, shown = r"00:0\d:\d\d  [1-9]\d* changes  0\.\d MB  \d+\.\d kB/s", ""
    screen, terminal = pty.openpty()
    with SystemDevice(simulation=(), service=False) as device:
        with subprocess.Popen(device.command("variables", "record", "--for", "2m", str(tmp_path / "file")),
                              env=device.environment(), stdout=terminal, stderr=terminal) as recorder:
            os.close(terminal)
            with contextlib.suppress(OSError):  # at the end of the recorder
                while text := os.read(screen, 1000):
                    shown += text.decode()
                    if re.search(rf"\r{line}\x1b\[K", shown):
                        recorder.send_signal(signal.SIGINT)
    os.close(screen)
    assert recorder.returncode == 0 and re.search(rf"\r{line}\x1b\[K.*\r\x1b\[K{line}\r\n$", shown), shown


def test_a_device_plays_a_recording_instead_of_the_simulation(killed):
    with SystemDevice(recording=[str(killed), "--speed", "100"], service=False) as device:
        with BrokerClient(device) as events:
            wait_until(lambda: len(events.posted()) > 50, "changes")
