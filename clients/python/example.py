"""Shows the brightness of the lights, sets that of the display, and tries a value that is refused:

    python3 example.py http://192.168.1.20
"""

import sys

from controller import Controller, Refused, element


def main(address: str) -> None:
    controller = Controller(address)
    values = controller.values()
    new = (values["MemPersistent.DisplayBrightness"] + 1) % 10  # pylint: disable=unsubscriptable-object; it is overloaded
    controller.set({"MemPersistent.DisplayBrightness": new})

    for changed in controller.watch("MemPersistent.*Brightness"):
        for name, brightness in changed.items():
            print(name, brightness)
        if changed.get("MemPersistent.DisplayBrightness") == new:
            break

    try:
        controller.set({"MemPersistent.DisplayBrightness": 11},
                       element("MemLens.LensFileList", 2, {"LensFileName": "Prime 50"}))
    except Refused as error:
        for refusal in error.refusals:
            print(refusal["message"])


if __name__ == "__main__":
    main(sys.argv[1])
