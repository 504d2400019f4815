// The kernel log on the page.

import assert from "node:assert/strict";
import { after, afterEach, before, beforeEach, test } from "node:test";
import { Console, launchBrowser, until } from "./console.mjs";
import { Device } from "./device.mjs";

let device, browser, console, output;

before(async () => {
    [device, browser] = await Promise.all([Device.start(), launchBrowser()]);
    for (let line = 0; line < 300; ++line) await device.ask("log", { line: `<6>filler: line ${line}` });
});
after(async () => {
    await browser.close();
    await device.stop();
});
beforeEach(async () => {
    console = await Console.open(browser, device.url, { view: "log" });
    output = console.page.locator("#log-output");
    await shows("filler: line 299");
});
afterEach(() => console.close());

const shows = (text) => until(() => output.evaluate((log, part) => log.textContent.includes(part), text), true, text);
const count = (text) => output.evaluate((log, part) => log.textContent.split(part).length - 1, text);
const place = () => output.evaluate((log) => ({ top: log.scrollTop, bottom: log.scrollHeight - log.clientHeight }));

async function isAtEnd() {
    const { top, bottom } = await place();
    return bottom - top < 5;
}

test("it follows the end, and keeps its place while somebody reads further up", async () => {
    await until(isAtEnd, true, "the end of the log");
    await device.ask("log", { line: "<6>fresh: one more" });
    await shows("fresh: one more");
    await until(isAtEnd, true, "the new end of the log");
    await output.evaluate((log) => { log.scrollTop = 40; });
    await until(() => console.page.locator("#log-follow").evaluate(isOn), false, "following");
    for (const number of [1, 2, 3]) await device.ask("log", { line: `<6>later: ${number}` });
    await shows("later: 3");
    assert.equal((await place()).top, 40);
    await console.page.locator("#log-follow").click();
    await until(isAtEnd, true, "the end, when asked to follow again");
});

const isOn = (control) => control.checked ?? control.getAttribute("aria-pressed") === "true";

test("markup in a message is shown and not run", async () => {
    const evil = `evil: <script>globalThis.wasRun = 1</script><img src=x onerror="globalThis.wasRun = 1"><b>&amp;</b>`;
    await device.ask("log", { line: `<3>${evil}` });
    await shows(evil);
    assert.equal(await output.evaluate((log) => log.querySelectorAll("script, img, b").length), 0);
    assert.equal(await console.page.evaluate(() => globalThis.wasRun), undefined);
    await console.page.reload();
    await shows(evil);
    assert.equal(await console.page.evaluate(() => globalThis.wasRun), undefined);
});

test("colours of the log are colours on the page", async () => {
    await device.ask("log", { line: "<3>colourful: an error" });
    await shows("colourful: an error");
    const colour = await output.evaluate((log) => {
        const parts = [...log.querySelectorAll("span")];
        const last = parts.findLast((part) => part.textContent.includes("an error") && part.children.length === 0);
        return getComputedStyle(last).color === getComputedStyle(log).color;
    });
    assert.equal(colour, false, "an error looks like any text");
});

test("no line is told twice or lost, over other views and an end of the service", async () => {
    await device.ask("log", { line: "<6>once: before" });
    await shows("once: before");
    await console.go("screen");
    await device.ask("log", { line: "<6>once: elsewhere" });
    await console.go("log");
    await shows("once: elsewhere");
    await device.ask("end_service");
    await device.ask("log", { line: "<6>once: without a service" });
    await device.ask("start_service");
    await shows("once: without a service");
    for (const text of ["filler: line 123", "once: before", "once: elsewhere", "once: without a service"]) {
        assert.equal(await count(text), 1, text);
    }
});

test("the filter leaves the lines that match", async () => {
    await console.page.locator("#log-filter").fill("line 29");
    await until(() => output.innerText().then((text) => text.trim().split(/\n+/).length), 11, "lines 29, 290 to 299");
    await device.ask("log", { line: "<6>other: passes by" });
    await device.ask("log", { line: "<6>wanted: line 29 again" });
    await until(() => output.innerText(), /wanted: line 29 again/, "a new line that matches");
    assert.doesNotMatch(await output.innerText(), /passes by/);
    await console.page.locator("#log-filter").fill("");
    await until(() => output.innerText(), /passes by/, "all lines");
});
