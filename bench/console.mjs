// Measures the browser console: the delay of a change, what a person waits for, processor time, sizes, accessibility. Prints
// Markdown tables.
//
//   tests/browser/run BUILD-FOLDER bench/console.mjs [--only latencies,visits,log,keys,screen,shares,sizes,accessibility]
//                                                    [--count 200] [--seconds 20]

import { readdirSync, readFileSync } from "node:fs";
import { setTimeout as pause } from "node:timers/promises";
import { parseArgs } from "node:util";
import { gzipSync } from "node:zlib";

import { Device } from "../device/node/device.mjs";
import { Console, FILL, launchBrowser } from "../device/node/console.mjs";
import { printConditions, printTable, progress } from "./report.mjs";
import { printKeys, printLog, printScreen, printVisits } from "./waits.mjs";

const VARIABLE = "MemPersistent.DisplayBrightness";
const VALUES = 10;
const LOAD = ["--changes", "50", "--interval", "100"];
const SETTLE_MS = 3000;
const SENT_LIMIT = 90_000;

const { values: options } = parseArgs({
    options: { only: { type: "string" }, count: { type: "string", default: "200" }, seconds: { type: "string", default: "20" } },
});
const complaints = [];

// From the store to the text

// Notes when the page shows which value: in the page, when the text changes.
function watchText(value) {
    globalThis.shown = new Map();
    const note = () => globalThis.shown.set(value.textContent.trim(), Date.now());
    new MutationObserver(note).observe(value, { childList: true, characterData: true, subtree: true });
}

// Milliseconds from a store with its event to the changed text, for each of `count` stores at any time of a tick.
async function latencies(device, page, count) {
    await page.row(VARIABLE);
    await device.store(VARIABLE, 0);
    await page.shows(VARIABLE, "0");
    await (await page.row(VARIABLE)).locator(".value").first().evaluate(watchText);
    const found = [];
    for (let step = 1; step <= count; ++step) {
        const value = String(step % VALUES);
        await page.page.evaluate((text) => globalThis.shown.delete(text), value);
        await pause(Math.random() * 100);
        const stored = Date.now();
        await device.store(VARIABLE, Number(value));
        const shown = await page.page.waitForFunction((text) => globalThis.shown.get(text), value, { polling: 20 });
        found.push((await shown.jsonValue()) - stored);
    }
    return found.sort((one, other) => one - other);
}

const quantile = (sorted, share) => sorted[Math.min(Math.floor(sorted.length * share), sorted.length - 1)];

async function printLatencies(browser) {
    const count = Number(options.count);
    progress(`${count} stores`);
    const device = await Device.start();
    const page = await Console.open(browser, device.url);
    const sorted = await latencies(device, page, count);
    await page.page.context().close();
    await device.stop();
    console.log("From a set request of another client to the changed text on the page, in ms. The service looks " +
        "for changes every 100 ms.\n");
    const figures = [sorted[0], quantile(sorted, 0.5), quantile(sorted, 0.99), sorted.at(-1)];
    printTable(["stores", "least", "median", "99th percentile", "most"], [[count, ...figures.map((ms) => ms.toFixed(0))]]);
}

// Processor time

// Seconds on a processor so far: of the browser's processes that run pages and workers, of its others, of the service.
async function processorSeconds(browser, service) {
    const session = await browser.newBrowserCDPSession();
    const { processInfo } = await session.send("SystemInfo.getProcessInfo");
    await session.detach();
    const sum = (isWanted) => processInfo.filter(isWanted).reduce((total, { cpuTime }) => total + cpuTime, 0);
    const nanoseconds = Number(readFileSync(`/proc/${service}/schedstat`, "utf8").split(" ")[0]);
    return [sum(({ type }) => type === "renderer"), sum(({ type }) => type !== "renderer"), nanoseconds / 1e9];
}

// Percent of one processor while a view is open: page, rest of the browser, service.
async function shares(browser, device, view) {
    const page = await Console.open(browser, device.url, { view, viewport: { width: 1280, height: 800 } });
    if (view === "watch") await FILL.watch(page);
    await pause(SETTLE_MS);
    const { service } = device;
    const before = await processorSeconds(browser, service);
    const begin = performance.now();
    await pause(Number(options.seconds) * 1000);
    const after = await processorSeconds(browser, service);
    const seconds = (performance.now() - begin) / 1000;
    await page.page.context().close();
    return after.map((value, at) => (((value - before[at]) / seconds) * 100).toFixed(1));
}

