"""Shows the brightness of the lights, sets that of the display, also only if it has not changed, and tries a value that is
refused:

    python3 example.py http://192.168.1.20
"""

import sys

from controller import Changed, Controller, Refused, element


def main(address: str) -> None:
    controller = Controller(address)
    before = controller.read().values["MemPersistent.DisplayBrightness"]
    new = (before + 1) % 10
    controller.set({"MemPersistent.DisplayBrightness": new})

    for changed in controller.watch("MemPersistent.*Brightness"):
        for name, brightness in changed.items():
            print(name, brightness)
        if changed.get("MemPersistent.DisplayBrightness") == new:
            break

    version = controller.read("MemPersistent.DisplayBrightness").version
    controller.set({"MemPersistent.DisplayBrightness": before})
    try:
        controller.set({"MemPersistent.DisplayBrightness": 10}, unchanged_since=version)
    except Changed as error:
        print("The brightness has changed to", error.values["MemPersistent.DisplayBrightness"])
        controller.set({"MemPersistent.DisplayBrightness": 10}, unchanged_since=error.version)

    try:
        controller.set({"MemPersistent.DisplayBrightness": 11},
                       element("MemLens.LensFileList", 2, {"LensFileName": "Prime 50"}))
    except Refused as error:
        for refusal in error.refusals:
            print(refusal["message"])


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
