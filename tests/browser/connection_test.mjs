// Honest about the connection: a service that goes and comes back, and many pages at once.

import assert from "node:assert/strict";
import { test } from "node:test";
import { setTimeout as pause } from "node:timers/promises";
import { setScene, until } from "./scene.mjs";

const VARIABLE = "MemPersistent.DisplayBrightness";
const AT = 92;
const PAGES = 20;
// The web server's limit on waiting requests of one address.
const PLACES = 24;

const { device, browser, open } = await setScene();
const store = (value) => device.store(VARIABLE, value);

await device.store("MemApp.AppServiceLogLevel", "DebugMost");

test("while the service is away values are marked as old, and afterwards they are new", async () => {
    await store(1);
    const console = await open();
    await console.shows(VARIABLE, "1");
    await device.command("end");
    await until(() => console.isStale(), true, "old values");
    await until(() => console.connection(), "lost", "a connection that is given up");
    await device.poke("MemPersistent", AT, [6, 0, 0, 0]);
    const polls = await device.countPolls();
    await device.command("start");
    await console.isLive();
    await console.shows(VARIABLE, "6");
    await polls(1);
    await store(7);
    await console.shows(VARIABLE, "7");
});

test("a service that is frozen is noticed, and its values are marked as old", async () => {
    const console = await open();
    await device.whileFrozen(async () => {
        await until(() => console.isStale(), true, "old values");
    });
    await console.isLive();
});

test("no change is lost while the tree is on its way", async () => {
    await store(1);
    let isRead = false, release;
    const slowWay = new Promise((resolve) => { release = resolve; });
    const prepare = (page) => page.route("**/all.cgi", async (route) => {
        const response = await route.fetch();
        isRead = true;
        await slowWay;
        await route.fulfill({ response });
    });
    const polls = await device.countPolls();
    const opened = open({ prepare });
    await until(() => isRead, true, "the service's answer");
    for (const value of [2, 3]) {
        await polls(value - 1);
        await store(value);
    }
    await polls(3);
    release();
    const console = await opened;
    const first = console.page.locator("#memories [data-variable]").first();
    assert.equal(await first.getAttribute("data-variable"), "MemPersistent.ProductName", "the order is the tree's");
    await console.shows(VARIABLE, "3");
});

test("a change that comes while no poll waits is shown, too", async () => {
    await store(1);
    const console = await open({ prepare: () => {} });
    await console.shows(VARIABLE, "1");
    await console.settles();
    const held = console.page.evaluate(() => { for (const end = Date.now() + 2000; Date.now() < end;); });
    for (const [variable, value] of [["MemPersistent.KnobBrightness", 1], ["MemPersistent.KnobBrightness", 2], [VARIABLE, 8]]) {
        await pause(400);
        await device.store(variable, value);
    }
    await held;
    await console.shows(VARIABLE, "8");
});

test("a page that finds all waiting places taken says so, and takes one that becomes free", async () => {
    const end = new AbortController();
    const wait = async () => {
        while (!end.signal.aborted) {
            await fetch(`${device.url}/api/v1/update.cgi`, { signal: end.signal }).catch(() => {});
        }
    };
    const polls = await device.countPolls();
    const others = Array.from({ length: PLACES }, wait);
    try {
        await polls(PLACES);
        const page = await browser.newPage();
        await page.goto(device.url);
        await until(() => page.locator("#connection").innerText(), /too many clients/i, "what the page says");
        end.abort();
        await until(() => page.locator("#connection").getAttribute("data-state"), "live", "the connection");
    } finally {
        end.abort();
        await Promise.all(others);
    }
});

for (const [where, isShared] of [[`${PAGES} browsers`, false], ["one browser", true]]) {
    test(`${PAGES} pages in ${where} show each change, and the last goes on when the others are closed`, async () => {
        const context = isShared ? await browser.newContext() : undefined;
        const polls = await device.countPolls();
        const pages = [];
        while (pages.length < PAGES) pages.push(await open({ context }));
        await polls(isShared ? 1 : PAGES);
        for (const value of [2, 9, 4, 1]) {
            if (value === 1) await Promise.all(pages.splice(1).map(({ page }) => page.close()));
            await device.tell(VARIABLE, value, isShared ? 1 : pages.length);
            await Promise.all(pages.map((console) => console.shows(VARIABLE, String(value))));
        }
    });
}
