// Variables: what the device changes is seen, what a person changes is stored, and the page says what the segment holds.

import assert from "node:assert/strict";
import { test } from "node:test";
import { enter, setScene, until } from "./scene.mjs";

// The web server gives up sooner than on the device.
const { device, open } = await setScene({ site: { "server.conf": ["fastcgi_read_timeout 30s", "fastcgi_read_timeout 10s"] } });

const BRIGHTNESS = "MemPersistent.DisplayBrightness";
const NAME = "MemPersistent.ProductName";
const FLAGS = "MemGuiLocal.RadioRegionFlags";
const SHUTTER = "MemCamera.CamShutterCustomSet";
const FOOTAGE = "MemCamera.CamFootage";
const COUNTER = "MemDynamic.LostFrameCounter";
const STEALTH = "MemPersistent.StealthMode";
const COLOUR = "MemPersistent.KnobColor";

// Enters a text into the first field of an editor.
const entering = (text) => (editor) => enter(editor.locator("input, select, textarea").first(), text);
const stored = /^stored$/;
const FILLED = { [BRIGHTNESS]: "5", [COUNTER]: "7", [FOOTAGE]: "1.500000", [NAME]: "Device", [FLAGS]: "010203" };

// Edits, what the page says of each, and what the variable holds then; without that, what it held before.
const EDITS = [
    [BRIGHTNESS, "10", stored, "10"], [BRIGHTNESS, "11", "refused: 0 to 10"], [BRIGHTNESS, "", /^not sent: a number/],
    [COUNTER, "-2147483648", stored, "-2147483648"], [COUNTER, "2147483648", /^not sent: an int holds/],
    [COUNTER, "1e21", /^not sent/], [COUNTER, "inf", /^not sent/], [COUNTER, "1.5", "stored as 1", "1"],
    [COUNTER, "1e-7", "stored as 0", "0"], [COUNTER, "2,9", "stored as 2", "2"], [COUNTER, "010", stored, "10"],
    [SHUTTER, "172.8", "stored as 172.800003", "172.800003"], [SHUTTER, "0,5", "stored as 0.500000", "0.500000"],
    [SHUTTER, "0.0078125", "stored as 0.007812", "0.007812"], [SHUTTER, "1,5,0", /^not sent/],
    [SHUTTER, "360.00001", "stored as 360.000000", "360.000000"], [SHUTTER, "361", "refused: 0 to 360"],
    [FOOTAGE, "1e40", /^not sent: a float/], [FOOTAGE, "Infinity", /^not sent/], [FOOTAGE, "", /^not sent/],
    [FOOTAGE, "1e22", "stored as 9999999778196308361216.000000", "9999999778196308361216.000000"],
    [NAME, `"A" <b>ü</b>`, stored, `"A" <b>ü</b>`], [NAME, "", stored, ""], [NAME, `"'`, /^not sent/], [NAME, "}{", /^not sent/],
    [NAME, "a text of more than 20 bytes", "stored, cut to 19 bytes: a text of more than", "a text of more than"],
    [NAME, "1234567890123456😀😀", "stored, cut to 16 bytes: 1234567890123456", "1234567890123456"],
    [FLAGS, "0affC3", stored, "0affc3"], [FLAGS, "", /^not sent/], [FLAGS, "12345678", /^not sent: the buffer holds 3/],
    [FLAGS, "AB", "stored in the first 1 of 3 bytes", "ab0203"], [FLAGS, "zz", /^not sent/],
    [COLOUR, "Magenta", stored, "Magenta"], [STEALTH, "true", stored, "true"], [STEALTH, "false", stored, "false"],
];

test("an edit is stored or refused, and the page says what the variable holds", async () => {
    const console = await open();
    for (const [variable, text, outcome, held] of EDITS) {
        if (FILLED[variable]) {
            await device.store(variable, FILLED[variable]);
            await console.shows(variable, FILLED[variable]);
        }
        await console.edit(variable, entering(text), outcome).catch((error) => assert.fail(`${text}: ${error.message}`));
        assert.equal((await device.load(variable)).trim(), held?.trim() ?? FILLED[variable] ?? await device.load(variable), `${variable}: ${text}`);
    }
});

