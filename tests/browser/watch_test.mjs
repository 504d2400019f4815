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

async function exported(page) {
    const download = page.waitForEvent("download");
    await page.locator("#watch-export").click();
    const text = await readFile(await (await download).path(), "utf8");
    return text.trim().split(/\r?\n/).map((line) => line.split(","));
}

// What a column of the exported table goes through, without repetitions.
const course = ([head, ...rows], name) => rows.map((row) => row[head.indexOf(name)])
    .filter((value, at, all) => value !== "" && value !== all[at - 1]).map(Number);

const add = async (page, name) => {
    await page.locator("#watch-add").fill(name);
    await page.locator("#watch-add").press("Enter");
};

test("what is watched is plotted and exported as it went, and keeps still while paused or zoomed", async () => {
    await device.store(BRIGHTNESS, 1);
    await device.store(SHUTTER, 90);
    const console = await open({ view: "watch" });
    const { page } = console;
    const picture = () => page.locator("#watch-plots canvas").first().evaluate((canvas) => canvas.toDataURL());
    for (const variable of [BRIGHTNESS, SHUTTER]) await add(page, variable);
    await until(() => page.locator("#watch-plots canvas:visible").count(), 2, "two plots");
    const now = page.locator("#watch-plots .now");
    for (const [at, variable, value] of [[0, BRIGHTNESS, 5], [0, BRIGHTNESS, 2], [1, SHUTTER, 172.5]]) {
        await device.tell(variable, value);
        await until(() => now.nth(at).innerText(), String(value), variable);
    }
    const table = await exported(page);
    assert.deepEqual([course(table, BRIGHTNESS), course(table, SHUTTER)], [[1, 5, 2], [90, 172.5]]);

    const keepsStill = async (values) => {
        const before = await picture();
        for (const value of values) {
            await device.tell(BRIGHTNESS, value);
            await device.tell("MemPersistent.ProductName", `with ${value}`);
            await console.says("#product", `with ${value}`);
        }
        assert.ok(await picture() === before, "the plot moves");
        return before;
    };
    await page.locator("#watch-pause").click();
    await page.locator("#watch-span").selectOption("10"); // drawn at once
    const paused = await keepsStill([9, 3]);
    await page.locator("#watch-pause").click();
    await until(async () => (await picture()) === paused, false, "a plot that goes on");
    await page.locator("#watch-zoom").getByRole("button", { name: "Zoom in" }).press("Enter");
    await until(() => page.locator("#watch-reset").isEnabled(), true, "a part to come back from");
    const zoomed = await keepsStill([7, 4]);
    await page.locator("#watch-zoom").getByRole("button", { name: "Earlier" }).press("Enter");
    await until(async () => (await picture()) === zoomed, false, "another part");
    await page.locator("#watch-reset").click();
    assert.deepEqual(course(await exported(page), BRIGHTNESS), [1, 5, 2, 9, 3, 7, 4]);
});

test("a gap in the connection is a gap in the plot and in the table", async () => {
    await device.store(BRIGHTNESS, 4);
    const console = await open({ view: "watch" });
    await add(console.page, BRIGHTNESS);
    await console.says("#watch-plots .now", "4");
    await device.command("end");
    await console.says("#watch-plots .now", "not known");
    await device.command("start");
    await console.says("#watch-plots .now", "4");
    const [head, ...rows] = await exported(console.page);
    const course = rows.map((row) => [row[1], row[head.indexOf("note")]]);
    assert.deepEqual(course.filter((row, at) => String(row) !== String(course[at - 1])), [["4", ""], ["", "no connection"], ["4", ""]]);
});

test("the y range holds what held in each window, also from before", async () => {
    const { page } = await open({ view: "watch" });
    await add(page, BRIGHTNESS);
    await until(() => page.locator("#watch-plots canvas").count(), 1, "the library");
    const wrong = await page.evaluate(async () => {
        const { Recording } = await import("/model/recording.js");
        const { Plot } = await import("/views/plot.js");
        const Library = globalThis.uPlot;
        let made;
        globalThis.uPlot = Object.assign(function Spy(...words) { return made = new Library(...words); }, Library);
        const parent = document.querySelector("#watch-plots").appendChild(document.createElement("div"));
        const plot = new Plot(parent, { onZoom() {}, onReset() {}, onCursor() {} });
        const recording = new Recording({ variables: new Map() }, "A.B");
        for (let at = 0; at < 300; at += Math.random() * 4) {
            recording.times.push(at);
            recording.values.push(Math.random() * 100);
        }
        const faults = [];
        for (let count = 0; count < 1000; ++count) {
            const min = Math.random() * 300;
            const max = min + 0.1 + Math.random() * 20;
            plot.draw(recording.between(min, max), min, max);
            await null; // drawn in a microtask
            const held = recording.values.filter((_, at) => recording.times[at] <= max && (recording.times[at + 1] ?? Infinity) > min);
            const { y } = made.scales;
            if (!(y.min <= Math.min(...held) && y.max >= Math.max(...held))) faults.push([min, max, y.min, y.max, ...held]);
        }
        return faults;
    });
    assert.deepEqual(wrong, []);
});
