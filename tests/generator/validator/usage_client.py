"""What the types of the Python client admit and refuse: mypy --strict reports a comment "type: ignore" without error."""

# pylint: disable=unsubscriptable-object,expression-not-assigned,import-error; mypy alone reads this file
from typing import Optional

from controller import Changed, Controller, Reading, SomeValues, Version, element

controller = Controller("http://127.0.0.1")
brightness: int = controller.values()["MemPersistent.DisplayBrightness"]
name: str = controller.values("MemMotors.*")["MemMotors.FocusMotor"]["MotorName"]
circle: Optional[float] = controller.values()["MemPersistent.CircleofConfusion"]
for changed in controller.watch("MemPersistent.*", "MemMotors.*", period_ms=100):
    if changed.get("MemPersistent.KnobAssignment") == "Iris":
        break
controller.set({"MemPersistent.DisplayBrightness": 7, "MemPersistent.KnobAssignment": "Iris"},
               element("MemLens.LensFileList", 2, {"LensFileName": "Prime 50"}))
controller.set({"MemMotors.FocusMotor": {"MotorName": "A"}, "MemPersistent.RadioModuleList": [{}, {}, {}]})
reading: Reading[SomeValues] = controller.read("MemPersistent.*Brightness")
try:
    version: Version = controller.set(
        {"MemPersistent.DisplayBrightness": reading.values["MemPersistent.DisplayBrightness"] + 1},
        unchanged_since=reading.version)
except Changed as error:
    brightness = error.values["MemPersistent.DisplayBrightness"]
    version = error.version

NUMBER: str = controller.values()["MemPersistent.DisplayBrightness"]  # type: ignore[assignment]
controller.values()["MemPersistent.DisplayBrightnes"]  # type: ignore[typeddict-item]
for changed in controller.watch("MemPersistent.*"):
    changed.get("MemPersistent.DisplayBrightnes", 0).real  # type: ignore[attr-defined]
controller.set({"MemPersistent.DisplayBrightnes": 7})  # type: ignore[typeddict-item]
controller.set({"MemPersistent.DisplayBrightness": "7"})  # type: ignore[typeddict-item]
controller.set({"MemPersistent.CircleofConfusion": None})  # type: ignore[typeddict-item]
controller.set({"MemPersistent.KnobAssignment": "Knob"})  # type: ignore[typeddict-item]
controller.set({"MemMotors.FocusMotor": {"MotorNam": "A"}})  # type: ignore[typeddict-item]
element("MemLens.LensFileLists", 2, {"LensFileName": "Prime 50"})  # type: ignore[call-overload]
element("MemLens.LensFileList", 2, {"LensFileNam": "Prime 50"})  # type: ignore[call-overload]
element("MemLens.LensFileList", 2, {"LensFileValid": "true"})  # type: ignore[call-overload]
controller.read().values["MemPersistent.DisplayBrightnes"]  # type: ignore[typeddict-item]
controller.set({"MemPersistent.DisplayBrightness": 7}, unchanged_since="1")  # type: ignore[arg-type]
