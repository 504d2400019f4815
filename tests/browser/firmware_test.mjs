// Firmware updates. The test plays the updater, so that each state lasts as long as it looks at it.

import assert from "node:assert/strict";
import { truncate, writeFile } from "node:fs/promises";
import { beforeEach, test } from "node:test";
import { fillStorage, setScene, until } from "./scene.mjs";

const RBUS = "MemExternalDevices.RBusUpdate";
const LIST = "MemExternalDevices.RBusDeviceList";
const HOST = "MemMedia.HostUpdate";

const { device, browser, open } = await setScene();
const FILE = `${device.root}/tmp/file.cmf`;
const [ranger] = (await device.load(LIST)).filter((each) => each.RBusDeviceName === "Ultrasonic Ranger");
const index = (await device.load(LIST)).findIndex((each) => each.RBusDeviceName === "Ultrasonic Ranger");
const setRanger = (members) => device.store(LIST, { Index: index, ...members });

let context, console, page;

beforeEach(async () => {
    context = await browser.newContext();
    console = await open({ view: "device", context });
    ({ page } = console);
});

const says = (text, on = console) => on.says("#firmware-state", text);
const question = (answer) => page.locator("#question").getByRole("button", { name: answer }).click();

// Chooses target and file and presses the button.
async function choose(target, size = 100, tab = console) {
    await tab.page.locator("#firmware-target option", { hasText: target }).waitFor({ state: "attached" });
    const value = await tab.page.locator("#firmware-target option", { hasText: target }).getAttribute("value");
    await tab.page.locator("#firmware-target").selectOption(value);
    await writeFile(FILE, "");
    await truncate(FILE, size);
    await tab.page.locator("#firmware-file").setInputFiles(FILE);
    await tab.page.locator("#firmware-form [type=submit]").click();
    return value;
}

test("no target is preselected, none changes by itself, and a question comes before the upload", async () => {
    await console.says("#device-identity", /Ultrasonic Ranger/);
    assert.equal(await page.locator("#firmware-target").inputValue(), "");
    const id = await choose("Ultrasonic Ranger");
    await console.says("#question-text", new RegExp(`Ultrasonic Ranger ${ranger.RBusSerNumber}, version ${ranger.RBusMainSwVersion}.*file.cmf`));
    await question("Cancel");
    await setRanger({ RBusDeviceConnected: false });
    await console.says("#firmware-target", /not connected/);
    assert.equal(await page.locator("#firmware-target").inputValue(), id);
    await page.locator("#firmware-form [type=submit]").click();
    await says(/is not connected/);
    await setRanger({ RBusDeviceConnected: true });
    await until(() => page.locator("#firmware-target").innerText(), /^((?!not connected)[^])*$/, "the target, back again");
    assert.equal(await page.locator("#firmware-target").inputValue(), id);
    assert.equal(await device.load(`${RBUS}FileName`), "", "nothing was sent");
    for (const [part, text] of [["Emip", "An update of Emip runs"], ["None", /^Not updated: .*not connected|^No update/]]) {
        await settle(console);
        await device.store("MemDeviceState.DeviceUpdateStart", part);
        await says(text);
        assert.equal(await page.locator("#firmware-form [type=submit]").isDisabled(), part === "Emip");
    }
});

// Returns when the pages wait for updates again: a change that no request waits for is not reported. The service reports
// the changes before now together with that of the brightness.
async function settle(...pages) {
    const update = fetch(`${device.url}/api/v1/update.cgi`);
    await device.store("MemPersistent.DisplayBrightness", 1 + Number(await device.load("MemPersistent.DisplayBrightness")) % 9);
    await (await update).text();
    for (const each of pages) {
        await each.settles();
    }
}

