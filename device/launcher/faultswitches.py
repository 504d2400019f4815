"""Switches for faults in one process of a virtual device, as device/preload/faultswitches.h describes them.

    switches = FaultSwitches(device.path("/tmp/faults"))
    start the process with device.environment() | switches.environment
    switches.set("descriptors", 30)
"""

import struct

WORD = struct.Struct("=i")
PLACES = {name: WORD.size * place for place, name in enumerate(("read_bytes", "descriptors", "full_disk", "clock_step_s"))}


class FaultSwitches:
    """All switches are off at first.

    environment   the variable that puts a process under the switches
    """

    def __init__(self, file):
        self._file = open(file, "w+b", buffering=0)
        self._file.write(bytes(WORD.size * len(PLACES)))
        self.environment = {"VIRTUAL_DEVICE_FAULTS": str(file)}

    def set(self, name, value):
        """Sets a switch, for example set("full_disk", 1); 0 is off. The process sees it immediately."""
        self._file.seek(PLACES[name])
        self._file.write(WORD.pack(value))
