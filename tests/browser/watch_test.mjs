// Numbers over time.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { after, before, test } from "node:test";
import { setTimeout as pause } from "node:timers/promises";
import { Console, launchBrowser, until } from "./console.mjs";
import { Device } from "./device.mjs";

const BRIGHTNESS = "MemPersistent.DisplayBrightness";
const DOWNLOAD_MS = 150;
const SHUTTER = "MemCamera.CamShutterCustomSet";

let device, browser;

before(async () => {
    [device, browser] = await Promise.all([Device.start(), launchBrowser()]);
});
after(async () => {
    await browser.close();
    await device.stop();
});

// The exported table: its heading, and its rows of text. The browser drops what is more than ten downloads a second.
async function exported(page) {
    await pause(DOWNLOAD_MS);
    const download = page.waitForEvent("download");
    await page.locator("#watch-export").click();
    const text = await readFile(await (await download).path(), "utf8");
    const [head, ...rows] = text.trim().split(/\r?\n/).map((line) => line.split(","));
    return { head, rows };
}

// What a column of the table goes through, without repetitions.
function course({ head, rows }, variable) {
    const column = head.findIndex((name) => name.includes(variable.split(".")[1]));
    assert.ok(column > 0, `${variable} in ${head}`);
    const values = rows.map((row) => row[column]).filter((value) => value !== "").map(Number);
    return values.filter((value, at) => value !== values[at - 1]);
}

test("what is watched is plotted, exported as it went, and stands still while paused", async () => {
    await device.store(BRIGHTNESS, 1);
    await device.store(SHUTTER, 90);
    const console = await Console.open(browser, device.url, { view: "watch" });
    const { page } = console;
    for (const variable of [BRIGHTNESS, SHUTTER]) {
        await page.locator("#watch-add").fill(variable);
        await page.locator("#watch-add").press("Enter");
    }
    await until(() => page.locator(`section[data-view="watch"] canvas:visible`).count(), 2, "two plots");
    for (const value of [5, 2]) {
        await device.store(BRIGHTNESS, value);
        await until(async () => course(await exported(page), BRIGHTNESS).at(-1), value, "the value in the table");
    }
    await device.store(SHUTTER, 172.5);
    await until(async () => course(await exported(page), SHUTTER), [90, 172.5], "both values in the table");
    assert.deepEqual(course(await exported(page), BRIGHTNESS), [1, 5, 2]);
    const picture = () => page.locator("#watch-plots canvas").first().evaluate((canvas) => canvas.toDataURL());
    await page.locator("#watch-pause").click();
    const pictures = [];
    for (const value of [9, 3]) {
        await device.store(BRIGHTNESS, value);
        await until(async () => course(await exported(page), BRIGHTNESS).at(-1), value, "what comes during the pause");
        pictures.push(await picture());
    }
    assert.ok(pictures[0] === pictures[1], "the plot moves during the pause");
    await page.locator("#watch-pause").click();
    await until(async () => (await picture()) === pictures[1], false, "a plot that goes on");
    await page.reload();
    await console.isLive();
    await until(() => page.locator(`section[data-view="watch"] canvas:visible`).count(), 2, "the plots, remembered");
    await console.close();
});
