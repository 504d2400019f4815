// Variables: what the device changes is seen, what a person changes is stored, what is not stored is said to be so.

import assert from "node:assert/strict";
import { test } from "node:test";
import { until } from "./console.mjs";
import { setScene } from "./scene.mjs";

const { device, open } = await setScene();

test("a change that the device makes appears, and is marked for a moment", async () => {
    const variable = "MemPersistent.DisplayBrightness";
    await device.store(variable, 3);
    const console = await open();
    const row = await console.row(variable);
    await console.shows(variable, "3");
    await row.evaluate((node) => {
        globalThis.marks = [];
        const note = () => globalThis.marks.push(node.classList.contains("changed"));
        new MutationObserver(note).observe(node, { attributeFilter: ["class"] });
    });
    await device.store(variable, 8);
    await console.shows(variable, "8");
    await until(() => console.page.evaluate(() => globalThis.marks), [true, false], "a mark, and its end");
});

const choose = (text) => (editor) => editor.locator("select").selectOption(text);
const turn = (isOn) => (editor) => editor.locator("input[type=checkbox]").setChecked(isOn);
const type = (text) => async (editor) => {
    const input = editor.locator("input, textarea").first();
    await input.evaluate((element) => element.removeAttribute("maxlength"));
    await input.fill(text);
};
const stored = /^stored$/;

const EDITS = [
    ["MemPersistent.ButtonBrightness", type("4"), stored, "4"],
    ["MemCamera.CamShutterCustomSet", type("172.8"), stored, "172.800003"],
    ["MemPersistent.KnobColor", choose("Magenta"), stored, "Magenta"],
    ["MemGuiLocal.RadioRegionFlags", type("0affC3"), stored, "0affc3"],
    ["MemPersistent.StealthMode", turn(true), stored, "true"],
    ["MemPersistent.StealthMode", turn(false), stored, "false"],
    ["MemPersistent.ProductName", type(`"A" <b>ü</b>`), stored, `"A" <b>ü</b>`],
    ["MemPersistent.ProductName", type("a text of more than 20 bytes"), /cut to 19/, "a text of more than"],
    ["MemPersistent.DisplayBrightness", type("11"), /refused.*0 to 10/i, "5"],
];

test("an edit of each type arrives in the segment or is refused, and the page says what became of it", async () => {
    await device.store("MemPersistent.DisplayBrightness", 5);
    const console = await open();
    for (const [variable, fill, outcome, held] of EDITS) {
        await console.edit(variable, fill, outcome);
        assert.equal(await device.load(variable), held, variable);
    }
    await console.shows("MemPersistent.DisplayBrightness", "5");
});

test("an edited element of a list of structures arrives in that element only", async () => {
    const expected = await device.load("MemLens.LensFileList");
    const console = await open();
    await console.edit("MemLens.LensFileList", async (editor) => {
        await editor.locator("input[name=Index]").fill("2");
        await console.page.keyboard.press("Tab");
        await editor.locator("[name=LensFileName]").fill("Prime 50");
        await editor.locator("[name=LensFileValid]").setChecked(true);
    }, stored);
    Object.assign(expected[2], { LensFileName: "Prime 50", LensFileValid: true });
    assert.deepEqual(await device.load("MemLens.LensFileList"), expected);
});

test("the search looks through names, types and values, and a favourite survives a reload in front", async () => {
    await device.store("MemPersistent.ProductName", "Needle");
    const console = await open();
    const searches = [["stealthm", "StealthMode"], ["KnobColor", "KnobColor"], ["Needle", "ProductName"]];
    for (const [text, name] of searches) {
        await console.search(text);
        await until(() => console.rowInView(`MemPersistent.${name}`).isVisible(), true, `${name} for ${text}`);
    }
    await console.search("no such thing anywhere");
    await until(() => console.page.locator("[data-variable]:visible").count(), 0, "nothing found");
    await (await console.row("MemPersistent.StealthMode")).locator("button.pin").click();
    await console.page.reload();
    const pin = console.page.locator(`#favourites [data-variable="MemPersistent.StealthMode"] button.pin`);
    await until(() => pin.count(), 1, "the favourite");
    await pin.click();
    await until(() => pin.count(), 0, "no favourite");
});

test("a value that cannot be printed costs that value, not the page", async () => {
    await device.store("MemPersistent.ProductName", null);
    const console = await open();
    await console.shows("MemPersistent.DisplayBrightness", /^\d+$/);
    await device.store("MemPersistent.ProductName", "Printable");
    await console.shows("MemPersistent.ProductName", "Printable");
});
