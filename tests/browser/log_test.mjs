// The kernel log on the page.

import assert from "node:assert/strict";
import { beforeEach, test } from "node:test";
import { until } from "./console.mjs";
import { setScene } from "./scene.mjs";

const { device, open } = await setScene();
await device.log(Array.from({ length: 300 }, (_, line) => `<6>filler: line ${line}`).join("\n"));

let console, output;

beforeEach(async () => {
    console = await open({ view: "log" });
    output = console.page.locator("#log-output");
    await shows("filler: line 299");
});

const count = (text) => output.evaluate((log, part) => log.textContent.split(part).length - 1, text);
const shows = (text) => until(() => count(text), 1, text);
const place = () => output.evaluate((log) => ({ top: log.scrollTop, bottom: log.scrollHeight - log.clientHeight }));

async function isAtEnd() {
    const { top, bottom } = await place();
    return bottom > 0 && bottom - top < 5;
}

test("it follows the end, and keeps its place while somebody reads further up", async () => {
    const follow = console.page.locator("#log-follow");
    await until(isAtEnd, true, "the end of the log");
    await device.log("<6>fresh: one more");
    await shows("fresh: one more");
    await until(isAtEnd, true, "the new end of the log");
    await output.evaluate((log) => { log.scrollTop = 40; });
    await until(() => follow.isChecked(), false, "following");
    for (const number of [1, 2, 3]) await device.log(`<6>later: ${number}`);
    await shows("later: 3");
    assert.equal((await place()).top, 40);
    await follow.click();
    await until(isAtEnd, true, "the end, when asked to follow again");
});

test("markup in a message is shown and not run, and the log's colours are colours on the page", async () => {
    const evil = `evil: <script>globalThis.wasRun = 1</script><img src=x onerror="globalThis.wasRun = 1"><b>&amp;</b>`;
    await device.log(`<3>${evil}`);
    await shows(evil);
    await console.page.reload();
    await shows(evil);
    assert.equal(await output.evaluate((log) => log.querySelectorAll("script, img, b").length), 0);
    assert.equal(await console.page.evaluate(() => globalThis.wasRun), undefined);
    const colours = await output.evaluate((log) => {
        const message = [...log.querySelectorAll("span")].find((span) => span.textContent.includes("<script>"));
        return [log, message].map((node) => getComputedStyle(node).color);
    });
    assert.notEqual(colours[0], colours[1], "an error looks like any text");
});

test("no line is told twice or lost, over other views and an end of the service", async () => {
    await device.log("<6>once: before");
    await shows("once: before");
    await console.go("screen");
    await device.log("<6>once: elsewhere");
    await console.go("log");
    await shows("once: elsewhere");
    await device.command("end");
    await device.log("<6>once: without a service");
    await device.command("start");
    for (const text of ["once: without a service", "filler: line 123", "once: before", "once: elsewhere"]) {
        await shows(text);
    }
});

test("the filter leaves the lines that match", async () => {
    const lines = async () => (await output.innerText()).trim().split(/\n+/).length;
    await console.page.locator("#log-filter").fill("line 29");
    await until(lines, 11, "lines 29, 290 to 299");
    await device.log("<6>other: passes by\n<6>wanted: line 29 again");
    await shows("wanted: line 29 again");
    assert.equal(await lines(), 12);
    await console.page.locator("#log-filter").fill("");
    await until(() => output.innerText(), /passes by/, "all lines");
});
