// Variables: what the device changes is seen, what a person changes is stored, what is not stored is said to be so.

import assert from "node:assert/strict";
import { after, before, beforeEach, afterEach, test } from "node:test";
import { Console, launchBrowser, until } from "./console.mjs";
import { Device } from "./device.mjs";

let device, browser, console;

before(async () => {
    [device, browser] = await Promise.all([Device.start(), launchBrowser()]);
});
after(async () => {
    await browser.close();
    await device.stop();
});
beforeEach(async () => {
    console = await Console.open(browser, device.url);
});
afterEach(() => console.close());

test("a change that the device makes appears, and is marked for a moment", async () => {
    const variable = "MemPersistent.DisplayBrightness";
    await device.store(variable, 3);
    const row = await console.row(variable);
    await console.shows(variable, "3");
    const isMarked = () => row.evaluate((element) => element.classList.contains("changed"));
    await until(isMarked, false, "the mark's end");
    await device.store(variable, 8);
    await until(isMarked, true, "the mark");
    await console.shows(variable, "8");
    await until(isMarked, false, "the mark's end");
});

const fillInput = (text) => (editor) => editor.locator("input").first().fill(text);
const stored = /^stored/i;

const EDITS = {
    int: ["MemPersistent.ButtonBrightness", fillInput("4"), "4"],
    float: ["MemCamera.CamShutterCustomSet", fillInput("172.8"), "172.800003"],
    string: ["MemPersistent.ProductName", fillInput(`"A" <b>ü</b>`), `"A" <b>ü</b>`],
    enumeration: ["MemPersistent.KnobColor", (editor) => editor.locator("select").selectOption("Magenta"), "Magenta"],
    buffer: ["MemGuiLocal.RadioRegionFlags", (editor) => editor.locator("textarea").fill("0affC3"), "0affc3"],
};

for (const [type, [variable, fill, held]] of Object.entries(EDITS)) {
    test(`an edited ${type} arrives in the segment, and the page says that it is stored`, async () => {
        await console.edit(variable, fill, stored);
        assert.equal(await device.load(variable), held);
    });
}

test("a switch arrives in the segment, on and off", async () => {
    const variable = "MemPersistent.StealthMode";
    await device.store(variable, false);
    await console.row(variable);
    await console.shows(variable, /false|off/i);
    for (const held of ["true", "false"]) {
        const turn = (editor) => editor.locator("input[type=checkbox]").setChecked(held === "true");
        await console.edit(variable, turn, stored);
        assert.equal(await device.load(variable), held);
    }
});

test("an edited element of a list of structures arrives in that element only", async () => {
    const before = await device.load("MemLens.LensFileList");
    await console.edit("MemLens.LensFileList", async (editor) => {
        await editor.locator("input[name=Index]").fill("2");
        await console.page.keyboard.press("Tab");
        await editor.locator(`[name="LensFileName"]`).fill("Prime 50");
        await editor.locator(`[name="LensFileValid"]`).setChecked(true);
    }, stored);
    const expected = structuredClone(before);
    Object.assign(expected[2], { LensFileName: "Prime 50", LensFileValid: true });
    assert.deepEqual(await device.load("MemLens.LensFileList"), expected);
});

test("a refused number says so with its bounds, and nothing is stored", async () => {
    const variable = "MemPersistent.DisplayBrightness";
    await device.store(variable, 5);
    await console.edit(variable, fillInput("11"), /refused.*0 to 10/i);
    assert.equal(await device.load(variable), "5");
    await console.shows(variable, "5");
});

test("a text that is longer than its place says that it was cut", async () => {
    const typeAll = async (editor) => {
        const input = editor.locator("input").first();
        await input.evaluate((element) => element.removeAttribute("maxlength"));
        await input.fill("a text of more than 20 bytes");
    };
    await console.edit("MemPersistent.ProductName", typeAll, /cut to 19/);
    assert.equal(await device.load("MemPersistent.ProductName"), "a text of more than");
});

test("favourites stand in front and survive a reload", async () => {
    const row = await console.row("MemPersistent.StealthMode");
    await row.locator("button.pin").click();
    await console.page.reload();
    await console.isLive();
    const favourite = console.page.locator(`#favourites [data-variable="MemPersistent.StealthMode"]`);
    await until(() => favourite.locator("button.pin").getAttribute("aria-pressed"), "true", "the favourite");
    await favourite.locator("button.pin").click();
    await until(() => favourite.count(), 0, "no favourite");
});

test("the search looks through names, types and values", async () => {
    await device.store("MemPersistent.ProductName", "Needle");
    const isFound = async (text, variable) => {
        await console.search(text);
        await until(() => console.rowInView(variable).isVisible(), true, `${variable} for ${text}`);
    };
    await isFound("stealthm", "MemPersistent.StealthMode");
    await isFound("KnobColor", "MemPersistent.KnobColor");
    await console.search("");
    await console.shows("MemPersistent.ProductName", "Needle");
    await isFound("Needle", "MemPersistent.ProductName");
    await console.search("no such thing anywhere");
    await until(() => console.page.locator("[data-variable]:visible").count(), 0, "nothing found");
});

test("a value that cannot be printed costs that value, not the page", async () => {
    await device.ask("spoil", { variable: "MemPersistent.ProductName" });
    const next = await Console.open(browser, device.url);
    await next.row("MemPersistent.DisplayBrightness");
    await next.shows("MemPersistent.DisplayBrightness", /^\d+$/);
    await device.store("MemPersistent.ButtonBrightness", 9);
    await next.row("MemPersistent.ButtonBrightness");
    await next.shows("MemPersistent.ButtonBrightness", "9");
    await device.store("MemPersistent.ProductName", "Printable");
    await next.row("MemPersistent.ProductName");
    await next.shows("MemPersistent.ProductName", "Printable");
    await next.close();
});
