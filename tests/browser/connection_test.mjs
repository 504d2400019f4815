// Honest about the connection: a service that goes and comes back, and many pages at once.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { Console, launchBrowser, until } from "./console.mjs";
import { Device } from "./device.mjs";

const VARIABLE = "MemPersistent.DisplayBrightness";
const PAGES = 20;
// For waiting clients, at the web server.
const PLACES = 30;

let device, browser;

before(async () => {
    [device, browser] = await Promise.all([Device.start(), launchBrowser()]);
});
after(async () => {
    await browser.close();
    await device.stop();
});

test("while the service is away values are marked as old, and afterwards they are new", async () => {
    await device.store(VARIABLE, 1);
    const console = await Console.open(browser, device.url);
    await console.row(VARIABLE);
    await console.shows(VARIABLE, "1");
    await device.ask("end_service");
    await until(() => console.isStale(), true, "old values");
    await until(() => console.connection(), /reconnecting|lost/, "no connection");
    await console.shows(VARIABLE, "1");
    await device.store(VARIABLE, 6);
    await until(() => console.connection(), "lost", "a connection that is given up");
    await device.ask("start_service");
    await console.isLive();
    await console.shows(VARIABLE, "6");
    await device.store(VARIABLE, 7);
    await console.shows(VARIABLE, "7");
    await console.close();
});

test("no change is lost while the tree is on its way", async () => {
    await device.store(VARIABLE, 1);
    let polls = 0, isRead = false, release;
    const slowWay = new Promise((resolve) => { release = resolve; });
    const prepare = async (page) => {
        page.on("request", (request) => { polls += request.url().endsWith("/update.cgi") ? 1 : 0; });
        await page.route("**/all.cgi", async (route) => {
            const response = await route.fetch();
            isRead = true;
            await slowWay;
            await route.fulfill({ response });
        });
    };
    const opened = Console.open(browser, device.url, { prepare });
    await until(() => isRead, true, "the service's answer");
    for (const value of [2, 3]) {
        await until(() => polls, value - 1, "a poll that waits");
        await device.store(VARIABLE, value);
    }
    await until(() => polls, 3, "a poll that waits");
    release();
    const console = await opened;
    await console.row(VARIABLE);
    await console.shows(VARIABLE, "3");
    await console.close();
});

test("a page that finds all waiting places taken says so, and takes one that becomes free", async () => {
    const end = new AbortController();
    const others = Array.from({ length: PLACES }, () =>
        fetch(`${device.url}/api/v1/update.cgi`, { signal: end.signal }).catch(() => {}));
    const page = await (await browser.newContext()).newPage();
    await page.goto(`${device.url}/`);
    await until(() => page.locator("#connection").innerText(), /too many clients/i, "what the page says");
    end.abort();
    await Promise.all(others);
    await until(() => page.locator("#connection").getAttribute("data-state"), "live", "the connection");
    await page.context().close();
});

// Opens pages a few at a time, as people would.
async function open(count, context) {
    const pages = [];
    while (pages.length < count) {
        const few = Array.from({ length: Math.min(4, count - pages.length) }, () =>
            Console.open(browser, device.url, { context }));
        pages.push(...(await Promise.all(few)));
    }
    for (const console of pages) await console.row(VARIABLE);
    return pages;
}

// No value is skipped: each is stored after all pages show the one before.
async function eachShowsEach(pages, values) {
    for (const value of values) {
        await device.store(VARIABLE, value);
        await Promise.all(pages.map((console) => console.shows(VARIABLE, String(value))));
    }
}

test(`${PAGES} pages in ${PAGES} browsers show each change`, async () => {
    const pages = await open(PAGES);
    await eachShowsEach(pages, [2, 9, 4]);
    for (const console of pages) await console.close();
});

test(`${PAGES} pages in one browser show each change, and its last page goes on when the others are closed`, async () => {
    const context = await browser.newContext();
    const pages = await open(PAGES, context);
    await eachShowsEach(pages, [3, 8, 5]);
    const last = pages.pop();
    for (const { page } of pages) await page.close();
    await eachShowsEach([last], [1, 10]);
    await context.close();
    assert.deepEqual(pages.flatMap(({ faults }) => faults), []);
});
