// What the types of the TypeScript client admit and refuse.
import { Changed, Controller, type Changes } from "./client/controller.js";

const controller = new Controller();

export const right: Changes[] = [
    { "MemPersistent.DisplayBrightness": 7, "MemPersistent.KnobAssignment": "Iris" },
    { "MemLens.LensFileList[2]": { LensFileValid: true }, "MemLens.LensFileList[3].LensFileName": "Prime 50" },
    { "MemPersistent.RadioModuleList": [{}, { RadioModuleBoost: true }, {}] },
    { "MemMotors.FocusMotor": { MotorName: "A" }, "MemMotors.FocusMotor.MotorName": "A" },
];

export const wrong: Changes[] = [
    // @ts-expect-error There is no such variable.
    { "MemPersistent.DisplayBrightnes": 7 },
    // @ts-expect-error The value is a number.
    { "MemPersistent.DisplayBrightness": "7" },
    // @ts-expect-error A number that is not finite cannot be set.
    { "MemPersistent.CircleofConfusion": null },
    // @ts-expect-error There is no such entry.
    { "MemPersistent.KnobAssignment": "Knob" },
    // @ts-expect-error There is no such member.
    { "MemLens.LensFileList[2].LensFileNam": "Prime 50" },
    // @ts-expect-error The member is a boolean.
    { "MemLens.LensFileList[2]": { LensFileValid: "true" } },
    // @ts-expect-error The index is a number.
    { "MemLens.LensFileList[x].LensFileName": "Prime 50" },
    // @ts-expect-error The array has three elements.
    { "MemPersistent.RadioModuleList": [{}, {}] },
];

export async function read(): Promise<void> {
    const all = await controller.values();
    const some = await controller.values("MemMotors.Focus*", "DisplayBrightness");
    const brightness: number = some["MemPersistent.DisplayBrightness"] + all["MemPersistent.ButtonBrightness"];
    // @ts-expect-error No pattern names this variable.
    const other = some["MemPersistent.ButtonBrightness"];
    // @ts-expect-error The pattern names no variable.
    await controller.values("MemMotor.*");
    controller.watch(["MemMotors.*"], (changed) => console.log(changed["MemMotors.FocusMotor"]?.MotorName, brightness, other));
    // @ts-expect-error No pattern names this variable.
    controller.watch(["MemMotors.*"], (changed) => console.log(changed["MemPersistent.DisplayBrightness"]));
}

export async function setIfUnchanged(): Promise<void> {
    const { values, version } = await controller.read("DisplayBrightness");
    const next = { "MemPersistent.DisplayBrightness": values["MemPersistent.DisplayBrightness"] + 1 };
    try {
        await controller.set(next, await controller.set(next, version));
        // @ts-expect-error A version comes from the controller.
        await controller.set(next, "1");
    } catch (error) {
        if (!(error instanceof Changed)) throw error;
        const now: number | undefined = error.values["MemPersistent.DisplayBrightness"];
        const name: string | undefined = error.values["MemLens.LensFileList[2].LensFileName"];
        // @ts-expect-error There is no such variable.
        console.log(now, name, error.values["MemPersistent.DisplayBrightnes"]);
        await controller.set(next, error.version);
    }
}
