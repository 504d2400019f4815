"""Runs a virtual device for device.mjs: prints its address and names as a line of JSON, then reads commands.

The argument has the launcher's options as JSON; "site" has, by the name of a file, a text in it and what replaces that.
The lines "end service" and "start service" end and start the service, or another part; each is answered by a line with its
process id. At the end of the input the device ends; status 0 says that all of its processes ended well.
"""

import json
import os
import signal
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "launcher"))

from virtualdevice import VirtualDevice

for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
    signal.signal(number, lambda *_: sys.exit(1))
options = json.loads(sys.argv[1])
options["site"] = {name: lambda text, words=words: text.replace(*words) for name, words in options.get("site", {}).items()}
with VirtualDevice(os.environ["SYSTEM_TEST_BUILD"], nginx=True, **options) as device:
    print(json.dumps({"url": device.url, "root": str(device.root), "name": device.name, **device.pids}), flush=True)
    for line in sys.stdin:
        word, name = line.split()
        if word == "end":
            device.end(name)
        else:
            getattr(device, f"start_{name}")()
        print(device.pids.get(name, 0), flush=True)
    died = device.ended()
sys.exit(str(device.exit_codes) if died or any(device.exit_codes.values()) else 0)
