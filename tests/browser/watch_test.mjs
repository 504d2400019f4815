// Numbers over time.

import assert from "node:assert/strict";
import { test } from "node:test";
import { saved, setScene, until } from "./scene.mjs";

const BRIGHTNESS = "MemPersistent.DisplayBrightness";
const SHUTTER = "MemCamera.CamShutterCustomSet";

const { device, browser, open } = await setScene();
await device.store("MemApp.AppServiceLogLevel", "DebugMost");

async function exported(page) {
    const text = await saved(page, () => page.locator("#watch-export").click());
    return text.trim().split(/\r?\n/).map((line) => line.split(","));
}

// What a column of the exported table goes through, without repetitions and gaps.
const statesOf = ([head, ...rows], name) => rows.map((row) => row[head.indexOf(name)]).filter((value) => value !== "")
    .filter((value, at, all) => value !== all[at - 1]);
const course = (table, name) => statesOf(table, name).map(Number);

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

test("a part of a plot is marked by one finger, and zoomed and moved by two", async () => {
    const { page } = await open({ view: "watch", hasTouch: true });
    await add(page, BRIGHTNESS);
    const { x, y, width } = await page.locator("#watch-plots .u-over").boundingBox();
    const session = await page.context().newCDPSession(page);
    const touch = (type, ...ways) => session.send("Input.dispatchTouchEvent",
        { type, touchPoints: ways.map((way, id) => ({ x: x + way, y: y + 20, id })) });
    const secondsAt = async (way) => {
        const now = page.locator("#watch-plots .now");
        await page.mouse.move(0, 0);
        await until(() => now.innerText(), /^\d+$/, "no time");
        await page.mouse.move(x + way, y + 20);
        await until(() => now.innerText(), / at [\d:]+$/, "a time");
        return (await now.innerText()).split(/ at |:/).slice(1).reduce((sum, part) => sum * 60 + Number(part), 0);
    };
    await touch("touchStart", 300);
    for (const way of [260, 200, 100]) await touch("touchMove", way);
    await touch("touchEnd");
    await until(() => page.locator("#watch-reset").isEnabled(), true, "a part to come back from");
    for (const name of ["reset", "pause"]) await page.locator(`#watch-${name}`).click();
    const [left, right] = [await secondsAt(width - 200), await secondsAt(width - 100)];
    await touch("touchStart", width - 200);
    await touch("touchStart", width - 200, width - 100);
    for (const way of [250, 350, 500]) await touch("touchMove", width - way, width - 100);
    await touch("touchEnd");
    for (const [way, seconds] of [[500, left], [100, right]]) {
        const found = await secondsAt(width - way);
        assert.ok(Math.abs(found - seconds) <= 1, `${found}, not ${seconds} at the finger`);
    }
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
    const steps = rows.map((row) => [row[1], row[head.indexOf("note")]]);
    assert.deepEqual(steps.filter((row, at) => String(row) !== String(steps[at - 1])), [["4", ""], ["", "not known"], ["4", ""]]);
});

test("the y range holds what held in each window, also from before", async () => {
    const { page } = await open({ view: "watch" });
    await add(page, BRIGHTNESS);
    await until(() => page.locator("#watch-plots canvas").count(), 1, "the library");
    const wrong = await page.evaluate(async () => {
        const { Recording } = await import("/model/recording.js");
        const { Plot } = await import("/views/plot.js");
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
            const [times, values] = recording.between(min, max);
            plot.draw([{ name: "A.B", isBand: false, times, values }], min, max);
            const ends = (at) => recording.times[at + 1] ?? Infinity;
            const held = recording.values.filter((_, at) => recording.times[at] <= max && ends(at) > min);
            const { range } = plot;
            if (!(range.min <= Math.min(...held) && range.max >= Math.max(...held))) faults.push([min, max, range, ...held]);
        }
        return faults;
    });
    assert.deepEqual(wrong, []);
});

const STEALTH = "MemPersistent.StealthMode";
const COLOUR = "MemPersistent.KnobColor";
const layout = (page) => page.locator("#watch-plots figure").evaluateAll((plots) => plots.map((plot) =>
    [...plot.querySelectorAll("[data-watch]")].map((series) => series.dataset.watch)));
const LAYOUT = [[BRIGHTNESS, SHUTTER, STEALTH], [COLOUR]];

test("states and numbers share a plot", async () => {
    await device.store(STEALTH, true);
    const console = await open({ view: "watch" });
    const { page } = console;
    await add(page, BRIGHTNESS);
    await page.locator("#watch-into").selectOption({ index: 1 });
    for (const name of [SHUTTER, STEALTH]) await add(page, name);
    await page.locator("#watch-into").selectOption("");
    await add(page, COLOUR);
    await until(() => layout(page), LAYOUT, "the plots");
    await device.tell(STEALTH, false);
    await until(() => page.locator(`[data-watch="${STEALTH}"] .now`).innerText(), "false", "the state");
    assert.deepEqual(statesOf(await exported(page), STEALTH), ["true", "false"]);
});

test("what is recorded survives a reload, and goes on while another tab is open", async () => {
    await device.store(BRIGHTNESS, 1);
    const context = await browser.newContext();
    const first = await open({ view: "watch", context });
    await add(first.page, BRIGHTNESS);
    await first.says("#watch-plots .now", "1");
    const written = (page) => page.evaluate(async (name) => {
        const { readHistory } = await import("/feed/history.js");
        return (await readHistory([name])).get(name).values.filter((value) => value !== null)
            .filter((value, at, all) => value !== all[at - 1]);
    }, BRIGHTNESS);
    const tell = async (page, value, all) => {
        await device.tell(BRIGHTNESS, value);
        await until(() => written(page), all, "what is written");
    };
    await until(() => written(first.page), [1], "what is written");
    await tell(first.page, 5, [1, 5]);
    await first.page.reload();
    await until(async () => course(await exported(first.page), BRIGHTNESS), [1, 5], "the table after a reload");
    const other = await open({ context });
    await first.page.close();
    await tell(other.page, 7, [1, 5, 7]);
    await other.go("watch");
    await until(async () => course(await exported(other.page), BRIGHTNESS), [1, 5, 7], "the table of another tab");
});

test("a first visit offers three numbers that move", async () => {
    const console = await open({ view: "watch" });
    const { page } = console;
    const offer = page.locator("#watch-offer");
    for (let value = 1; !(await offer.isVisible()); value = (value % 9) + 1) {
        for (const name of [BRIGHTNESS, "MemPersistent.KnobBrightness", "MemPersistent.ButtonBrightness"]) await device.tell(name, value);
    }
    await offer.press("Enter");
    await until(async () => (await layout(page)).length, 3, "plots");
});

test("without the plotting library values are recorded and exported, and a note says so", async () => {
    const console = await open({ view: "watch", prepare: (page) => page.route("**/vendor/*.js", (route) => route.fulfill({ status: 404 })) });
    await console.says("#watch-note", /^Plots are not available/);
    await add(console.page, BRIGHTNESS);
    await console.says("#watch-plots .now", /^\d+$/);
    assert.equal((await exported(console.page)).length, 2);
});
