// Several tabs of one browser: one order, one list of favourites, one list of watched numbers.

import assert from "node:assert/strict";
import { test } from "node:test";
import { FILL, fillStorage, setScene, until } from "./scene.mjs";

const TABS = 4;
const PINS = 40;
const WATCHED = 12;

const { device, browser, open } = await setScene({ simulation: ["--changes", "50", "--interval", "100"] });
const tree = await (await fetch(`${device.url}/api/v1/all.cgi`)).json();
const names = Object.entries(tree.variables).flatMap(([memory, all]) => Object.keys(all).map((name) => `${memory}.${name}`));

const typeOf = (name) => name.split(".").reduce((part, key) => part[key], tree.variables).type;

test("variables have the order of the tree in each tab, whichever update comes first", async () => {
    const context = await browser.newContext();
    for (let tab = 0; tab < TABS; ++tab) {
        const { page } = await open({ context });
        const rows = page.locator("#memories [data-variable]");
        await until(() => rows.count(), names.length, "rows");
        assert.deepEqual(await rows.evaluateAll((all) => all.map((row) => row.dataset.variable)), names);
    }
});

test("favourites are the same in all tabs, wherever they are chosen", async () => {
    const context = await browser.newContext();
    const tabs = [];
    while (tabs.length < TABS) tabs.push(await open({ context }));
    const pinned = ({ page }) => page.locator("#favourites [data-variable]").evaluateAll((all) => all.map((row) => row.dataset.variable));
    const click = (all) => all.forEach((name) => document.querySelector(`[data-variable="${name}"] .pin`).click());
    const pins = names.slice(0, PINS);
    await Promise.all(tabs.map(({ page }, at) => page.evaluate(click, pins.filter((_, pin) => pin % TABS === at))));
    await until(async () => (await pinned(tabs[0])).sort(), pins.toSorted(), "all that were pinned at the same time");
    await tabs[0].page.evaluate(click, pins.slice(1));
    for (const tab of tabs) await until(() => pinned(tab), pins.slice(0, 1), "favourites");
});

test("what is watched and the layouts are the same in all tabs, also when they are chosen at the same time", async () => {
    const context = await browser.newContext();
    const tabs = [];
    while (tabs.length < TABS) tabs.push(await open({ context, view: "watch" }));
    const share = (all, at) => all.filter((_, i) => i % TABS === at);
    const chosen = names.filter((name) => /^(int|float)$/.test(typeOf(name))).slice(0, WATCHED);
    const layouts = chosen.map((_, i) => `layout ${i}`);
    const submit = ([form, field, texts]) => texts.forEach((text) => {
        document.querySelector(field).value = text;
        document.querySelector(form).requestSubmit();
    });
    const submitAll = (form, field, texts) =>
        Promise.all(tabs.map(({ page }, at) => page.evaluate(submit, [form, field, share(texts, at)])));
    const first = (all) => all.map(({ dataset }) => Object.values(dataset)[0]);
    const shown = ({ page }, selector) => page.locator(selector).evaluateAll(first);
    await submitAll("#watch-form", "#watch-add", chosen);
    await until(async () => (await shown(tabs[0], "[data-watch]")).sort(), chosen.toSorted(), "all that were added at the same time");
    const order = await shown(tabs[0], "[data-watch]");
    for (const tab of tabs) await until(() => shown(tab, "[data-watch]"), order, "the plots of each tab");
    await tabs[1].page.getByRole("button", { name: `Remove ${order[0]}` }).click();
    for (const tab of tabs) await until(() => shown(tab, "[data-watch]"), order.slice(1), "without the first");
    await submitAll("#layout-form", "#layout-name", layouts);
    for (const tab of tabs) await until(() => shown(tab, "[data-layout]"), layouts.toSorted(), "the layouts of each tab");
});

test("what the browser cannot keep is said where it is chosen, and kept once there is room", async () => {
    const console = await open();
    const { page } = console;
    const session = await page.context().newCDPSession(page);
    await fillStorage(page);
    await session.send("Storage.overrideQuotaForOrigin", { origin: device.url, quotaSize: 1 });
    await page.locator("#memories .pin").first().click();
    await console.says("#favourites-note", /^New favourites end with this page/);
    await console.go("watch");
    await FILL.watch(console);
    await console.says("#watch-note", /^What is watched and recorded ends with this page/);
    await page.evaluate(() => Object.keys(localStorage).filter((key) => key.startsWith("full")).forEach((key) => localStorage.removeItem(key)));
    await session.send("Storage.overrideQuotaForOrigin", { origin: device.url });
    await page.getByRole("button", { name: /^Remove/ }).first().click();
    await console.says("#watch-note", "");
    await console.go("variables");
    await page.locator("#memories .pin").first().click();
    await console.says("#favourites-note", "");
    await page.reload();
    await until(() => page.locator("#favourites [data-variable]").count(), 2, "favourites");
});

test("the skip link leaves the address as it is", async () => {
    const console = await open({ view: "log" });
    await console.page.locator(".skip").focus();
    await console.page.keyboard.press("Enter");
    await until(() => console.page.evaluate(() => document.activeElement.id), "main", "the focus");
    await console.page.reload();
    await console.isIn("log");
    await console.page.goto(`${device.url}/#main`);
    await console.page.reload();
    await console.isIn("variables");
});
