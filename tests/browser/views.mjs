// The views, each with something to see in it.

import { until } from "./console.mjs";

const FILL = {
    variables: async (console) => {
        await console.edit("MemPersistent.DisplayBrightness", (editor) => editor.locator("input").first().fill("11"),
            /refused/i);
        await console.search("Bright");
    },
    watch: async ({ page }) => {
        await page.locator("#watch-add").fill("MemDynamic.FocusActPosNorm");
        await page.locator("#watch-add").press("Enter");
        await until(() => page.locator("#watch-plots canvas").count(), 1, "a plot");
    },
    log: ({ page }) => until(() => page.locator("#log-output").innerText(), /\S/, "a log"),
    screen: ({ page }) => until(() => page.locator("#screen-save").isEnabled(), true, "a picture"),
    device: ({ page }) => until(() => page.locator("#device-identity").innerText(), /K1-00042/, "the identity"),
};

export const VIEWS = Object.keys(FILL);

// Brings something to see into the view that is open, and returns when it is there.
export function fill(console, view) {
    return FILL[view](console);
}
