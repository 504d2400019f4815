"""Runs inside the container: the installed virtual device without a service, for the unit's service to run on. It tells
the unit where the device is, and nothing else.
"""

import signal
import subprocess
import sys
from pathlib import Path

FOLDER = "/usr/lib/webservice-virtualdevice"
DROP_IN = Path("/run/systemd/system/webservice.service.d/virtual.conf")
# What the service writes goes where the unit lets it.
WRITTEN = ("/update", "/var/LDA", "/var/FOR", "/var/SETUPS")
NAMES = ("PATH", "LD_PRELOAD", "VIRTUAL_DEVICE_ROOT", "VIRTUAL_DEVICE_NAME", "VIRTUAL_DEVICE_PORT")

sys.path.insert(0, FOLDER + "/device/launcher")
from virtualdevice import VirtualDevice

signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
with VirtualDevice(FOLDER, service=False, fcgi_port=9000) as device:
    environment = device.environment()
    # The device lies in /tmp, of which the service has one of its own.
    lines = [f"BindPaths={device.root}", *(f'Environment="{name}={environment[name]}"' for name in NAMES)]
    for folder in WRITTEN:
        device.path(folder).rmdir()
        device.path(folder).symlink_to(folder)
    DROP_IN.parent.mkdir(parents=True, exist_ok=True)
    DROP_IN.write_text("[Service]\n" + "\n".join(lines) + "\n")
    subprocess.run(["systemctl", "daemon-reload"], check=True)
    signal.sigwait({signal.SIGTERM})
