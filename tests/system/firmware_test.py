"""Firmware updates with a simulation that carries them out."""

import json
import random

from app_test import ACCESSORY, OUR_ID, ask, upload
from systemdevice import wait_until

DEVICE = {"simulation": ("--speed", "8")}


def poll_until(device, end):
    """Polls as the app does, and returns the states and the progress values up to the state `end`."""
    seen = []

    def is_over():
        seen.append(json.loads(ask(device, "/device/status")))
        return seen[-1]["status"] == end

    wait_until(is_over, f"an update with {end}")
    return [status["status"] for status in seen], [status["progress"] for status in seen]


def test_own_update_runs_to_its_end(device):
    content = b"firmware;Lens Control;4.3.0;1\n" + random.randbytes(60_000)
    upload(device, OUR_ID, content)
    assert device.path("/update/host.swu").read_bytes() == content
    states, progresses = poll_until(device, "Success")
    assert "Rebooting" in states, "a valid file is reported as rebooting"
    assert set(progresses) == {0}
    assert json.loads(ask(device, "/device/info"))["firmwareversion"] == "4.3.0"
    upload(device, OUR_ID, b"not firmware")
    assert "CopyingFile" not in poll_until(device, "FileCorrupt")[0]


def test_accessory_update_runs_part_by_part(device):
    device.end("service")  # after an own update, the status is about that
    device.start_service()
    body = b"firmware;Ultrasonic Ranger;2.0.0;4\n"
    upload(device, ACCESSORY, body)
    states, progresses = poll_until(device, "Success")
    assert "FileValid" in states, "the poll that reads this state starts the update"
    assert progresses[-1] == max(progresses) == 100
    upload(device, ACCESSORY, body.replace(b"\n", b";fails\n"))  # the same file name is a change, too
    poll_until(device, "Failed")
    upload(device, "Motor Controller-31044", body)
    poll_until(device, "FileNotCompatible")
