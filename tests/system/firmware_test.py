"""Firmware updates with a simulation that carries them out."""

import json
import random

import pytest

from app_test import ACCESSORY, OUR_ID, ask, upload
from systemdevice import wait_until

ORDER = ["FileValid", "CopyingFile", "Rebooting", "Success"]


@pytest.fixture(scope="module")
def device_options():
    return {"simulation": ("--speed", "8")}


def poll_until(device, end):
    """Polls as the app does, and returns the states and the progress values up to the state `end`.

    The final state of an update remains until the next update begins.
    """
    seen = []

    def is_over():
        seen.append(json.loads(ask(device, "/device/status")))
        return seen[-1]["status"] == end

    wait_until(is_over, f"an update with {end}")
    return [status["status"] for status in seen], [status["progress"] for status in seen]


def info(device):
    return json.loads(ask(device, "/device/info"))


def accessory(device):
    return next(row for row in info(device)["devices"] if row["_id"] == ACCESSORY)


def test_own_update_runs_to_its_end(device, events):
    content = b"firmware;Lens Control;4.3.0;1\n" + random.randbytes(100_000)
    before = device.read("MemExternalDevices", 3396, 264)
    upload(device, OUR_ID, content)
    assert device.path("/update/host.swu").read_bytes() == content
    assert not device.path("/update/file-from-app").exists()
    states, progresses = poll_until(device, "Success")
    assert "Rebooting" in states, "a valid file is reported as rebooting"
    assert set(progresses) == {0}
    assert info(device)["firmwareversion"] == "4.3.0"
    assert device.read("MemExternalDevices", 3396, 264) == before, "the accessories' update variables are unchanged"
    seen = []
    wait_until(lambda: seen.extend(event[0] for event in events.posted()) or seen.count(884) >= 2, "the start flag")
    assert seen.count(884) == 2, "raised once and lowered once"
    upload(device, OUR_ID, b"not firmware")
    assert "CopyingFile" not in poll_until(device, "FileCorrupt")[0]


def test_accessory_update_runs_part_by_part(device):
    device.end("service")
    device.start_service()
    body = b"firmware;Ultrasonic Ranger;2.0.0;4\n"
    assert accessory(device) == {"_id": ACCESSORY, "name": "Ultrasonic Ranger", "serialnumber": "5512",
                                 "firmwareversion": "1.9.0"}
    upload(device, ACCESSORY, body)
    assert device.path("/update/client.cmf").read_bytes() == body
    states, progresses = poll_until(device, "Success")
    assert "FileValid" in states, "the poll that reads this state starts the update"
    places = [ORDER.index(state) for state in states[states.index("FileValid"):]]
    assert places == sorted(places), "a slow poll may miss states"
    assert progresses[-1] == max(progresses) == 100
    wait_until(lambda: accessory(device)["firmwareversion"] == "2.0.0", "the accessory's new version")
    upload(device, ACCESSORY, body.replace(b"\n", b";fails\n"))  # the same file name is a change, too
    poll_until(device, "Failed")
    upload(device, "Motor Controller-31044", body)
    poll_until(device, "FileNotCompatible")
