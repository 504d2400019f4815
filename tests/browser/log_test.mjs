// The kernel log on the page.

import assert from "node:assert/strict";
import { beforeEach, test } from "node:test";
import { saved, setScene, until } from "./scene.mjs";

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

test("it follows the end, and keeps its place while the user reads or filters", async () => {
    const follow = console.page.locator("#log-follow");
    const filter = console.page.locator("#log-filter");
    const top = () => output.evaluate((log) => [...log.children]
        .find((line) => !line.hidden && line.offsetTop - log.offsetTop >= log.scrollTop).textContent);
    await until(isAtEnd, true, "the end of the log");
    assert.equal(await output.getAttribute("aria-live"), "off", "a screen reader that reads each line");
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
    await (await open({ view: "log" })).says("#log-output", /paused: now/);
    assert.equal(await count("paused: now"), 0, "a paused log grows");
    await console.page.locator("#log-pause").click();
    await shows("paused: now");
    assert.equal(await top(), line);
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
    const lost = "<span style='color: #AA0000'>no reset\nplain\n";
    const prepare = (page) => page.route("**/log.cgi*", (route) =>
        route.request().url().includes("offset") || route.fulfill({ body: `${lost.length}\n${lost}` }));
    const lines = (await open({ view: "log", prepare })).page.locator("#log-output div");
    await until(() => lines.evaluateAll((all) => all.map((line) => line.innerHTML)), [`<span class="fg-1">no reset</span>`, "plain"], "colours");
});

test("no line is repeated or lost when the view or the service changes", async () => {
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

test("levels, processes and lines around the hits are chosen, and all of the log is saved", async () => {
    const { page } = console;
    const line = (process, level, text) => `<6>${process.padStart(20)}  ${level.padEnd(10)} ${"main.cpp".padStart(20)}:   1 ${text}`;
    await device.log([["alpha", "Warn", "work 1"], ["beta", "LogLight", "work 2"], ["alpha", "Error", "work 3"], ["beta", "Error", "work 4"]]
        .map((words) => line(...words)).join("\n"));
    await shows("work 4");
    const clock = () => `${new Date().toLocaleTimeString("en-GB")}.${Math.floor(new Date().getMilliseconds() / 100)}`;
    const choose = (id, value) => page.locator(id).selectOption(value);
    const works = () => output.locator("div:visible").evaluateAll((lines) => lines.flatMap((each) => /work \d/.exec(each.textContent) ?? []));
    for (const [level, process, around, expected] of [["6", "alpha", "0", ["1", "3"]], ["7", "", "0", ["3", "4"]],
        ["", "beta", "0", ["2", "4"]], ["7", "beta", "3", ["1", "2", "3", "4"]]]) {
        await choose("#log-level", level);
        await choose("#log-process", process);
        await choose("#log-around", around);
        await until(works, expected.map((number) => `work ${number}`), `${level}, ${process}, ${around}`);
    }
    assert.deepEqual(await console.findings(), []);
    await choose("#log-process", "kernel");
    await page.locator("#log-wall").press("Space");
    const from = clock();
    await device.log("<6>work 5: just now");
    await shows("work 5: just now");
    const time = await output.locator("div:visible").last().getAttribute("data-time");
    assert.ok(from <= time && time <= clock(), `${time}, not ${from} to ${clock()}`);
    const file = await saved(page, () => page.locator("#log-save").press("Enter"));
    for (const text of ["filler: line 0", "filler: line 299", "work 1", "work 5: just now"]) assert.ok(file.includes(text), text);
    assert.doesNotMatch(file, /<span|<\/span/);
});

test("the wall time is known without a new line, and forgotten when the device has been started again", async () => {
    const lines = (await open({ view: "log" })).page;
    await lines.locator("#log-wall").press("Space");
    await until(() => lines.locator("#log-output div").last().getAttribute("data-time"), /^\d+:\d+:\d+/, "a wall time");
    const starts = await lines.evaluate(async () => {
        const { StartTime } = await import("/model/logline.js");
        const start = new StartTime();
        return [[90, 1090], [100, 1100.2], [3, 2000]].map(([written, now]) => {
            start.follow(written);
            start.learn(written, now);
            return start.seconds;
        });
    });
    assert.deepEqual(starts, [1000, 1000, 1997]);
});

test("a long log begins with its last lines, and earlier ones come on demand", async () => {
    const line = (at) => `<6>long: ${String(at).padStart(6, "0")} ${"x".repeat(80)}`;
    await device.log(Array.from({ length: 20_000 }, (_, at) => line(at)).join("\n"));
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
    const seen = await output.evaluate((log) => [...log.children].map((each) => each.textContent).join("\n").match(/\d{6} (?=x)/g));
    assert.deepEqual(seen, all.slice(-seen.length), "each line once, in order");
});
