// All that people do in the console, by the keyboard alone.

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { readFile, truncate, writeFile } from "node:fs/promises";
import { test } from "node:test";
import { saved, setScene, until } from "./scene.mjs";

const KEYS = /^(Arrow\w+|Control\+.|Delete|End|Enter|Escape|Home|Space|Tab)$/;
const STOPS_AT_MOST = 60;
const BRIGHTNESS = "MemPersistent.DisplayBrightness";
const YES = ["Tab", "Enter"];

const { device, open } = await setScene({ simulation: [], display: [] });
let console, page;

async function begin(view) {
    console = await open({ view });
    ({ page } = console);
}

// Presses keys and types all other words.
async function press(...keys) {
    for (const key of keys) await (KEYS.test(key) ? page.keyboard.press(key) : page.keyboard.type(key));
}

// Tabs to a control, and presses the keys there.
async function use(selector, ...keys) {
    await until(() => page.locator(selector).first().isEnabled(), true, selector);
    const isThere = () => page.evaluate((wanted) => document.activeElement.matches(wanted), selector);
    for (let stops = 0; !await isThere(); ++stops) {
        assert.ok(stops < STOPS_AT_MOST, `${selector} is not reached`);
        await press("Tab");
    }
    await press(...keys);
}

// Chooses a file, by its path or as {name, mimeType, buffer}.
async function choose(selector, file) {
    const chooser = page.waitForEvent("filechooser");
    await use(selector, "Enter");
    await (await chooser).setFiles(file);
}

const textFile = (name, text) => ({ name, mimeType: "", buffer: Buffer.from(text) });

const save = (selector) => saved(page, () => use(selector, "Enter"));

async function answer(question, ...keys) {
    await console.says("#question[open] #question-text", question);
    await press(...keys);
}

const KINDS = [[BRIGHTNESS, ["Control+A", "3", "Enter"], "3"], ["MemCamera.CamShutterCustomSet", ["Control+A", "90,5", "Enter"], "90.500000"],
    ["MemPersistent.StealthMode", ["Space", "Enter"], "true"], ["MemPersistent.KnobColor", ["Magenta", "Tab", "Enter"], "Magenta"],
    ["MemPersistent.ProductName", ["Control+A", "By hand", "Enter"], "By hand"],
    ["MemGuiLocal.RadioRegionFlags", ["Control+A", "0a0b0c", "Tab", "Enter"], "0a0b0c"]];

test("variables: each kind and an element of a list are set, found, pinned, and closed after a question", async () => {
    await device.store("MemPersistent.StealthMode", false);
    await begin("device");
    await use(`nav a[href="#variables"]`, "Enter");
    const edit = (variable) => use("#search", "Control+A", variable).then(() => use(`[data-variable="${variable}"] .edit`, "Enter"));
    for (const [variable, keys, held] of KINDS) {
        await edit(variable);
        await page.locator("form.editor :focus").waitFor();
        await press(...keys);
        await console.says("form.editor .outcome", /^stored/);
        assert.equal(await device.load(variable), held, variable);
        await press("Escape");
    }
    await edit("MemLens.LensFileList");
    await use("form.editor [name=Index]", "Control+A", "2");
    await use("form.editor [name=LensFileName]", "Control+A", "Prime 50", "Enter");
    await console.says("form.editor .outcome", "stored");
    assert.equal((await device.load("MemLens.LensFileList"))[2].LensFileName, "Prime 50");
    await press("!", "Escape");
    await answer(/^Discard .* LensFileList/, "Escape");
    assert.equal(await page.locator("form.editor").count(), 1);
    await press("Escape");
    await answer(/^Discard/, ...YES);
    await until(() => page.locator("form.editor").count(), 0, "a closed editor");
    await use(".variable .edit", "Escape");
    await use("#search", "Control+A", BRIGHTNESS);
    await use(`[data-variable="${BRIGHTNESS}"] .pin`, "Enter");
    await use("#search", "Control+A", "Delete");
    await use("#only", "Changed", "Home");
    await until(() => page.locator("#favourites [data-variable]").count(), 1, "a favourite");
    const stops = () => page.locator("[data-view=variables]").evaluate((view) => [...view.querySelectorAll("button, input, select, textarea")]
        .filter((node) => node.tabIndex >= 0 && node.checkVisibility()).length);
    await until(async () => await page.locator(".variable:visible").count() > 100 && await stops() < 12, true, "few stops");
    await use(".variable .edit", "End");
    await until(() => page.evaluate(() => document.activeElement === [...document.querySelectorAll(".variable .edit")].at(-1)), true, "the last row");
});

test("watch: plots, their part, layouts and tables", async () => {
    await begin("watch");
    const plots = () => page.locator("#watch-plots figure").evaluateAll((all) => all.map((plot) => plot.querySelectorAll("[data-watch]").length));
    await use("#watch-add", BRIGHTNESS, "Enter");
    await use("#watch-into", "ArrowDown");
    await use("#watch-add", "KnobBrightness", "Enter");
    await until(plots, [2], "two numbers in one plot");
    await use("#watch-span", "30 min");
    await use("#watch-zoom [data-by='0.5']", "Enter");
    await use("#watch-zoom [data-move='-0.5']", "Enter");
    await use("#watch-reset", "Enter");
    await use("#watch-pause", "Enter", "Enter");
    assert.match(await save("#watch-export"), /^time,MemPersistent.DisplayBrightness,MemPersistent.KnobBrightness,note\r\n/);
    await use("#watch-layouts summary", "Enter");
    await use("#layout-name", "both", "Enter");
    const layouts = await save("#layout-export");
    await use(".series button", "Enter");
    await until(plots, [1], "one number");
    await use("[data-layout=both] button", "Enter");
    await until(plots, [2], "the layout");
    await use("[data-layout=both] .delete", "Enter");
    await answer("Delete the layout both?", ...YES);
    await choose("#layout-import", textFile("wrong.json", "{}"));
    await console.says("#layout-note", /not imported: it has no layouts/);
    await choose("#layout-import", textFile("layouts.json", layouts));
    assert.deepEqual(await console.findings(), []);
    await use(".series button", "Enter");
    await use("[data-layout=both] button", "Enter");
    await until(plots, [2], "the imported layout");
});

