// Snapshots of parameters: what differs is shown, and what is restored is in the device.

import assert from "node:assert/strict";
import { test } from "node:test";
import { saved, setScene, until } from "./scene.mjs";

const BRIGHTNESS = "MemPersistent.DisplayBrightness";
const LIST = "MemLens.LensFileList";
const CHANGES = { [BRIGHTNESS]: 2, "MemPersistent.KnobColor": "Magenta", "MemPersistent.ProductName": "Other, ü",
    "MemCamera.CamShutterCustomSet": 90.5, [LIST]: { Index: 2, LensFileName: "Prime 50" } };
const PLACES = [...Object.keys(CHANGES).slice(0, 4), `${LIST}[2].LensFileName`];

const { device, open } = await setScene();

const places = (page) => page.locator("#snapshot-rows tr").evaluateAll((rows) => rows.map((row) => row.dataset.place).sort());
const count = (console, text) => console.says("#snapshot-count", text);
const load = () => Promise.all(Object.keys(CHANGES).map((variable) => device.load(variable)));
const choose = (page, id, name, text) => page.locator(id).setInputFiles({ name, mimeType: "", buffer: Buffer.from(text) });

async function taken(console) {
    await console.page.locator("#snapshot-take").click();
    await count(console, /^Nothing differs/);
    return saved(console.page, () => console.page.locator("#snapshot-save").click());
}

test("what differs from a snapshot is shown and restored, in the view and in the search", async () => {
    await device.store(BRIGHTNESS, 7);
    const console = await open({ view: "snapshot" });
    const { page } = console;
    const before = await load();
    await taken(console);
    for (const [variable, value] of Object.entries(CHANGES)) await device.store(variable, value);
    await console.go("variables");
    await page.locator("#only").selectOption("snapshot");
    await until(() => page.locator("#results > li").count(), PLACES.length, "variables that differ");
    await console.go("snapshot");
    await page.locator("#snapshot-compare").press("Enter");
    await until(() => places(page), PLACES.toSorted(), "what differs");
    await page.locator("#snapshot-all").press("Space");
    await page.locator("#snapshot-restore").press("Enter");
    await page.locator("#question [value=yes]").press("Enter");
    await count(console, `${PLACES.length} stored, 0 not stored, 0 not sent.`);
    assert.deepEqual(await load(), before);
});

test("a snapshot that no file has is replaced after a question only, also after a reload and by another tab", async () => {
    const console = await open({ view: "snapshot" });
    await console.page.locator("#snapshot-take").click();
    await count(console, /^Nothing differs/);
    await console.page.reload();
    const other = await open({ view: "snapshot", context: console.page.context() });
    for (const tab of [console, other]) {
        await tab.page.locator("#snapshot-take").click();
        await tab.says("#question[open] #question-text", /not saved as a file/);
        await tab.page.locator("#question [value=no]").click();
    }
});

test("each value that is not restored says why, and the others are stored", async () => {
    await device.store(BRIGHTNESS, 5);
    const console = await open({ view: "snapshot" });
    const { page } = console;
    const snapshot = JSON.parse(await taken(console));
    Object.assign(snapshot.memories.MemPersistent, { DisplayBrightness: "11", KnobBrightness: "1", Gone: "1", ProductName: `"'` });
    await device.store("MemPersistent.KnobBrightness", 2);
    await choose(page, "#snapshot-open", "edited.json", JSON.stringify(snapshot));
    await until(async () => (await places(page)).length, 4, "what differs");
    await page.locator("#snapshot-all").press("Space");
    await page.locator("#snapshot-restore").press("Enter");
    await page.locator("#question [value=yes]").press("Enter");
    await count(console, "1 stored, 2 not stored, 0 not sent.");
    for (const [name, outcome] of [["DisplayBrightness", "refused: 0 to 10"], ["KnobBrightness", "stored"],
        ["ProductName", /^not sent: .*quotes/], ["Gone", "not on this device"]]) {
        await console.says(`[data-place="MemPersistent.${name}"] .outcome`, outcome);
    }
    assert.deepEqual([await device.load(BRIGHTNESS), await device.load("MemPersistent.KnobBrightness")], ["5", "1"]);
});

test("a browser that keeps nothing is named, for snapshots and layouts", async () => {
    const prepare = (page) => page.addInitScript(() => { Storage.prototype.setItem = () => { throw new DOMException("", "QuotaExceededError"); }; });
    const console = await open({ view: "snapshot", prepare });
    await console.page.locator("#snapshot-take").click();
    await console.says("#snapshot-note", /^Snapshot of.*cannot keep it/);
    await console.go("watch");
    await console.page.locator("#watch-layouts summary").click();
    await console.page.locator("#layout-name").fill("focus pull");
    await console.page.locator("#layout-name").press("Enter");
    await console.says("#layout-note", /^focus pull: it ends with this page/);
});

test("a restore that is stopped ends behind the value on its way, however often the button is pressed", async () => {
    const console = await open({ view: "snapshot" });
    const { page } = console;
    await taken(console);
    for (const name of ["KnobBrightness", "ButtonBrightness"]) await device.store(`MemPersistent.${name}`, 9);
    await until(async () => {
        await page.locator("#snapshot-compare").click();
        return (await places(page)).length;
    }, 2, "what differs");
    await page.locator("#snapshot-all").check();
    await device.whileFrozen(async () => {
        await page.locator("#snapshot-restore").click();
        await page.locator("#question [value=yes]").click();
        for (const label of ["Stop", "Stopping …"]) {
            await console.says("#snapshot-restore", label);
            await page.locator("#snapshot-restore").click();
        }
    });
    await count(console, "1 stored, 0 not stored, 1 not sent.");
});
