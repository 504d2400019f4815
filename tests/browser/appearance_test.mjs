// Whether everybody can use the views. Leaves pictures in the build folder's "screenshots".

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { test } from "node:test";
import { FILL, setScene, until } from "./scene.mjs";

const PICTURES = `${process.env.SYSTEM_TEST_BUILD}/screenshots`;
const LOOKS = {
    desktop: { viewport: { width: 1280, height: 800 } },
    phone: { viewport: { width: 360, height: 740 }, hasTouch: true, isMobile: true },
};
// One of each kind: number, switch, choice, text, buffer, structure, list.
const KINDS = ["MemCamera.CamShutterCustomSet", "MemPersistent.StealthMode", "MemPersistent.KnobColor", "MemPersistent.ProductName",
    "MemGuiLocal.RadioRegionFlags", "MemMotors.FocusMotor", "MemLens.LensFileList"];

const { device, open } = await setScene({ simulation: [], display: [] });
await mkdir(PICTURES, { recursive: true });
await device.log("<3>motor 2: over-current, 1.9 A");

// What opens in the view Variables, and where it is.
const OPEN = {
    editors: ["#favourites", async ({ page }) => {
        await page.locator("#search").fill("");
        for (const variable of KINDS) await page.locator(`#favourites [data-variable="${variable}"] .edit`).click();
        await until(() => page.locator("#favourites form.editor").count(), KINDS.length, "editors");
    }],
    palette: ["dialog[open]", async ({ page }) => {
        await page.keyboard.press("Control+K");
        await page.locator("dialog[open] [role=option]").first().waitFor();
    }],
    question: ["dialog[open]", async ({ page }) => {
        await page.keyboard.press("Escape");
        await page.locator("#favourites [name=LensFileName]").fill("not set");
        await page.locator("#favourites .edit").last().click();
        await page.locator("#question[open]").waitFor();
    }],
};

// What sticks out to the side: the page as a whole, or controls that do not scroll into view; and texts without room.
function overhang(size) {
    const root = document.documentElement;
    root.style.fontSize = size;
    const isSeen = (node) => node.checkVisibility({ contentVisibilityAuto: true }) && !node.closest(".scroll");
    const rightOf = (node) => node.getBoundingClientRect().right;
    const isOut = (control) => isSeen(control)
        && rightOf(control) > Math.min(rightOf(control.closest(".memory, .card, .plot, body")), root.clientWidth) + 1;
    const isNarrow = (name) => isSeen(name) && name.clientWidth < 100;
    const controls = [...document.querySelectorAll("button, input, select, textarea, a")].filter(isOut);
    controls.push(...[...document.querySelectorAll(".what, dd")].filter(isNarrow));
    controls.push(...[...document.querySelectorAll("#snapshot-rows td, .members td")].filter((cell) => cell.scrollWidth > cell.clientWidth));
    const isSmall = size === "200%" && parseFloat(getComputedStyle(document.body).fontSize) < 24;
    const found = [isSmall ? "text that does not grow" : [], root.scrollWidth > root.clientWidth ? "the page" : [], controls.map((control) => control.outerHTML)].flat();
    root.style.fontSize = "";
    return found;
}

for (const [look, options] of Object.entries(LOOKS)) {
    test(`every view fits its window and has no accessibility finding: ${look}`, async () => {
        const kept = [{ name: "console.favourites", value: JSON.stringify(KINDS) }];
        const console = await open({ ...options, reducedMotion: "reduce", storageState: { origins: [{ origin: device.url, localStorage: kept }] } });
        const check = async (what, part) => {
            for (const colorScheme of ["dark", "light"]) {
                await console.page.emulateMedia({ colorScheme });
                assert.deepEqual(await console.findings(part), [], `${what}, ${colorScheme}`);
                await console.page.screenshot({ path: `${PICTURES}/console-${what}-${look}-${colorScheme}.png` });
            }
            for (const size of ["", "200%"]) {
                assert.deepEqual(await console.page.evaluate(overhang, size), [], `${what}, text ${size}`);
            }
        };
        for (const [view, fill] of Object.entries(FILL)) {
            await console.go(view);
            await fill(console);
            assert.match(await console.page.title(), new RegExp(`^${view} – Lens Control`, "i"));
            await check(view);
        }
        await console.go("variables");
        for (const [what, [part, show]] of Object.entries(OPEN)) {
            await show(console);
            await check(what, part);
        }
    });
}
