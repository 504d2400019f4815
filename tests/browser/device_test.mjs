// Files, with a device whose updater answers.

import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { existsSync } from "node:fs";
import { readFile, rm, writeFile } from "node:fs/promises";
import { beforeEach, test } from "node:test";
import { setScene, until } from "./scene.mjs";

const NAME = "Prime 32mm (é) #1.tab";
const FOLDERS = { lenstables: "/var/LDA", focusrings: "/var/FOR", setups: "/var/SETUPS" };

const { device, open } = await setScene({ simulation: ["--speed", "6"] });

let console, page;

beforeEach(async () => {
    console = await open({ view: "device" });
    ({ page } = console);
});

const answer = (name) => page.locator("#question").getByRole("button", { name }).click();

// Drops a file on an element, as the browser reports it.
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
        if (kind === "focusrings") await drop(list, NAME, content);
        else await list.locator("input[type=file]").setInputFiles({ name: NAME, mimeType: "", buffer: content });
        await entry.waitFor();
        assert.ok((await readFile(path)).equals(content), "the file arrived equal");
        const download = page.waitForEvent("download");
        await entry.locator("a").click();
        assert.equal((await download).suggestedFilename(), NAME);
        assert.ok((await readFile(await (await download).path())).equals(content), "the file came down equal");
        await entry.getByRole("button", { name: "Delete" }).click();
        await answer("Cancel");
        assert.ok(existsSync(path), "nothing is deleted before the answer");
        await entry.getByRole("button", { name: "Delete" }).click();
        await answer("Delete");
        await until(() => entry.count(), 0, "an empty list");
        assert.ok(!existsSync(path));
    });
}

test("what another client stores is listed and not replaced unasked, and a problem is named as long as it lasts", async () => {
    const path = `${device.root}/var/SETUPS/shared.stp`;
    const list = page.locator("#file-list-setups");
    const file = { name: "shared.stp", mimeType: "", buffer: Buffer.from("mine") };
    const upload = () => list.locator("input[type=file]").setInputFiles(file);
    await until(() => list.innerText(), /No files|\.stp/, "the list");
    await writeFile(path, "theirs");
    await upload();
    await console.says("#question-text", "Replace shared.stp on the device?");
    await answer("Cancel");
    assert.equal(await readFile(path, "utf8"), "theirs");
    await until(() => list.locator("[data-file='shared.stp']").count(), 1, "the other client's file");
    for (const [status, outcome] of [[413, /^shared.stp is not stored: larger/], [504, /^It is unknown whether/]]) {
        await page.route("**/setups/file/*", (route) => route.fulfill({ status }));
        await upload();
        await answer("Replace");
        await console.says("#file-list-setups .note", outcome);
    }
    await rm(path);
    await until(() => list.locator("[data-file='shared.stp']").count(), 0, "a list that is read again by itself");
    await page.route("**/setups/list", (route) => route.fulfill({ status: 502 }));
    await until(() => list.innerText(), /Not listed/, "the problem");
    await page.unroute("**/setups/list");
    await until(() => list.innerText(), /^(?![^]*Not listed)/, "no problem any more");
});

test("updates of the virtual device run to their end, and one of no firmware is refused", async () => {
    const update = async (target, content, outcome) => {
        const option = page.locator("#firmware-target option").filter({ hasText: target });
        await until(() => option.count(), 1, `${target} to choose`);
        await page.locator("#firmware-target").selectOption(await option.getAttribute("value"));
        await page.locator("#firmware-file").setInputFiles({ name: "file.cmf", mimeType: "", buffer: Buffer.from(content) });
        await page.locator("#firmware-form [type=submit]").click();
        await answer("Update");
        await console.says("#firmware-state", outcome);
    };
    await update("Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.0.0;2\n", /^Updated: .*→ 2.0.0/);
    await update("Ultrasonic Ranger", "no firmware at all\n", /^Not updated: .*corrupt/);
    await update("Lens Control", "firmware;Lens Control;4.3.0;1\n", /^Updated: .*→ 4.3.0/);
    await update("Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.1.0;4;fails\n", /^Not updated: .*fail/);
});

test("a name that the service does not escape is read as it is", async () => {
    const name = 'B "\\new"';
    await fetch(`${device.url}/api/v1/set.cgi`, { method: "POST", body: `{"MemPersistent": {"ProductName": '${name}'}}` });
    await console.says("#device-identity dd", name);
    await until(() => page.locator("#firmware-target option").nth(1).innerText(), `${name} (this device)`, "the target");
});
