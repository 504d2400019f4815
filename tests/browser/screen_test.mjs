// The display on the page.

import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { open as openFile, readFile } from "node:fs/promises";
import { test } from "node:test";
import { until } from "./console.mjs";
import { setScene } from "./scene.mjs";

const WIDTH = 320;
const HEIGHT = 240;

const { device, open } = await setScene({ screen: [WIDTH, HEIGHT] });

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

// Counts the requests for pictures: all of them, those that wait, and how many waited at most.
function countPictures(page) {
    const pictures = { asked: 0, waiting: 0, most: 0 };
    const count = (step) => (request) => {
        if (!request.url().includes("/screen.cgi")) return;
        pictures.asked += Math.max(step, 0);
        pictures.waiting += step;
        pictures.most = Math.max(pictures.most, pictures.waiting);
    };
    page.on("request", count(1));
    page.on("requestfinished", count(-1));
    page.on("requestfailed", count(-1));
    return pictures;
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

test("never more than one picture is asked for at a time, and none in other views", async () => {
    const console = await open();
    const pictures = countPictures(console.page);
    await console.go("screen");
    await until(() => pictures.asked > 10, true, "some pictures");
    await console.go("variables");
    await until(() => pictures.waiting, 0, "the last picture");
    const { asked } = pictures;
    for (const value of ["2", "3", "4"]) {
        await console.edit("MemPersistent.DisplayBrightness", (form) => form.locator("input").fill(value), "stored");
    }
    assert.deepEqual(pictures, { asked, waiting: 0, most: 1 });
});
