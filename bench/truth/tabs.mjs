// Whether all tabs of a browser show the same.

import { until } from "../../device/node/until.mjs";
import { Console } from "../../device/node/console.mjs";

const CANDIDATES = 200;

const rows = (page, list) => page.locator(`${list} [data-variable]`).evaluateAll((all) => all.map((row) => row.dataset.variable));

// How many second tabs, opened one after the other while much changes, have the order of the tree.
export async function measureOrder(device, browser, count) {
    const tree = await (await fetch(`${device.url}/api/v1/all.cgi`)).json();
    const names = Object.entries(tree.variables).flatMap(([memory, all]) => Object.keys(all).map((name) => `${memory}.${name}`));
    const context = await browser.newContext();
    await Console.open(browser, device.url, { context });
    let right = 0;
    for (let tab = 0; tab < count; ++tab) {
        const { page } = await Console.open(browser, device.url, { context });
        await until(async () => (await rows(page, "#memories")).length, names.length, "rows");
        if (String(await rows(page, "#memories")) === String(names)) ++right;
        await page.close();
    }
    await context.close();
    return right;
}

// Pins so many random variables, shared among the tabs, all at the same time. Returns how many tabs have all of
// them and the same order, and how many pins are missing in the first.
export async function measureFavourites(device, browser, tabCount, pinCount) {
    const context = await browser.newContext();
    const tabs = [];
    while (tabs.length < tabCount) tabs.push(await Console.open(browser, device.url, { context }));
    const names = (await rows(tabs[0].page, "#memories")).slice(0, CANDIDATES);
    const chosen = names.sort(() => Math.random() - 0.5).slice(0, pinCount);
    const shares = tabs.map((_, at) => chosen.filter((__, pin) => pin % tabCount === at));
    await Promise.all(tabs.map(({ page }, at) => page.evaluate(async (pins) => {
        for (const name of pins) {
            document.querySelector(`[data-variable="${name}"] .pin`).click();
            await new Promise((resolve) => setTimeout(resolve, Math.random() * 50));
        }
    }, shares[at])));
    const lists = async () => Promise.all(tabs.map(({ page }) => rows(page, "#favourites")));
    const count = async () => (await lists()).filter((list) => list.length === pinCount).length;
    await until(count, tabCount, "tabs with all pins").catch(() => {});
    const last = await lists();
    await context.close();
    return { right: last.filter((list) => list.length === pinCount && String(list) === String(last[0])).length,
        missing: pinCount - last[0].length };
}