// For each kind a value before, and two that are set.
const KINDS = [[COUNTER, "1", "2", "3"], [SHUTTER, "1.500000", "2.500000", "3.500000"], [STEALTH, "false", "true", "false"],
    [COLOUR, "Red", "Green", "Blue"], [NAME, "one", "two", "three"], [FLAGS, "010203", "020304", "030405"]];

async function beginAll(console) {
    for (const [variable, before] of KINDS) {
        await device.store(variable, before);
        await console.shows(variable, before);
    }
}

test("what is set while a request is on its way is stored after it", async () => {
    const console = await open();
    await beginAll(console);
    const held = [];
    await console.page.route("**/set.cgi", (route) => held.push(route));
    for (const [variable, , first, second] of KINDS) {
        const editor = await console.editor(variable);
        await entering(first)(editor);
        await editor.locator(".primary").click();
        await until(() => held.length, 1, "a request");
        await entering(second)(editor);
        await editor.locator(".primary").click();
        await held.pop().continue();
        await until(() => held.length, 1, "the next request");
        await held.pop().continue();
        await until(() => editor.locator(".outcome").innerText(), stored, variable);
        assert.equal(await device.load(variable), second, variable);
    }
});

test("while the service is frozen an edit is unknown, and stored when it continues", async () => {
    const console = await open();
    await beginAll(console);
    const outcomes = [];
    const all = async () => [...new Set(await Promise.all(outcomes.map((outcome) => outcome())))];
    await device.whileFrozen(async () => {
        for (const [variable, , value] of KINDS.slice(1)) { // so many requests as a browser sends at once
            const editor = await console.editor(variable);
            await entering(value)(editor);
            await editor.locator(".primary").click();
            outcomes.push(() => editor.locator(".outcome").textContent());
        }
        await until(async () => (await all()).join(), /^waiting[^,]*$/, "outcomes of requests without an answer");
        await until(async () => (await all()).map((text) => text.slice(0, 8)), ["unknown:"], "outcomes after the web server's timeout");
    });
    await until(all, ["stored"], "outcomes of requests that the service has got");
});

test("an untouched field follows the value, and what is typed replaces a newer value only after a question", async () => {
    const console = await open();
    await beginAll(console);
    const question = console.page.locator("#question");
    for (const [variable, , meanwhile, typed] of KINDS) {
        const editor = await console.editor(variable);
        const field = editor.locator("input, select, textarea").first();
        await device.store(variable, meanwhile);
        await until(() => field.evaluate((node) => String(node.type === "checkbox" ? node.checked : node.value)), meanwhile, "the field");
        await entering(typed)(editor);
        const [, before] = KINDS.find(([name]) => name === variable);
        await device.store(variable, before);
        await until(() => editor.locator(".note").innerText(), new RegExp(`${meanwhile} → ${before}`), "the hint");
        await editor.locator(".primary").click();
        await question.getByRole("button", { name: "Cancel" }).click();
        await until(() => editor.locator(".outcome").innerText(), "not sent", variable);
        assert.equal(await device.load(variable), before);
        await editor.locator(".primary").click();
        await question.getByRole("button", { name: "Set" }).click();
        await until(() => editor.locator(".outcome").innerText(), stored, variable);
        assert.equal(await device.load(variable), typed);
    }
});

test("a value that another process changes right after a set is not taken for a refusal", async () => {
    const console = await open();
    await device.store(BRIGHTNESS, 1);
    await console.shows(BRIGHTNESS, "1");
    let answer;
    await console.page.route("**/set.cgi", async (route) => {
        const response = await route.fetch();
        answer = () => route.fulfill({ response });
    });
    const editor = await console.editor(BRIGHTNESS);
    await entering("6")(editor);
    await editor.locator(".primary").click();
    await console.shows(BRIGHTNESS, "6");
    await console.settles();
    await device.store(BRIGHTNESS, 7);
    await console.shows(BRIGHTNESS, "7");
    await answer();
    await until(() => editor.locator(".outcome").innerText(), "stored; changed since: it holds 7", "the outcome");
});

