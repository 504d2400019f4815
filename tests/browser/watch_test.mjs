// Numbers over time.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { test } from "node:test";
import { until } from "./console.mjs";
import { setScene } from "./scene.mjs";

const BRIGHTNESS = "MemPersistent.DisplayBrightness";
const SHUTTER = "MemCamera.CamShutterCustomSet";

const { device, open } = await setScene();
await device.store("MemApp.AppServiceLogLevel", "DebugMost");

// What each column of the exported table goes through, without repetitions.
async function exported(page) {
    const download = page.waitForEvent("download");
    await page.locator("#watch-export").click();
    const text = await readFile(await (await download).path(), "utf8");
    const [head, ...rows] = text.trim().split(/\r?\n/).map((line) => line.split(","));
    const courses = head.map((name, column) => [name, rows.map((row) => row[column])
        .filter((value, at, all) => value !== "" && value !== all[at - 1]).map(Number)]);
    return Object.fromEntries(courses.slice(1));
}

async function markPart(page) {
    const { x, y, width, height } = await page.locator("#watch-plots .u-over").first().boundingBox();
    await page.mouse.move(x + width / 4, y + height / 2);
    await page.mouse.down();
    await page.mouse.move(x + width / 2, y + height / 2, { steps: 3 });
    await page.mouse.up();
}

test("what is watched is plotted and exported as it went, and stands still while paused or zoomed", async () => {
    await device.store(BRIGHTNESS, 1);
    await device.store(SHUTTER, 90);
    const console = await open({ view: "watch" });
    const { page } = console;
    const plots = () => page.locator("#watch-plots canvas:visible").count();
    const picture = () => page.locator("#watch-plots canvas").first().evaluate((canvas) => canvas.toDataURL());
    for (const variable of [BRIGHTNESS, SHUTTER]) {
        await page.locator("#watch-add").fill(variable);
        await page.locator("#watch-add").press("Enter");
    }
    await until(plots, 2, "two plots");
    const now = page.locator("#watch-plots .now");
    for (const [at, variable, value] of [[0, BRIGHTNESS, 5], [0, BRIGHTNESS, 2], [1, SHUTTER, 172.5]]) {
        await device.tell(variable, value);
        await until(() => now.nth(at).innerText(), String(value), variable);
    }
    assert.deepEqual(await exported(page), { [BRIGHTNESS]: [1, 5, 2], [SHUTTER]: [90, 172.5] });

    const standsStill = async (values) => {
        const before = await picture();
        for (const value of values) {
            await device.tell(BRIGHTNESS, value);
            await device.tell("MemPersistent.ProductName", `with ${value}`);
            await until(() => page.locator("#product").innerText(), `with ${value}`, "what comes meanwhile");
        }
        assert.ok(await picture() === before, "the plot moves");
        return before;
    };
    await page.locator("#watch-pause").click();
    await page.locator("#watch-span").selectOption("10"); // drawn at once
    const paused = await standsStill([9, 3]);
    await page.locator("#watch-pause").click();
    await until(async () => (await picture()) === paused, false, "a plot that goes on");
    await markPart(page);
    await until(() => page.locator("#watch-reset").isEnabled(), true, "a part to come back from");
    const zoomed = await standsStill([7, 4]);
    await page.locator("#watch-reset").click();
    await until(async () => (await picture()) === zoomed, false, "a plot that goes on");
    assert.deepEqual((await exported(page))[BRIGHTNESS], [1, 5, 2, 9, 3, 7, 4]);
    await page.reload();
    await until(plots, 2, "the plots, remembered");
});