// Plays the updater. After each state the uploading page is loaded anew; another browser shows the same.
async function play(place, target, states, outcome) {
    const other = await open({ view: "device" });
    await device.store(`${place}FileName`, "");
    await settle(console, other);
    await choose(target);
    await question("Update");
    await until(() => device.load(`${place}FileName`), /\/update\//, "the upload");
    for (const [state, text] of states) {
        await settle(console, other);
        await device.store(`${place}${place === HOST ? "File" : ""}State`, state);
        await says(text);
        await page.reload();
        await says(text);
        await says(text, other);
        if (state === "FileValid") {
            await until(() => device.load(`${place}Start`), "true", "the start");
            await device.store(`${place}Start`, false);
        }
    }
    await outcome();
}

const STATES = [["CheckingFile", /Checking/], ["FileValid", /valid/], ["CopyingFile", /Copying/], ["Rebooting", /Starting again/]];

for (const version of ["9.0.0", "9.0.0"]) {
    test(`an accessory's update survives reloads at each step and compares the versions: ${version}`, async () => {
        const before = (await device.load(LIST))[index].RBusMainSwVersion;
        await play(RBUS, "Ultrasonic Ranger", STATES, async () => {
            await setRanger({ RBusDeviceConnected: false });
            await device.store(`${RBUS}State`, "Success");
            await setRanger({ RBusMainSwVersion: version, RBusDeviceConnected: true });
            await says(before === version ? /^Updated: .*9.0.0, as before/ : /^Updated: .*→ 9.0.0/);
        });
        await page.reload();
        await says(/^Updated: /);
    });
}

test("the device's own update ends with its version, and one that fails is named", async () => {
    await play(HOST, "this device", STATES, async () => {
        await device.store("MemPersistent.ProductVersion", "9.9");
        await device.store(`${HOST}FileState`, "Success");
        await says(/^Updated: .*→ 9.9/);
    });
    await play(RBUS, "Ultrasonic Ranger", STATES.slice(0, 3), async () => {
        await device.store(`${RBUS}State`, "CopyingFailed");
        await says(/^Not updated: .*copying failed/);
    });
});

test("a page that is left before its upload has begun says so when it is back", async () => {
    await page.evaluate(() => { indexedDB.open = () => ({}); });
    await choose("Ultrasonic Ranger");
    await question("Update");
    await until(() => page.evaluate(() => sessionStorage.length), 1, "the claim");
    for (const text of [/^Not updated: the page was left before the upload, /, /^Not updated: the page was left/]) {
        await page.reload();
        await says(text);
    }
});

test("an update goes on in a page whose browser keeps nothing more", async () => {
    const before = { phase: "ended", target: { isHost: true, name: "Other" }, end: { step: "end", text: "Updated: Other" } };
    await page.evaluate((kept) => localStorage.setItem("console.update", JSON.stringify(kept)), before);
    await page.reload();
    await says("Updated: Other");
    await fillStorage(page);
    await device.store(`${RBUS}FileName`, "");
    await settle(console);
    await choose("Ultrasonic Ranger");
    await question("Update");
    await until(() => device.load(`${RBUS}FileName`), /\/update\//, "the upload");
    await settle(console);
    await device.store(`${RBUS}State`, "CheckingFile");
    await says(/^Ultrasonic Ranger: Checking the file. Keep this page open until it has ended/);
    await device.store(`${RBUS}State`, "FileCorrupt");
    await says(/^Not updated: Ultrasonic Ranger, the file is corrupt$/);
});

test("an upload that stalls is reported in every tab, can be cancelled, and is not left without a question", async () => {
    const second = await open({ view: "device", context });
    for (const each of [console, second]) {
        await each.says("#firmware-target", /Ultrasonic Ranger/);
    }
    await device.store(`${RBUS}FileName`, "");
    await device.whileServerFrozen(async () => {
        await choose("Ultrasonic Ranger", 50_000_000);
        await question("Update");
        await says(/stalled for \d+ s/);
        await says(/Uploading file.cmf.*stalled/, second);
        assert.ok(await second.page.locator("#firmware-form [type=submit]").isDisabled());
        const leaving = page.waitForEvent("dialog");
        await page.close({ runBeforeUnload: true });
        const dialog = await leaving;
        assert.equal(dialog.type(), "beforeunload");
        await dialog.dismiss();
        await page.locator("#firmware-cancel").click();
        await says("Not updated: cancelled");
        await says("Not updated: cancelled", second);
        await choose("Ultrasonic Ranger", 50_000_000);
        await question("Update");
        await says(/Uploading/);
        page.on("dialog", (each) => each.accept());
        await page.goto("about:blank");
        await says(/page was left during the upload/, second);
    });
    assert.equal(await device.load(`${RBUS}FileName`), "", "nothing has arrived");
});

test("of two tabs that start an update at the same moment one uploads, and the other says so", async () => {
    const tabs = [console, await open({ view: "device", context })];
    for (const tab of tabs) await choose("Ultrasonic Ranger", 50_000_000, tab);
    await device.whileServerFrozen(async () => {
        await Promise.all(tabs.map((tab) => tab.page.evaluate(() => document.querySelector("#question [value=yes]").click())));
        const count = async (isWanted) => (await Promise.all(tabs.map(isWanted))).filter(Boolean).length;
        await until(() => count(async (tab) => /is not sent: another/.test(await tab.page.locator("#firmware-state").innerText())), 1, "refusals");
        await until(() => count((tab) => tab.page.locator("#firmware-cancel").isVisible()), 1, "uploads");
    });
});
