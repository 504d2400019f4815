// The console on a device with version 2 of the API: it follows the events, and polls where nobody answers them.

import assert from "node:assert/strict";
import { test } from "node:test";
import { updateText } from "../../apps/web/client/feed/events.js";
import { readVariables } from "../../apps/web/client/feed/documents.js";
import { setScene } from "./scene.mjs";

const VARIABLE = "MemPersistent.DisplayBrightness";
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

test("changes come as events, and as polls while the process for them is away", async () => {
    const asked = [];
    const console = await open({ prepare: (page) => page.on("request", (request) => asked.push(new URL(request.url()).pathname)) });
    const count = (path) => asked.filter((one) => one === path).length;
    await device.store(VARIABLE, 3);
    await console.shows(VARIABLE, "3");
    assert.deepEqual([count("/api/v2/events"), count("/api/v1/update.cgi")], [1, 0]);
    await device.command("end", "live");
    await device.store(VARIABLE, 4);
    await console.isLive();
    await console.shows(VARIABLE, "4");
    await device.store(VARIABLE, 5);
    await console.shows(VARIABLE, "5");
    assert.notEqual(count("/api/v1/update.cgi"), 0);
    await device.command("start", "live");
});
