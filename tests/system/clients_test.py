"""The TypeScript and the Python client on a virtual device: their examples, watching across lost connections, and sets of
unchanged variables only.
"""

import json
import os
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from systemdevice import BUILD, WAIT_SECONDS, wait_until

CLIENTS = Path(BUILD, "generated/clients").resolve()
sys.path.insert(0, str(CLIENTS / "python"))

from controller import Changed, Controller, Refused  # pylint: disable=import-error; the build generates it

BRIGHTNESS = ["MemPersistent.ButtonBrightness", "MemPersistent.DisplayBrightness", "MemPersistent.KnobBrightness"]
WATCH = {
    "python": """
import json, sys
from controller import Controller
for changed in Controller(sys.argv[1]).watch("MemPersistent.*Brightness"):
    print(json.dumps(changed), flush=True)
""",
    "typescript": """
import { Controller } from "./controller.js";
const watch = new Controller(process.argv[2]).watch(["MemPersistent.*Brightness"],
                                                    (changed) => console.log(JSON.stringify(changed)));
await watch.ended;
""",
}


@pytest.fixture(scope="module")
def device_options(web_server):
    return {web_server: True, "live": True}


@pytest.fixture(params=["python", "typescript"])
def language(request):
    missing = [name for name in ("node", "esbuild") if shutil.which(name) is None]
    if request.param == "typescript" and missing:
        pytest.skip(f"no {missing} on the PATH")
    return request.param


def command(language, text, folder, url):
    """Runs a program that is beside the client. For TypeScript its types are removed; the generator's tests check them."""
    if language == "python":
        return [sys.executable, "-B", "-c", text, url]
    bundle = folder / "program.mjs"
    subprocess.run(["esbuild", "--bundle", "--format=esm", "--platform=node", "--loader=ts", f"--outfile={bundle}"],
                   input=text, cwd=CLIENTS / "typescript", text=True, capture_output=True, check=True)
    return ["node", bundle, url]


def test_example_shows_changes_and_refusals(device, language, tmp_path):
    suffix = {"python": "py", "typescript": "ts"}[language]
    program = command(language, (CLIENTS / language / f"example.{suffix}").read_text(), tmp_path, device.url)
    before = json.loads(device.http("/api/v2/values")[2])
    output = subprocess.run(program, cwd=CLIENTS / language, capture_output=True, text=True, check=True,
                            timeout=WAIT_SECONDS).stdout.splitlines()
    assert f"MemPersistent.DisplayBrightness {(before['MemPersistent.DisplayBrightness'] + 1) % 10}" in output
    assert output[-2:] == [f"The brightness has changed to {before['MemPersistent.DisplayBrightness']}",
                           "MemPersistent.DisplayBrightness: 11 is not between 0 and 10"]
    after = json.loads(device.http("/api/v2/values")[2])
    assert after["MemPersistent.DisplayBrightness"] == 10
    assert after["MemLens.LensFileList"] == before["MemLens.LensFileList"]


def test_watching_continues_after_lost_connections(device, web_server, language, tmp_path):
    program = command(language, WATCH[language], tmp_path, device.url)

    def set_brightness(value):
        device.ask("/api/v1/set.cgi", json.dumps({"MemPersistent": {"ButtonBrightness": value}}).encode())

    with open(tmp_path / "seen", "wb") as output, subprocess.Popen(
            program, cwd=CLIENTS / language, stdout=output, env={**os.environ, "PYTHONUNBUFFERED": "1"}) as process:

        def seen():
            return [json.loads(line) for line in (tmp_path / "seen").read_bytes().split(b"\n")[:-1]]

        def wait_for(changed, what):
            wait_until(lambda: seen()[-1:] == [changed], what)

        try:
            wait_until(seen, "the present values")
            present = seen()[0]
            assert set(BRIGHTNESS) <= set(present)
            device.end(web_server)
            set_brightness(2)
            set_brightness(3)
            getattr(device, f"start_{web_server}")()
            wait_for({"MemPersistent.ButtonBrightness": 3}, "what changed without the web server")
            device.end("live")
            set_brightness(4)
            device.start_live()
            wait_for({**present, "MemPersistent.ButtonBrightness": 4}, "all values after a restart")
        finally:
            process.terminate()


def test_answers_are_read_packed_and_plain(device):
    controller = Controller(device.url)
    answer = controller._ask("GET", "/values")  # pylint: disable=protected-access
    assert answer.getheader("Content-Encoding") == "gzip"
    assert controller.values() == Controller(f"{device.url}/", {"Accept-Encoding": "identity"}).values()
    with pytest.raises(Refused, match="NoSuch does not match any variable"):
        controller.values("NoSuch")
    with pytest.raises(ValueError, match="is not an address"):
        Controller(device.url.partition("//")[2])


def test_none_of_many_increments_is_lost(device):
    name = BRIGHTNESS[0]

    def increment(controller):
        reading = controller.read(name)
        value, version = reading.values[name], reading.version
        while True:
            try:
                return controller.set({name: value + 1}, unchanged_since=version)
            except Changed as changed:
                value, version = changed.values[name], changed.version

    Controller(device.url).set({name: 0})
    with ThreadPoolExecutor() as threads:
        list(threads.map(increment, [Controller(device.url)] * 10))
    assert Controller(device.url).values(name) == {name: 10}
