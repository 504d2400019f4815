// Finding variables, views and actions by what is remembered of them, and following what changes.

import assert from "node:assert/strict";
import { test } from "node:test";
import { setScene, until } from "./scene.mjs";

const { device, open } = await setScene();

const HALF_REMEMBERED = {
    "batery": "VoltageBattery", "DisplayBrigthness": "DisplayBrightness", "brightness display": "DisplayBrightness",
    "knob colour": "KnobColor", "battery voltage": "BattVoltage", "focus position": "FocusActPosNorm",
    "stelth": "StealthMode", "white balance tint": "CamWhiteBalanceTintAct", "lens files": "LensFileList",
    "service log level": "AppServiceLogLevel", "radio chanel": "RadioChannel", "rssi": "RadioRSSI",
    "lanuage": "Language", "mac adress": "RadioMacAddress", "serial number product": "ProductSerial",
    "camera firmware version": "CamFWVersion", "time zone": "DateTimezone", "touch screen": "DisableTouchscreen",
    "lock knob": "KnobLock", "zoom teeth": "ZoomMotorTeeth", "recording vibration": "RecordingVibrationEnable",
    "depth of field near": "DofNearValue", "exposure indx": "CamExposureIndexAct", "night": "GuiDesignIsNightStyle",
    "sound volumne": "SoundVolume", "temperature battery": "BattTemperature", "motor postion focus": "FocusMotor",
    "nd filter": "CamNdFilterAct", "circle of confuson": "CircleofConfusion", "percent battery": "BattPercent",
};

const results = (page) => page.locator("#results [data-variable]")
    .evaluateAll((rows) => rows.map((row) => row.dataset.variable.split(".")[1]));

test("the intended variable is among the first three for half-remembered names", async () => {
    const { page } = await open();
    for (const [text, name] of Object.entries(HALF_REMEMBERED)) {
        await page.locator("#search").fill(text);
        const first = (await results(page)).slice(0, 3);
        assert.ok(first.includes(name), `${text}: ${first}, not ${name}`);
    }
    await page.locator("#search").fill("xyzzy");
    assert.match(await page.locator("#results-none").innerText(), /no variable.*xyzzy/i);
});

test("the address holds what is searched for, and a reload finds it again", async () => {
    const console = await open();
    const { page } = console;
    await page.locator("#memory").selectOption("MemPersistent");
    await page.locator("#search").fill("Bright");
    await until(() => page.url(), /#variables\?search=Bright&memory=MemPersistent$/, "the address");
    const found = await results(page);
    await device.whileFrozen(async () => {
        await page.reload();
        await console.says("#results-none", "Waiting for the values.");
        await page.waitForTimeout(1000); // longer than the page waits with the address
    });
    await until(() => results(page), found, "the same rows");
    assert.ok(found.length > 3);
});

test("only what changes from now on is shown, with the time of its last change", async () => {
    await device.store("MemPersistent.DisplayBrightness", 1);
    const console = await open();
    const { page } = console;
    await page.locator("#only").selectOption("now");
    await console.says("#results-none", /no variable has changed since \d+:\d+:\d+/i);
    for (const value of [4, 5]) await device.store("MemPersistent.DisplayBrightness", value);
    await device.store("MemPersistent.KnobBrightness", 3);
    await until(() => results(page), ["DisplayBrightness", "KnobBrightness"], "what has changed");
    await console.says("#results .when", /^changed( before)? \d+:\d+:\d+$/);
    await page.locator("#only").selectOption("");
    assert.deepEqual(await results(page), []);
});

const focus = (page) => page.evaluate(() => document.activeElement.closest("[data-variable]")?.dataset.variable
    ?? document.activeElement.id);

test("the palette leads to variables, views and actions by the keyboard alone", async () => {
    const console = await open();
    const { page } = console;
    for (const [key, text, hit, view, focused] of [
        ["/", "displaybrigthness", "MemPersistent.DisplayBrightness", "variables", "MemPersistent.DisplayBrightness"],
        ["Control+K", "log", "View Log", "log", "main"],
        ["/", "pause screen", "Action Pause the screen, or go on", "screen", "screen-pause"],
    ]) {
        await page.keyboard.press(key);
        await page.locator("dialog[open] #palette-list").waitFor();
        await page.keyboard.type(text);
        await until(() => page.locator(".palette [aria-selected=true]").getAttribute("data-hit"), hit, text);
        await page.keyboard.press("ArrowDown");
        await page.keyboard.press("ArrowUp");
        await page.keyboard.press("Enter");
        await console.isIn(view);
        await until(() => focus(page), focused, "the focus");
    }
    assert.equal(await page.locator("#screen-pause").getAttribute("aria-pressed"), "true");
    await page.keyboard.press("Control+K");
    await page.keyboard.press("Escape");
    assert.equal(await page.locator("dialog[open]").count(), 0);
});

test("an editor or a palette that could not be loaded is loaded when a person tries again", async () => {
    for (const [path, control, part] of [["**/editors/**", ".edit", "form.editor"], ["**/palette.js", "#find", ".palette[open]"]]) {
        const { page } = await open({ prepare: (each) => each.route(path, (route) => route.abort()) });
        await page.locator(control).first().click();
        const again = page.locator("#question[open]").getByRole("button", { name: "Try again" });
        await again.waitFor();
        await page.unroute(path);
        await again.click();
        await page.locator(part).waitFor();
    }
});

test("an editor that is loaded late takes no key that is typed elsewhere", async () => {
    let release;
    const isAsked = new Promise((resolve) => { release = resolve; });
    const { page } = await open({ prepare: (each) => each.route("**/editors/**", (route) => isAsked.then(() => route.continue())) });
    await page.locator(".edit").first().click();
    await page.locator("#search").focus();
    release();
    await page.locator("form.editor").waitFor();
    assert.equal(await focus(page), "search");
});
