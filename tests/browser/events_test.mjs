// The console on a device with version 2 of the API: it follows the events, and polls where nobody answers them.

import assert from "node:assert/strict";
import { test } from "node:test";
import { updateText } from "../../apps/web/client/feed/events.js";
import { readVariables } from "../../apps/web/client/feed/documents.js";
import { setScene, until } from "./scene.mjs";

const VARIABLE = "MemPersistent.DisplayBrightness";
const STREAMS = 64; // of one address, as nginx limits them
const { device, open } = await setScene({ live: true });
const answer = async (path) => (await fetch(`${device.url}${path}`)).text();

function textsOf(document) {
    const texts = new Map();
    readVariables(document, (memory, name, text) => texts.set(`${memory}.${name}`, text));
    return texts;
}

test("changes have the texts of the tree, byte by byte", async () => {
    await device.store("MemPersistent.ProductName", "{'MemApp.X':1},");
    for (const focus of [0.0078125, -0.0234375, 1e30, 0]) {
        await device.store("MemPersistent.LastKnownFocusValue", focus);
        const known = textsOf(await answer("/api/v1/all.cgi"));
        const changed = textsOf(updateText(await answer("/api/v2/values"), known));
        assert.equal(changed.size, known.size);
        known.forEach((text, name) => assert.equal(changed.get(name), text, name));
    }
    const known = textsOf(await answer("/api/v1/all.cgi"));
    assert.equal(updateText('{"MemPersistent.LastKnownFocusValue":null}', known), null);
    assert.equal(updateText('{"MemPersistent.ProductName":"A"}', new Map()), null);
});

// A page that follows events, and a function that counts its requests for a path.
async function following() {
    const asked = [];
    const console = await open({ prepare: (page) => page.on("request", (request) => asked.push(new URL(request.url()).pathname)) });
    const count = (path) => asked.filter((one) => one === path).length;
    await until(() => count("/api/v2/events"), /[^0]/, "a request for events");
    return { console, count };
}

test("changes come as events, and as polls while the process for them is away", async () => {
    const { console, count } = await following();
    await device.store(VARIABLE, 3);
    await console.shows(VARIABLE, "3");
    const before = count("/api/v2/events");
    const polls = count("/api/v1/update.cgi");
    await device.command("end", "live");
    await device.store(VARIABLE, 4);
    await console.isLive();
    await console.shows(VARIABLE, "4");
    await device.store(VARIABLE, 5);
    await console.shows(VARIABLE, "5");
    assert.notEqual(count("/api/v1/update.cgi"), polls);
    await device.command("start", "live");
    await until(() => count("/api/v2/events") > before, true, "events, once they are there again");
    await console.isLive();
});

test("a frozen process for events is noticed, and the console polls instead", async () => {
    const { console } = await following();
    await device.whileFrozen(async () => {
        await device.store(VARIABLE, 6);
        await console.shows(VARIABLE, "6");
    }, device.live);
});

test("the console polls while other clients have all streams of its address", async () => {
    const others = new AbortController();
    const taken = []; // kept, because a collected response ends its stream
    const take = async () => taken[taken.push(await fetch(`${device.url}/api/v2/events?vars=ProductName`, others)) - 1].ok;
    // The pages of the tests before may still give their places back.
    await until(async () => {
        while (await take());
        return taken.filter(({ ok }) => ok).length;
    }, STREAMS, "all streams");
    const asked = [];
    const console = await open({ prepare: (page) => page.on("request", (request) => asked.push(request.url())) });
    await device.store(VARIABLE, 1);
    await console.shows(VARIABLE, "1");
    await console.says("#connection", "Live");
    await until(() => asked.some((url) => url.endsWith("/update.cgi")), true, "a poll");
    others.abort();
    const begun = asked.length;
    await until(() => asked.slice(begun).some((url) => url.endsWith("/all.cgi")), true, "a new begin, once there is a place");
    await console.isLive();
});

const NAME = "MemPersistent.ProductName";
const LIST = "MemLens.LensFileList";
const COUNTER = "MemDynamic.LostFrameCounter";

test("a value that version 2 refuses is not stored, and the editor says why", async () => {
    const { console } = await following();
    await device.store(COUNTER, 7);
    for (const [variable, text, outcome, held] of [
        [VARIABLE, "11", "refused: 11 is not between 0 and 10"], [VARIABLE, "7,0", "stored as 7", "7"],
        [COUNTER, "1.5", "refused: takes a whole number, not 1.5"], [COUNTER, "1e21", /^not sent: an int holds/],
        [NAME, "x".repeat(20), "refused: takes at most 19 bytes, not 20"], [NAME, `"A" 'b' }{\\ ü`, "stored", `"A" 'b' }{\\ ü`],
    ]) {
        const before = await device.load(variable);
        await console.edit(variable, (editor) => editor.locator("input").fill(text), outcome);
        assert.equal(await device.load(variable), held ?? before, text);
        assert.equal(await console.page.locator("form.editor [aria-invalid=true]").count(), held ? 0 : 1, text);
        await (await console.row(variable)).getByRole("button", { name: "Close" }).click();
        const discard = console.page.locator("#question[open] [value=yes]");
        if (!held) await discard.click();
    }
    const editor = await console.editor(LIST);
    await editor.locator("[name=LensFileValid]").setChecked(false);
    await console.edit(LIST, () => editor.locator("[name=LensFileName]").fill("x".repeat(32)),
        "refused: LensFileName takes at most 31 bytes, not 32");
    assert.equal((await device.load(LIST))[0].LensFileValid, true, "nothing of a refused element is stored");
    assert.deepEqual(await editor.locator("[aria-invalid=true]").evaluateAll((all) => all.map(({ name }) => name)), ["LensFileName"]);
    await console.edit(LIST, () => editor.locator("[name=LensFileName]").fill("Prime 50"), "stored");
    assert.deepEqual((await device.load(LIST))[0].LensFileName, "Prime 50");
    await device.command("end", "live");
    await console.edit(VARIABLE, (form) => form.locator("input").fill("11"), "refused: 0 to 10");
    await device.command("start", "live");
});
