// Several tabs of one browser: one order, one list of favourites, one list of watched numbers.

import assert from "node:assert/strict";
import { test } from "node:test";
import { until } from "./console.mjs";
import { setScene } from "./scene.mjs";

const TABS = 4;
const PINS = 40;

const { device, browser, open } = await setScene({ simulation: ["--changes", "50", "--interval", "100"] });
const tree = await (await fetch(`${device.url}/api/v1/all.cgi`)).json();
const names = Object.entries(tree.variables).flatMap(([memory, all]) => Object.keys(all).map((name) => `${memory}.${name}`));

test("variables have the order of the tree in each tab, whichever update comes first", async () => {
    const context = await browser.newContext();
    for (let tab = 0; tab < TABS; ++tab) {
        const { page } = await open({ context });
        const rows = page.locator("#memories [data-variable]");
        await until(() => rows.count(), names.length, "rows");
        assert.deepEqual(await rows.evaluateAll((all) => all.map((row) => row.dataset.variable)), names);
    }
});

test("favourites and watched numbers are the same in all tabs, wherever they are chosen", async () => {
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
    for (const console of tabs.slice(0, 2)) await console.go("watch");
    const [one, other] = tabs.map(({ page }) => page);
    const add = async (page, name) => {
        await page.locator("#watch-add").fill(name);
        await page.locator("#watch-add").press("Enter");
    };
    const watched = (page) => () => page.locator("[data-watch]").evaluateAll((all) => all.map((plot) => plot.dataset.watch));
    await add(one, "MemDynamic.BattVoltage");
    await until(watched(other), ["MemDynamic.BattVoltage"], "the other tab's plots");
    await add(other, "MemDynamic.LensActFocus");
    await until(watched(one), ["MemDynamic.BattVoltage", "MemDynamic.LensActFocus"], "the first tab's plots");
    await one.getByRole("button", { name: "Remove MemDynamic.BattVoltage" }).click();
    await until(watched(other), ["MemDynamic.LensActFocus"], "the other tab's plots");
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
