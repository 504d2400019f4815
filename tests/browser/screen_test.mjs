// The display on the page.

import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { open as openFile, readFile } from "node:fs/promises";
import { test } from "node:test";
import { setTimeout as pause } from "node:timers/promises";
import { setScene, until } from "./scene.mjs";

const WIDTH = 320;
const HEIGHT = 240;

const { device, browser, open } = await setScene({ screen: [WIDTH, HEIGHT] });

// The pixels of the canvas in Base64.
function drawn(canvas) {
    const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    return btoa(Array.from(data, (byte) => String.fromCharCode(byte)).join(""));
}

// Fills what is on display, the first of the framebuffer's three buffers, with noise, and returns its pixels as drawn.
async function paint() {
    const pixels = randomBytes(WIDTH * HEIGHT * 4).map((byte, at) => (at % 4 === 3 ? 255 : byte));
    const display = await openFile(`${device.root}/dev/fb0`, "r+"); // never shorter: a picture may be on its way
    await display.write(pixels, 0, pixels.length, 0);
    await display.close();
    return pixels.map((byte, at) => pixels[at + [2, 0, -2, 0][at % 4]]).toString("base64"); // red is first there
}

test("the picture has every pixel of the display, follows it, and is saved as captured", async () => {
    const first = await paint();
    const { page } = await open({ view: "screen" });
    const pixels = () => page.locator("#screen-image").evaluate(drawn);
    await until(pixels, first, "the first picture");
    await until(pixels, await paint(), "the second picture");
    const download = page.waitForEvent("download");
    await page.locator("#screen-save").click();
    const saved = await readFile(await (await download).path());
    const captured = await fetch(`${device.url}/api/v1/screen.cgi`);
    assert.deepEqual(saved, Buffer.from(await captured.arrayBuffer()));
});

// How many pictures the service has been asked for.
const asked = async () => (await readFile(`${device.root}/dev/kmsg`, "utf8")).split(", /api/v1/screen.cgi)").length;

// Waits until so many more are asked for, and returns the seconds that it took; `each` runs meanwhile.
async function seconds(count, each = () => {}) {
    const [begun, before] = [performance.now(), await asked()];
    await until(async () => {
        await each();
        return (await asked()) - before >= count;
    }, true, "pictures");
    return (performance.now() - begun) / 1000;
}

test("all tabs together ask for one picture a second, for five while it changes, more on demand, none in other views", async () => {
    await device.store("MemApp.AppServiceLogLevel", "DebugMost");
    const context = await browser.newContext();
    const tabs = [];
    while (tabs.length < 4) tabs.push(await open({ view: "screen", context }));
    for (const { page } of tabs) await until(() => page.locator("#screen-save").isEnabled(), true, "a picture");
    // Requests that were held up come together, so one measurement may be too short.
    await until(async () => await seconds(4) > 2.9, true, "one a second, from the first that is the same");
    await until(async () => await seconds(20, paint) > 3.7, true, "five a second");
    await tabs[0].page.locator("#screen-fast").click();
    await tabs[1].says("#screen-fast", "Fast");
    let fastest = Infinity;
    await until(async () => (fastest = Math.min(fastest, await seconds(2))) < 0.3, true, "without a rest");
    for (const console of tabs) await console.go("variables");
    await tabs[0].edit("MemPersistent.DisplayBrightness", (form) => form.locator("input").fill("1"), "stored");
    const before = await asked();
    for (const value of [2, 3, 4]) await tabs[0].edit("MemPersistent.DisplayBrightness", (form) => form.locator("input").fill(String(value)), "stored");
    assert.equal(await asked(), before);
});

test("a slow service is asked for a picture in a tenth of the time at most", async () => {
    const ANSWER_MS = 150;
    const begun = [];
    const slowly = async (route) => {
        begun.push(performance.now());
        await pause(ANSWER_MS);
        await route.continue();
    };
    await open({ view: "screen", prepare: (page) => page.route("**/screen.cgi", slowly) });
    await until(() => begun.length >= 3, true, "pictures");
    assert.ok(begun[2] - begun[0] >= 2 * 9 * ANSWER_MS, `${begun}`);
});

test("a frozen service is named, and its pictures come as often as before when it continues", async () => {
    const console = await open({ view: "screen" });
    await console.says("#screen-note", /pictures/);
    await device.whileFrozen(async () => {
        await console.says("#screen-note", /^No picture for 2 s/);
        await pause(6000); // ten times that is longer than any wait here
    });
    await console.says("#screen-note", /[1-5]\.\d pictures/);
    await console.page.locator("#screen-pause").click();
    await console.says("#screen-note", /^Paused/);
});
