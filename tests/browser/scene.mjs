// What the tests of a file share: a device and a browser. The pages that a test opens end with it, also when it fails.

import assert from "node:assert/strict";
import { after, afterEach } from "node:test";
import { Console, enter, FILL, launchBrowser, saved } from "../../device/node/console.mjs";
import { Device } from "../../device/node/device.mjs";
import { until } from "../../device/node/until.mjs";

export { enter, FILL, saved, until };

// The options are those of the device; open() of the result takes those of Console.open().
export async function setScene(options) {
    const [device, browser] = await Promise.all([Device.start(options), launchBrowser()]);
    const consoles = [];
    const open = async (page) => {
        consoles.push(await Console.open(browser, device.url, page));
        return consoles.at(-1);
    };
    afterEach(async () => {
        await Promise.all(browser.contexts().map((profile) => profile.close()));
        assert.deepEqual(consoles.splice(0).flatMap(({ faults }) => faults), []);
    });
    after(async () => {
        await browser.close();
        await device.stop();
    });
    return { device, browser, open };
}

// Fills the page's local storage to its last character.
export const fillStorage = (page) => page.evaluate(() => {
    for (let text = "x".repeat(2 ** 20), count = 0; text !== "";) {
        try {
            localStorage.setItem(`full${count++}`, text);
        } catch {
            text = text.slice(text.length / 2 + 0.5);
        }
    }
});
