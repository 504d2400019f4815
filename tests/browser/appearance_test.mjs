// Whether everybody can use the views. Leaves pictures in the build folder's "screenshots".

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { test } from "node:test";
import { until } from "./console.mjs";
import { FILL, setScene } from "./scene.mjs";

const PICTURES = `${process.env.SYSTEM_TEST_BUILD}/screenshots`;
const LOOKS = {
    light: { viewport: { width: 1280, height: 800 } },
    dark: { viewport: { width: 1280, height: 800 }, colorScheme: "dark" },
    phone: { viewport: { width: 390, height: 844 }, hasTouch: true, isMobile: true },
};
const TABS_AT_MOST = 60;

const { device, open } = await setScene({ simulation: [], display: [] });
await mkdir(PICTURES, { recursive: true });
await device.log("<3>motor 2: over-current, 1.9 A");

// On a phone nothing may stick out to the side.
const overhang = () => document.documentElement.scrollWidth - document.documentElement.clientWidth;

for (const [look, options] of Object.entries(LOOKS)) {
    test(`every view fits its window and has no accessibility finding: ${look}`, async () => {
        const console = await open(options);
        for (const [view, fill] of Object.entries(FILL)) {
            await console.go(view);
            await fill(console);
            assert.deepEqual(await console.findings(), [], view);
            assert.equal(await console.page.evaluate(overhang), 0, view);
            await console.page.screenshot({ path: `${PICTURES}/console-${view}-${look}.png` });
            assert.match(await console.page.title(), new RegExp(`^${view} – Lens Control`, "i"));
            const setText = (size) => console.page.locator("html").evaluate((page, text) => { page.style.fontSize = text; }, size);
            await setText("200%");
            assert.equal(await console.page.evaluate(overhang), 0, `${view}, large text`);
            await setText("");
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
    await console.isIn("log");
    await console.go("variables");
    await tabTo("#search");
    await keyboard.type("KnobBrightness");
    await console.shows("MemPersistent.KnobBrightness", /^\d+$/);
    await tabTo(`[data-variable="MemPersistent.KnobBrightness"] button.pin`);
    await console.page.locator("#search").fill("");
    const stops = () => console.page.locator("[data-view=variables]").evaluate((view) => [...view.querySelectorAll("button, input, select, textarea")]
        .filter((node) => node.tabIndex >= 0 && node.checkVisibility()).length);
    await until(async () => await console.page.locator(".variable:visible").count() > 100 && await stops() < 12, true, "few stops");
    await tabTo(".variable .edit");
    await keyboard.press("End");
    await until(() => console.page.evaluate(() => document.activeElement === [...document.querySelectorAll(".variable .edit")].at(-1)), true, "the last row");
    await console.page.locator("#search").fill("KnobBrightness");
    await console.shows("MemPersistent.KnobBrightness", /^\d+$/);
    await console.page.locator("#search").focus();
    await tabTo(`[data-variable="MemPersistent.KnobBrightness"] button.edit`);
    await keyboard.press("Enter");
    await tabTo("form.editor input");
    await keyboard.press("Control+A");
    await keyboard.type("3");
    await keyboard.press("Enter");
    await until(() => device.load("MemPersistent.KnobBrightness"), "3", "the value in the segment");
});
