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

test("it follows the end, and keeps its place while somebody reads further up or filters", async () => {
    const follow = console.page.locator("#log-follow");
    const filter = console.page.locator("#log-filter");
    const top = () => output.evaluate((log) => [...log.children].find((line) => !line.hidden && line.offsetTop - log.offsetTop >= log.scrollTop).textContent);
    await until(isAtEnd, true, "the end of the log");
    await device.log("<6>fresh: one more");
    await shows("fresh: one more");
    await until(isAtEnd, true, "the new end of the log");
    await output.evaluate((log) => { log.scrollTop = 400; });
    await until(() => follow.isChecked(), false, "following");
    const line = await top();
    for (const number of [1, 2, 3]) await device.log(`<6>later: ${number}`);
    await shows("later: 3");
    assert.equal(await top(), line);
    await filter.fill("later: ");
    await until(async () => (await output.innerText()).trim().split(/\n+/).length, 3, "lines that match");
    assert.equal(await follow.isChecked(), false);
    await filter.fill("");
    await until(top, line, "the line at the top");
    await console.go("screen");
    await console.go("log");
    await until(top, line, "the line at the top");
    assert.equal(await follow.isChecked(), false);
    await console.page.locator("#log-pause").click();
    await device.log("<6>paused: now");
    await console.page.locator("#log-pause").click();
    await shows("paused: now");
    assert.equal(await top(), line);
    await follow.click();
    await until(isAtEnd, true, "the end, when asked to follow again");
});

test("markup in a message is shown and not run, and the log's colours are colours on the page", async () => {
    const evil = `evil: <script>globalThis.wasRun = 1</script><img src=x onerror="globalThis.wasRun = 1"><b>&amp;</b>`;
    await device.log(`<3>${evil}`);
    await device.log("<6>lost: \x1b[31mno reset\n<6>plain: after it");
    await shows("plain: after it");
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
    const spans = await output.locator("div", { hasText: "plain: after it" }).locator("span", { hasText: "after it" }).evaluateAll((all) => all.map((span) => span.className));
    assert.deepEqual(spans.filter((name) => name.includes("fg-1")), [], "a colour goes on");
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

test("a long log begins with its last lines, and earlier ones come on demand", async () => {
    const line = (at) => `<6>long: ${String(at).padStart(6, "0")} ${"x".repeat(80)}`;
    for (let from = 0; from < 20_000; from += 1000) await device.log(Array.from({ length: 1000 }, (_, at) => line(from + at)).join("\n"));
    await shows("long: 019999");
    await console.page.close();
    console = await open({ view: "log" });
    output = console.page.locator("#log-output");
    await shows("long: 019999");
    assert.equal(await count("long: 000000"), 0);
    const earlier = console.page.locator("#log-earlier");
    while (!(await count("long: 010000"))) {
        const lines = await output.locator("div").count();
        await earlier.click();
        await until(async () => (await output.locator("div").count()) > lines, true, "earlier lines");
    }
    // As the service has them: its reader may split a colour's code.
    const all = (await (await fetch(`${device.url}/api/v1/log.cgi`)).text()).replaceAll(/<.?span[^>]*>/g, "").match(/\d{6} (?=x)/g);
    const seen = await output.evaluate((log) => [...log.children].map((line) => line.textContent).join("\n").match(/\d{6} (?=x)/g));
    assert.deepEqual(seen, all.slice(-seen.length), "each line once, in order");
});
