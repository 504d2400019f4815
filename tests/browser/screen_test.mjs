// The display on the page.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { after, before, test } from "node:test";
import { Console, launchBrowser, until } from "./console.mjs";
import { Device } from "./device.mjs";

let device, browser;

before(async () => {
    [device, browser] = await Promise.all([Device.start({ screen: [320, 240] }), launchBrowser()]);
});
after(async () => {
    await browser.close();
    await device.stop();
});

// What is drawn on the page: width, height and the pixels in Base64, without their transparency.
function drawn(image) {
    const width = image.naturalWidth ?? image.width;
    const height = image.naturalHeight ?? image.height;
    const copy = Object.assign(document.createElement("canvas"), { width, height });
    if (width === 0) return null;
    const pen = copy.getContext("2d");
    pen.drawImage(image, 0, 0);
    const { data } = pen.getImageData(0, 0, width, height);
    let text = "";
    for (const byte of data) text += String.fromCharCode(byte);
    return { width, height, pixels: btoa(text) };
}

// The first of the framebuffer's three buffers, which is on display.
async function paint(seed) {
    const pixels = Buffer.from(await device.ask("paint", { seed }), "base64").subarray(0, 320 * 240 * 4);
    return { width: 320, height: 240, pixels: pixels.toString("base64") };
}

test("the picture has every pixel of the display, follows it, and is saved as captured", async () => {
    const first = await paint(1);
    const console = await Console.open(browser, device.url, { view: "screen" });
    const image = console.page.locator("#screen-image");
    await until(() => image.evaluate(drawn), first, "the first picture");
    const second = await paint(2);
    await until(() => image.evaluate(drawn), second, "the second picture");
    const download = console.page.waitForEvent("download");
    await console.page.locator("#screen-save").click();
    const saved = await readFile(await (await download).path());
    const captured = await fetch(`${device.url}/api/v1/screen.cgi`);
    assert.deepEqual(saved, Buffer.from(await captured.arrayBuffer()));
    await console.close();
});

test("never more than one picture is asked for at a time, and none in other views", async () => {
    const console = await Console.open(browser, device.url);
    let waiting = 0, most = 0, asked = 0;
    const isPicture = (request) => request.url().includes("/screen.cgi");
    const count = (step) => (request) => {
        if (!isPicture(request)) return;
        waiting += step;
        asked += Math.max(step, 0);
        most = Math.max(most, waiting);
    };
    console.page.on("request", count(1));
    console.page.on("requestfinished", count(-1));
    console.page.on("requestfailed", count(-1));
    await console.go("screen");
    await until(() => asked > 10, true, "some pictures");
    assert.equal(most, 1);
    await console.go("variables");
    await until(() => waiting, 0, "the last picture");
    const before = asked;
    await console.row("MemPersistent.DisplayBrightness");
    for (const value of [2, 3, 4]) {
        await device.store("MemPersistent.DisplayBrightness", value);
        await console.shows("MemPersistent.DisplayBrightness", String(value));
    }
    assert.equal(asked, before);
    await console.close();
});