async function printShares(browser) {
    const device = await Device.start({ simulation: LOAD });
    const rows = [];
    for (const view of Object.keys(FILL)) {
        progress(`${options.seconds} s of changes in view ${view}`);
        rows.push([view, ...(await shares(browser, device, view))]);
    }
    await device.stop();
    console.log("Processor time with 50 changes ten times a second and one page open, in percent of one processor; " +
        "without a graphics processor the rest of the browser draws by itself.\n");
    printTable(["view", "page", "rest of the browser", "service"], rows);
}

// Sizes

const OWN = new Set(filesIn(new URL("../apps/web/client/", import.meta.url)));

function filesIn(folder, below = "") {
    return readdirSync(folder, { withFileTypes: true }).flatMap((entry) =>
        entry.isDirectory()
            ? filesIn(new URL(`${entry.name}/`, folder), `${below}${entry.name}/`)
            : [`${below}${entry.name}`]);
}

// The level of compress.conf of both web servers.
const compressed = (content) => gzipSync(content, { level: 5 });

function printSizes() {
    const folder = new URL(`file://${process.env.SYSTEM_TEST_BUILD}/client/`);
    const groups = { "own code": [], libraries: [], "generated data": [] };
    for (const name of filesIn(folder)) {
        if (name.endsWith(".LICENSE")) continue; // nothing asks for it
        const group = OWN.has(name) ? "own code" : name.endsWith(".json") ? "generated data" : "libraries";
        groups[group].push(readFileSync(new URL(name, folder)));
    }
    const size = (contents, form = (content) => content) =>
        contents.reduce((total, content) => total + form(content).length, 0);
    const row = ([name, contents]) => [name, contents.length, size(contents), size(contents, compressed)];
    const rows = [...Object.entries(groups), ["all", Object.values(groups).flat()]].map(row);
    const sent = rows.at(-1).at(-1);
    console.log("All that the page may load besides the device's answers, in bytes.\n");
    printTable(["what", "files", "bytes", "each compressed as the web servers do"], rows);
    if (sent > SENT_LIMIT) complaints.push(`all files have ${sent} bytes when compressed, more than ${SENT_LIMIT}`);
}

// What a first visit loads for each view, before the editors and the palette follow.
async function printViewSizes(browser) {
    const device = await Device.start({ simulation: [], display: [] });
    const folder = new URL(`file://${process.env.SYSTEM_TEST_BUILD}/client/`);
    const rows = [];
    for (const view of Object.keys(FILL)) {
        const files = new Set();
        const prepare = (page) => page.on("request", (request) => {
            const path = new URL(request.url()).pathname.slice(1) || "index.html";
            if (!/^(api|qorapp|editors)|palette/.test(path)) files.add(path);
        });
        const { page } = await Console.open(browser, device.url, { view, prepare });
        await page.locator(`section[data-view="${view}"]`).waitFor();
        await pause(SETTLE_MS);
        const sent = [...files].map((path) => compressed(readFileSync(new URL(path, folder))).length);
        rows.push([view, files.size, sent.reduce((total, size) => total + size, 0)]);
        await page.context().close();
    }
    await device.stop();
    console.log("What a first visit loads for a view, compressed as the web servers do, in bytes. The Watch view loads the plotting library.\n");
    printTable(["view", "files", "bytes"], rows);
}

// Accessibility

async function printFindings(browser) {
    const device = await Device.start({ simulation: [], display: [] });
    const rows = [];
    for (const colorScheme of ["light", "dark"]) {
        progress(`Accessibility, ${colorScheme}`);
        const page = await Console.open(browser, device.url, { colorScheme });
        for (const view of Object.keys(FILL)) {
            await page.go(view);
            await FILL[view](page);
            const found = await page.findings();
            rows.push([view, colorScheme, found.length]);
            complaints.push(...found.map((about) => `${view}, ${colorScheme}: ${about}`));
        }
        await page.page.context().close();
    }
    await device.stop();
    console.log("Findings of axe-core.\n");
    printTable(["view", "scheme", "findings"], rows);
}

const PARTS = {
    latencies: printLatencies,
    visits: (browser) => printVisits(browser, complaints),
    log: (browser) => printLog(browser, complaints),
    keys: (browser) => printKeys(browser, complaints),
    screen: (browser) => printScreen(browser, complaints),
    shares: printShares,
    sizes: async (browser) => {
        printSizes();
        await printViewSizes(browser);
    },
    accessibility: printFindings,
};

const browser = await launchBrowser();
printConditions("Browser console", "bench/console.mjs", browser);
for (const part of options.only?.split(",") ?? Object.keys(PARTS)) await PARTS[part](browser);
await browser.close();
for (const complaint of complaints) console.log(`- ${complaint}`);
process.exitCode = complaints.length > 0 ? 1 : 0;
