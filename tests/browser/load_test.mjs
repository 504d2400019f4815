// What the console's pages load, and when.

import assert from "node:assert/strict";
import { get } from "node:http";
import { test } from "node:test";
import { FILL, setScene, until } from "./scene.mjs";

const BUDGET = 90_000;

const { device, open } = await setScene({ simulation: [], display: [] });

// Bytes of a file as it is sent to a browser.
const sentBytes = (path) => new Promise((resolve, reject) => {
    get(`${device.url}/${path}`, { headers: { "Accept-Encoding": "gzip" } }, (answer) => {
        let size = 0;
        answer.on("data", (chunk) => { size += chunk.length; });
        answer.on("end", () => resolve(answer.statusCode === 200 ? size : reject(new Error(`${path}: ${answer.statusCode}`))));
    }).on("error", reject);
});

test("all that the console loads is within the budget, and the first view asks for its modules at once", async () => {
    const files = new Set();
    const begun = [];
    const prepare = (page) => page.on("request", (request) => {
        const path = new URL(request.url()).pathname.slice(1);
        if (path.startsWith("api/") || path.startsWith("qorapp/")) return;
        files.add(path);
        if (request.resourceType() === "script") begun.push(path);
    });
    const console = await open({ prepare });
    const late = begun.findIndex((path) => /^editors|palette/.test(path));
    const needed = begun.slice(0, late < 0 ? begun.length : late);
    const links = console.page.locator("link[rel=modulepreload], script");
    const announced = await links.evaluateAll((all) => all.map((link) => link.getAttribute("href") ?? link.getAttribute("src")));
    assert.deepEqual(needed.filter((path) => path !== "feed/worker.js" && !announced.includes(path)), [], "modules that are not announced");
    assert.deepEqual(announced.filter((path) => !begun.includes(path)), [], "modules that nothing needs");
    for (const [view, fill] of Object.entries(FILL)) {
        await console.go(view);
        await fill(console);
    }
    await until(() => [...files].some((path) => path.endsWith("palette.js")), true, "the palette");
    for (const path of ["feed/worker.js", "catalogue.json", "views/plot.js"]) files.add(path);
    assert.ok(files.has("vendor/uPlot.iife.min.js"));
    const sizes = await Promise.all([...files].map(sentBytes));
    const sum = sizes.reduce((total, size) => total + size, 0);
    assert.ok(sum <= BUDGET, `${files.size} files have ${sum} bytes as they are sent`);
    assert.ok(files.size > 30, `${files.size} files`);
});