test("an error of the service is no refusal where the value is stored", async () => {
    const console = await open();
    let body = '{"result": 0, "error": "" }';
    await console.page.route("**/set.cgi", async (route) => route.fulfill({ response: await route.fetch(), body }));
    await console.edit(BRIGHTNESS, entering("2"), "stored; the service reports an error");
    await console.edit(BRIGHTNESS, entering("11"), /^refused/);
    body = "{"; // the rest is lost
    await console.edit(BRIGHTNESS, entering("4"), "stored");
    await console.edit(BRIGHTNESS, entering("11"), "unknown: the answer is not readable; it may be stored later");
});

test("what is typed is not left without a question", async () => {
    const console = await open();
    const editor = await console.editor(NAME);
    await editor.locator("input").pressSequentially("typed");
    const leaving = console.page.waitForEvent("dialog");
    await console.page.close({ runBeforeUnload: true });
    const dialog = await leaving;
    assert.equal(dialog.type(), "beforeunload");
    await dialog.dismiss();
    assert.match(await editor.locator("input").inputValue(), /typed/);
});

test("an edited element of a list arrives alone, and what is typed is not discarded without a question", async () => {
    const list = "MemLens.LensFileList";
    const expected = await device.load(list);
    const console = await open();
    const editor = await console.editor(list);
    const name = editor.locator("[name=LensFileName]");
    const choose = (index) => editor.locator("input[name=Index]").fill(index).then(() => console.page.keyboard.press("Tab"));
    await choose("2");
    await console.edit(list, () => name.fill("x".repeat(32)), /^not sent: LensFileName: 31 bytes fit/);
    await name.fill("Prime 50");
    await choose("3");
    await console.page.locator("#question").getByRole("button", { name: "Cancel" }).click();
    assert.equal(await name.inputValue(), "Prime 50");
    await console.edit(list, () => editor.locator("[name=LensFileValid]").setChecked(true), stored);
    Object.assign(expected[2], { LensFileName: "Prime 50", LensFileValid: true });
    assert.deepEqual(await device.load(list), expected);
    const held = [];
    await console.page.route("**/set.cgi", (route) => held.push(route));
    for (const isValid of [false, true]) {
        await editor.locator("[name=LensFileValid]").setChecked(isValid);
        await editor.locator(".primary").click();
    }
    for (const turn of [1, 2]) {
        await until(() => held.length, turn, "a request");
        await held.at(-1).continue();
    }
    await until(() => device.load(list), expected, "what was set last");
});

test("a change is marked for a moment", async () => {
    await device.store(BRIGHTNESS, 3);
    const console = await open();
    await console.shows(BRIGHTNESS, "3");
    await (await console.row(BRIGHTNESS)).evaluate((node) => {
        globalThis.marks = [];
        const note = () => globalThis.marks.push(node.classList.contains("changed"));
        new MutationObserver(note).observe(node, { attributeFilter: ["class"] });
    });
    await device.store(BRIGHTNESS, 8);
    await console.shows(BRIGHTNESS, "8");
    await until(() => console.page.evaluate(() => globalThis.marks), [true, false], "a mark, and its end");
});

test("the search looks through names, types and values, open editors or not, and a favourite survives a reload", async () => {
    await device.store(NAME, "Needle");
    const console = await open();
    await console.editor(BRIGHTNESS);
    const search = (text) => console.page.locator("#search").fill(text);
    const found = () => console.page.locator("[data-variable]:visible").evaluateAll((rows) => rows.map((row) => row.dataset.variable));
    for (const [text, variable] of [["stealthm all lights", STEALTH], ["KnobColor", COLOUR], ["Needle", NAME]]) {
        await search(text);
        await until(async () => (await found())[0], variable, text);
        assert.ok(!(await found()).includes(BRIGHTNESS), "an open editor is in the way");
    }
    await (await console.row(STEALTH)).locator("button.pin").click();
    await search("");
    await until(() => console.page.url(), /#variables$/, "the address without the search");
    await console.page.reload();
    const pin = console.page.locator(`#favourites [data-variable="${STEALTH}"] button.pin`);
    await pin.click();
    await until(() => pin.count(), 0, "no favourite");
});

test("a value that cannot be printed costs that value, not the page", async () => {
    await device.poke("MemPersistent", 0, [0xff, 0]);
    const console = await open();
    await console.shows(NAME, /cannot be printed/);
    await console.shows(BRIGHTNESS, /^\d+$/);
    await console.edit(NAME, entering("Printable"), stored);
});
