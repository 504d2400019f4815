// Files and firmware, with a device whose updater answers.

import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { existsSync } from "node:fs";
import { readFile } from "node:fs/promises";
import { beforeEach, test } from "node:test";
import { until } from "./console.mjs";
import { setScene } from "./scene.mjs";

const NAME = "Prime 32mm (é) #1.tab";
const FOLDERS = { lenstables: "/var/LDA", focusrings: "/var/FOR", setups: "/var/SETUPS" };

const { device, open } = await setScene({ simulation: ["--speed", "6"] });

let page;

beforeEach(async () => {
    ({ page } = await open({ view: "device" }));
});

// Drops a file on an element, as the browser tells it.
async function drop(target, name, content) {
    const dataTransfer = await page.evaluateHandle(([title, text]) => {
        const result = new DataTransfer();
        result.items.add(new File([Uint8Array.from(atob(text), (c) => c.charCodeAt(0))], title));
        return result;
    }, [name, content.toString("base64")]);
    for (const type of ["dragenter", "dragover", "drop"]) await target.dispatchEvent(type, { dataTransfer });
}

for (const [kind, folder] of Object.entries(FOLDERS)) {
    test(`a file goes up and comes down equal, and is deleted after a question: ${kind}`, async () => {
        const content = randomBytes(200_000);
        const path = `${device.root}${folder}/${NAME}`;
        const list = page.locator(`#file-list-${kind}`);
        const entry = list.locator("li").filter({ hasText: NAME });
        if (kind === "focusrings") {
            await drop(list, NAME, content);
        } else {
            await list.locator("input[type=file]").setInputFiles({ name: NAME, mimeType: "", buffer: content });
        }
        await entry.waitFor();
        assert.ok((await readFile(path)).equals(content), "the file arrived equal");
        const download = page.waitForEvent("download");
        await entry.locator("a").click();
        const file = await download;
        assert.equal(file.suggestedFilename(), NAME);
        assert.ok((await readFile(await file.path())).equals(content), "the file came down equal");
        await entry.getByRole("button", { name: "Delete" }).click();
        await page.locator("dialog").getByRole("button", { name: "Cancel" }).click();
        assert.ok(existsSync(path), "nothing is deleted before the answer");
        await entry.getByRole("button", { name: "Delete" }).click();
        await page.locator("dialog").getByRole("button", { name: "Delete" }).click();
        await until(() => entry.count(), 0, "an empty list");
        assert.ok(!existsSync(path));
    });
}

// Lets the page remember what it says about an update, and returns a way to ask for that.
async function recordStates() {
    await page.locator("#firmware-state").evaluate((output) => {
        globalThis.states = "";
        const note = () => { globalThis.states += `${output.textContent}\n`; };
        new MutationObserver(note).observe(output, { childList: true });
    });
    return () => page.evaluate(() => globalThis.states);
}

async function update(target, content, outcome) {
    const form = page.locator("#firmware-form");
    const option = form.locator("option").filter({ hasText: target });
    await until(() => option.count(), 1, `${target} to choose`);
    await form.locator("select").selectOption(await option.getAttribute("value"));
    await form.locator("input").setInputFiles({ name: "file.cmf", mimeType: "", buffer: Buffer.from(content) });
    await form.locator("button").click();
    await until(() => page.locator("#firmware-state").innerText(), outcome, `the end of: ${content}`);
}

test("an update runs to its end, and one that fails or is corrupt says so", async () => {
    const card = page.locator("#device-identity");
    await until(() => card.innerText(), /K1-00042[^]*Ultrasonic Ranger/, "the identity and the accessory");
    const states = await recordStates();
    // With so many parts that the page sees it being copied, however slow its machine is.
    await update("Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.0.0;16\n", /updated/i);
    assert.match(await states(), /upload[^]*check[^]*copying, \d+ %/i);
    assert.equal(await page.locator("#firmware-progress").evaluate((bar) => bar.value / bar.max), 1);
    await until(() => card.innerText(), /2\.0\.0/, "the new version");
    await update("Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.1.0;4;fails\n", /fail/i);
    await update("Ultrasonic Ranger", "no firmware at all\n", /corrupt/i);
    await update("Lens Control", "firmware;Lens Control;4.3.0;1\n", /updated/i);
    await until(() => card.innerText(), /4\.3\.0/, "the new version");
});
