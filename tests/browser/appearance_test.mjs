// Whether everybody can use the views. Leaves pictures in the build folder's "screenshots".

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { test } from "node:test";
import { until } from "./console.mjs";
import { setScene } from "./scene.mjs";
import { fill, VIEWS } from "./views.mjs";

const PICTURES = `${process.env.SYSTEM_TEST_BUILD}/screenshots`;
const LOOKS = {
    light: { viewport: { width: 1280, height: 800 } },
    dark: { viewport: { width: 1280, height: 800 }, colorScheme: "dark" },
    phone: { viewport: { width: 390, height: 844 }, hasTouch: true, isMobile: true },
};
const CHANGES = 15;
const TABS_AT_MOST = 60;

const { device, open } = await setScene({ simulation: [], display: [] });
await mkdir(PICTURES, { recursive: true });
await device.log("<3>motor 2: over-current, 1.9 A");

// Lines in the plots, for the picture: returns when the focus has moved.
async function letNumbersMove({ page }) {
    await page.locator("#watch-span").selectOption("10");
    for (const name of ["MemDynamic.LensActFocus", "MemDynamic.BattVoltage"]) {
        await page.locator("#watch-add").fill(name);
        await page.locator("#watch-add").press("Enter");
    }
    const seen = new Set();
    const hasMoved = async () => seen.add(await page.locator("#watch-plots .now").first().innerText()).size > CHANGES;
    await until(hasMoved, true, "a focus that moves");
}

// On a phone nothing may stick out to the side.
const overhang = () => document.documentElement.scrollWidth - document.documentElement.clientWidth;

for (const [look, options] of Object.entries(LOOKS)) {
    test(`every view fits its window and has no serious accessibility finding: ${look}`, async () => {
        const console = await open(options);
        for (const view of VIEWS) {
            await console.go(view);
            await fill(console, view);
            if (view === "watch") await letNumbersMove(console);
            const { critical, serious } = await console.findings();
            assert.deepEqual([...critical, ...serious], [], view);
            assert.equal(await console.page.evaluate(overhang), 0, view);
            await console.page.screenshot({ path: `${PICTURES}/console-${view}-${look}.png` });
        }
    });
}

test("the keyboard reaches the views and sets a variable", async () => {
    const console = await open();
    const { keyboard } = console.page;
    const tabTo = async (selector) => {
        const focused = console.page.locator(`${selector}:focus`);
        for (let tabs = 0; tabs < TABS_AT_MOST && !(await focused.count()); ++tabs) await keyboard.press("Tab");
        assert.equal(await focused.count(), 1, `${selector} has the focus`);
    };
    await tabTo(`nav a[href="#log"]`);
    await keyboard.press("Enter");
    await until(() => console.visibleViews(), ["log"], "the log");
    await console.go("variables");
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
});
