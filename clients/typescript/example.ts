// Shows the brightness of the lights, sets that of the display, also only if it has not changed, and tries a value that is
// refused:
//
//     npm install && node compiled/example.js http://192.168.1.20
import { Changed, Controller, Refused } from "./controller.js";

declare const process: { argv: string[] };

const controller = new Controller(process.argv[2]);

const present = await controller.values("MemPersistent.DisplayBrightness");
const next = (present["MemPersistent.DisplayBrightness"] + 1) % 10;

const watch = controller.watch(["MemPersistent.*Brightness"], (changed) => {
    for (const [name, brightness] of Object.entries(changed)) console.log(name, brightness);
    if (changed["MemPersistent.DisplayBrightness"] === next) watch.end();
});
await controller.set({ "MemPersistent.DisplayBrightness": next });
await watch.ended;

const { version } = await controller.read("MemPersistent.DisplayBrightness");
await controller.set({ "MemPersistent.DisplayBrightness": present["MemPersistent.DisplayBrightness"] });
try {
    await controller.set({ "MemPersistent.DisplayBrightness": 10 }, version);
} catch (error) {
    if (!(error instanceof Changed)) throw error;
    console.log("The brightness has changed to", error.values["MemPersistent.DisplayBrightness"]);
    await controller.set({ "MemPersistent.DisplayBrightness": 10 }, error.version);
}

try {
    await controller.set({ "MemPersistent.DisplayBrightness": 11, "MemLens.LensFileList[2].LensFileName": "Prime 50" });
} catch (error) {
    if (!(error instanceof Refused)) throw error;
    for (const refusal of error.refusals) console.log(refusal.message);
}
