// Whether everybody can use the views, in both colour schemes. Leaves pictures in the build folder's "screenshots".

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { after, before, test } from "node:test";
import { Console, launchBrowser, until } from "./console.mjs";
import { Device } from "./device.mjs";
import { fill, VIEWS } from "./views.mjs";

const PICTURES = `${process.env.SYSTEM_TEST_BUILD}/screenshots`;
const DESKTOP = { width: 1280, height: 800 };
const PHONE = { width: 390, height: 844 };
const MORE_NUMBERS = ["MemDynamic.LensActFocus", "MemDynamic.BattVoltage"];
const CHANGES = 15;

let device, browser;

before(async () => {
    await mkdir(PICTURES, { recursive: true });
    [device, browser] = await Promise.all([Device.start({ simulation: [], display: [] }), launchBrowser()]);
});
after(async () => {
    await browser.close();
    await device.stop();
});

// Lines in the plots, for the picture: returns when the focus has moved.
async function letNumbersMove({ page }) {
    await page.locator("#watch-span").selectOption("10");
    for (const name of MORE_NUMBERS) {
        await page.locator("#watch-add").fill(name);
        await page.locator("#watch-add").press("Enter");
    }
    const seen = new Set();
    const hasMoved = async () => seen.add(await page.locator("#watch-plots .now").first().innerText()).size > CHANGES;
    await until(hasMoved, true, "a focus that moves");
}

// On a phone nothing may stick out to the side.
const overhang = () => document.documentElement.scrollWidth - document.documentElement.clientWidth;

for (const colorScheme of ["light", "dark"]) {
    test(`no view has a serious accessibility finding: ${colorScheme}`, async () => {
        await device.ask("log", { line: "<3>motor 2: over-current, 1.9 A" });
        const findings = {};
        for (const view of VIEWS) {
            const console = await Console.open(browser, device.url, { view, colorScheme, viewport: DESKTOP });
            assert.deepEqual(await console.visibleViews(), [view]);
            await fill(console, view);
            if (view === "watch") await letNumbersMove(console);
            const { critical, serious } = await console.findings();
            findings[view] = [...critical, ...serious];
            await console.page.screenshot({ path: `${PICTURES}/console-${view}-${colorScheme}.png` });
            await console.close();
        }
        assert.deepEqual(findings, Object.fromEntries(VIEWS.map((view) => [view, []])));
    });
}

test("every view fits the width of a phone", async () => {
    const console = await Console.open(browser, device.url, { viewport: PHONE, hasTouch: true, isMobile: true });
    const overhangs = {};
    for (const view of VIEWS) {
        await console.go(view);
        await fill(console, view);
        overhangs[view] = await console.page.evaluate(overhang);
        await console.page.screenshot({ path: `${PICTURES}/console-${view}-phone.png` });
    }
    await console.close();
    assert.deepEqual(overhangs, Object.fromEntries(VIEWS.map((view) => [view, 0])));
});

test("the keyboard reaches the views and sets a variable", async () => {
    const console = await Console.open(browser, device.url, { viewport: DESKTOP });
    const { keyboard } = console.page;
    const focused = (selector) => console.page.locator(`${selector}:focus`).count();
    const tabTo = async (selector) => {
        for (let presses = 0; presses < 60 && (await focused(selector)) === 0; ++presses) await keyboard.press("Tab");
        assert.equal(await focused(selector), 1, `${selector} has the focus`);
    };
    await tabTo("#search");
    await keyboard.type("KnobBrightness");
    await console.shows("MemPersistent.KnobBrightness", /^\d+$/);
    await tabTo(`[data-variable="MemPersistent.KnobBrightness"] button.edit`);
    await keyboard.press("Enter");
    await tabTo("form.editor input");
    await keyboard.press("Control+A");
    await keyboard.type("3");
    await keyboard.press("Enter");
    await until(() => device.load("MemPersistent.KnobBrightness"), "3", "the value in the segment");
    await console.page.locator(`nav a[href="#log"]`).focus();
    await keyboard.press("Enter");
    await until(() => console.visibleViews(), ["log"], "the log");
    await console.close();
});
