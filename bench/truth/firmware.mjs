// Whether a firmware update is followed to its end over reloads, and how soon another browser shows it.

import { setTimeout as pause } from "node:timers/promises";
import { until } from "../../device/node/until.mjs";
import { Console } from "../../device/node/console.mjs";

const UPDATES = [["Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.0.0;2\n"], ["Lens Control", "firmware;Lens Control;4.3.0;1\n"],
    ["Ultrasonic Ranger", "firmware;Ultrasonic Ranger;2.1.0;2;fails\n"], ["Ultrasonic Ranger", "no firmware at all\n"],
    ["Ultrasonic Ranger", "firmware;Lens Control;4.3.0;1\n"]];
const LONGEST_MS = 12_000;
const END = /^(Updated|Not updated): ./;
const RUNS = /: (Checking|The file is valid|Copying|Updating|Starting)/;

// Notes in the page when it first shows each text of the update.
function noteTexts() {
    globalThis.seen = {};
    const node = document.querySelector("#firmware-state");
    const note = () => { globalThis.seen[node.textContent] ??= Date.now(); };
    new MutationObserver(note).observe(node, { childList: true, characterData: true, subtree: true });
}

async function begin(console, target, content) {
    const { page } = console;
    const option = page.locator("#firmware-target option").filter({ hasText: target });
    await until(() => option.count(), 1, target);
    await page.locator("#firmware-target").selectOption(await option.getAttribute("value"));
    await page.locator("#firmware-file").setInputFiles({ name: "file.cmf", mimeType: "", buffer: Buffer.from(content) });
    await page.locator("#firmware-form [type=submit]").click();
    await page.locator("#question [value=yes]").click();
}

const stateOf = ({ page }) => page.locator("#firmware-state").textContent();

// A page of another browser, opened while the update of `own` runs: milliseconds from its values to the running update;
// nothing if that ends before.
async function joinLate(device, browser, own) {
    const page = await Console.open(browser, device.url, { view: "device" });
    const begun = Date.now();
    let isShown = false;
    await until(async () => (isShown = RUNS.test(await stateOf(page))) || END.test(await stateOf(own)), true, "the update");
    const took = Date.now() - begun;
    await page.page.context().close();
    return isShown ? [took] : [];
}

// Runs so many updates; each page that uploads is loaded anew at a random moment. Returns {ended: their last texts, behind:
// for each text how much later than the uploading browser, or sooner, another one showed it, late: see joinLate()}, in ms.
export async function measureFirmware(device, browser, count, progress) {
    const [ended, behind, late] = [[], [], []];
    const other = await Console.open(browser, device.url, { view: "device" });
    await other.says("#firmware-state", /./);
    for (let update = 0; update < count; ++update) {
        progress(`Update ${update + 1} of ${count}`);
        const own = await Console.open(browser, device.url, { view: "device" });
        await Promise.all([own, other].map(({ page }) => page.evaluate(noteTexts)));
        const [target, content] = UPDATES[update % UPDATES.length];
        await begin(own, target, content);
        await pause(Math.random() * LONGEST_MS * (update % 2));
        const texts = await own.page.evaluate(() => globalThis.seen);
        await own.page.reload();
        await own.isLive();
        if (RUNS.test(await stateOf(own))) late.push(...await joinLate(device, browser, own));
        await own.says("#firmware-state", END);
        ended.push(await stateOf(own));
        const theirs = await other.page.evaluate(() => globalThis.seen);
        Object.entries(texts).filter(([text]) => RUNS.test(text) && text in theirs)
            .forEach(([text, time]) => behind.push(theirs[text] - time));
        await own.page.context().close();
    }
    await other.page.context().close();
    return { ended, behind, late };
}
