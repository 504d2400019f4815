// Files and firmware, with a device whose updater answers.

import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { readFile } from "node:fs/promises";
import { after, afterEach, before, beforeEach, test } from "node:test";
import { Console, launchBrowser, until } from "./console.mjs";
import { Device } from "./device.mjs";

let device, browser, console, page;

before(async () => {
    [device, browser] = await Promise.all([Device.start({ simulation: ["--speed", "15"] }), launchBrowser()]);
});
after(async () => {
    await browser.close();
    await device.stop();
});
beforeEach(async () => {
    console = await Console.open(browser, device.url, { view: "device" });
    page = console.page;
});
afterEach(() => console.close());

const NAME = "Prime 32mm (é) #1.tab";
const FOLDERS = { lenstables: "/var/LDA", focusrings: "/var/FOR", setups: "/var/SETUPS" };

const listOf = (kind) => page.locator(`#file-list-${kind}`);
// What holds the list and the way to upload.
const areaOf = (kind) => listOf(kind).locator("xpath=ancestor-or-self::*[.//input[@type='file']][1]");
const entryOf = (kind) => listOf(kind).locator("li, tr").filter({ hasText: NAME });

// Drops a file on an element, as the browser tells it.
async function drop(target, name, content) {
    const transfer = await page.evaluateHandle(([title, text]) => {
        const result = new DataTransfer();
        result.items.add(new File([Uint8Array.from(atob(text), (c) => c.charCodeAt(0))], title));
        return result;
    }, [name, content.toString("base64")]);
    for (const type of ["dragenter", "dragover", "drop"]) await target.dispatchEvent(type, { dataTransfer: transfer });
}

const WAYS = {
    lenstables: (content) =>
        areaOf("lenstables").locator("input[type=file]").setInputFiles({ name: NAME, mimeType: "", buffer: content }),
    focusrings: (content) => drop(listOf("focusrings"), NAME, content),
    setups: (content) =>
        areaOf("setups").locator("input[type=file]").setInputFiles({ name: NAME, mimeType: "", buffer: content }),
};

for (const [kind, upload] of Object.entries(WAYS)) {
    test(`a file goes up and comes down equal, and is deleted after a question: ${kind}`, async () => {
        const content = randomBytes(200_000);
        const path = `${FOLDERS[kind]}/${NAME}`;
        await upload(content);
        await entryOf(kind).waitFor();
        assert.ok((await device.file(path)).equals(content), "the file arrived equal");
        const download = page.waitForEvent("download");
        await entryOf(kind).locator("a[href]").first().click();
        const file = await download;
        assert.equal(file.suggestedFilename(), NAME);
        assert.ok((await readFile(await file.path())).equals(content), "the file came down equal");
        const remove = entryOf(kind).getByRole("button", { name: /delete/i });
        await remove.click();
        const question = page.locator("dialog[open]");
        await question.getByRole("button", { name: /keep|cancel|no/i }).first().click();
        assert.ok(await device.file(path), "nothing is deleted before the answer");
        await remove.click();
        await question.getByRole("button", { name: /delete|yes/i }).first().click();
        await until(() => entryOf(kind).count(), 0, "an empty list");
        assert.equal(await device.file(path), null);
    });
}

async function update(target, content) {
    const form = page.locator("#firmware-form");
    const option = form.locator("select option").filter({ hasText: target });
    await until(() => option.count(), 1, `${target} to choose`);
    await form.locator("select").selectOption({ label: (await option.innerText()).trim() });
    await form.locator("input[type=file]").setInputFiles({ name: "file.cmf", mimeType: "", buffer: Buffer.from(content) });
    await form.locator("button[type=submit]").click();
}

// Lets the page remember what it said about the update, and returns a way to ask for that.
async function recordStates() {
    await page.locator("#firmware-state").evaluate((output) => {
        globalThis.states = [];
        const note = () => globalThis.states.push(output.textContent);
        new MutationObserver(note).observe(output, { childList: true, characterData: true, subtree: true });
    });
    return () => page.evaluate(() => globalThis.states.join("\n"));
}

const state = () => page.locator("#firmware-state").innerText();
const progress = () => page.locator("#firmware-progress").evaluate((bar) => bar.value / bar.max);

test("the identity and the accessories are those of the device", async () => {
    const identity = page.locator("#device-identity");
    await until(() => identity.innerText(), /K1-00042/, "the serial number");
    await until(() => page.locator(`section[data-view="device"]`).innerText(), /Ultrasonic Ranger/, "the accessory");
});

test("an accessory's update runs to its end, and one that fails says so", async () => {
    const states = await recordStates();
    await update("Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.0.0;4\n");
    await until(state, /success|updated|done/i, "the end of the update");
    assert.match(await states(), /upload[^]*check[^]*copying[^]*%/i);
    assert.equal(await progress(), 1);
    await until(() => page.locator(`section[data-view="device"]`).innerText(), /2\.0\.0/, "the new version");
    await update("Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.1.0;4;fails\n");
    await until(state, /fail/i, "the failure");
    await update("Ultrasonic Ranger", "no firmware at all\n");
    await until(state, /corrupt/i, "the refusal");
});

test("the device's own update runs to its end", async () => {
    await update("Lens Control", "firmware;Lens Control;4.3.0;1\n");
    await until(state, /success|updated|done/i, "the end of the update");
    assert.equal(await progress(), 1);
    await until(() => page.locator("#device-identity").innerText(), /4\.3\.0/, "the new version");
});