test("log and screen: chosen, paused, followed and saved", async () => {
    const line = (level, text) => `<6>${"hand".padStart(20)}  ${level.padEnd(10)} ${"main.cpp".padStart(20)}:   1 ${text}`;
    await device.log(Array(2000).fill(line("LogAll", "long ago".repeat(9))).join("\n"));
    await device.log([...Array.from({ length: 200 }, (_, at) => line("LogLight", `step ${at}`)), line("Error", "slip")].join("\n"));
    await begin("log");
    await console.says("#log-output", /slip/);
    await use("#log-filter", "step 7");
    await console.says("#log-count", /^11 of/);
    await use("#log-filter", "Control+A", "slip");
    await use("#log-around", "3 lines");
    await use("#log-level", "Error");
    await use("#log-process", "hand");
    await console.says("#log-count", /^1 of/);
    await use("#log-wall", "Space");
    await use("#log-pause", "Enter", "Enter");
    await use("#log-level", "All");
    await use("#log-filter", "Control+A", "Delete");
    await use("#log-output", "Home");
    await until(() => page.locator("#log-follow").isChecked(), false, "reading");
    await use("#log-follow", "Space");
    assert.match(await save("#log-save"), /step 199[^]*slip/);
    await use("#log-earlier", "Enter");
    await until(() => page.locator("#log-earlier").isHidden(), true, "all lines");
    await use(`nav a[href="#screen"]`, "Enter");
    assert.match(await save("#screen-save"), /PNG/);
    await use("#screen-fast", "Enter");
    await console.says("#screen-fast", "Fast");
    await use("#screen-pause", "Enter");
    await console.says("#screen-pause", "Go on");
});

test("snapshot: taken, compared, opened and restored", async () => {
    await device.store(BRIGHTNESS, 7);
    await begin("snapshot");
    await use("#snapshot-memory", "MemPers");
    await use("#snapshot-take", "Enter");
    const text = await save("#snapshot-save");
    assert.match(text, /^ {3}"DisplayBrightness": "7",$/m);
    assert.deepEqual(Object.keys(JSON.parse(text).memories), ["MemPersistent"]);
    for (const [wrong, why] of [["{", /not JSON/], ["[1]", /not a snapshot/], [`{"snapshot": 1, "memories": {"a": 1}}`, /no memories/]]) {
        await choose("#snapshot-open", textFile("wrong.json", wrong));
        await console.says("#snapshot-note", why);
    }
    await device.store(BRIGHTNESS, 2);
    await choose("#snapshot-open", textFile("own.json", text));
    await use(`[data-place="${BRIGHTNESS}"] input`, "Space");
    await use("#snapshot-restore", "Enter");
    await answer(/^Store 1 value of/, ...YES);
    await console.says("#snapshot-count", /^1 stored/);
    assert.equal(await device.load(BRIGHTNESS), "7");
    await use("#snapshot-compare", "Enter");
    await console.says("#snapshot-count", /^Nothing differs/);
    await use("#snapshot-with", "another");
    await choose("#snapshot-other", textFile("other.json", text.replace(`"7"`, `"9"`)));
    await console.says("#snapshot-count", /^1 value differs/);
});

test("device: files come, are replaced, fetched and deleted; firmware is chosen, confirmed and cancelled", async () => {
    const path = `${device.root}/var/SETUPS/hand.stp`;
    const input = "#file-list-setups input";
    await begin("device");
    await choose(input, textFile("hand.stp", "first"));
    await console.says("#file-list-setups .note", "hand.stp is stored.");
    await choose(input, textFile("hand.stp", "second"));
    await answer(/^Replace hand.stp/, ...YES);
    await until(() => readFile(path, "utf8"), "second", "the file");
    assert.equal(await save("[data-file='hand.stp'] a"), "second");
    await use("[data-file='hand.stp'] .delete", "Enter");
    await answer(/^Delete hand.stp/, ...YES);
    await until(() => existsSync(path), false, "the file");
    await until(() => page.evaluate(() => document.activeElement.type), "file", "the focus");
    const update = async (...keys) => {
        await use("#firmware-form [type=submit]", "Enter");
        await answer(/Ultrasonic Ranger.*file.cmf/, ...keys);
    };
    const file = `${device.root}/tmp/file.cmf`;
    await writeFile(file, "");
    await truncate(file, 50_000_000);
    await use("#firmware-target", "Ultra");
    await choose("#firmware-file", file);
    await update("Escape");
    await console.says("#firmware-state", "No update is running.");
    await device.whileServerFrozen(async () => {
        await update(...YES);
        await use("#firmware-cancel", "Enter");
        await console.says("#firmware-state", "Not updated: cancelled");
    });
});
