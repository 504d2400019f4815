// What a person waits for at the console: the first values and the last lines of a long log over a slow link, what a key in
// the search brings, and what other clients wait while the Screen view is open.

import { readFileSync } from "node:fs";
import { setTimeout as pause } from "node:timers/promises";

import { Device } from "../device/node/device.mjs";
import { Console } from "../device/node/console.mjs";
import { printTable, progress } from "./report.mjs";
import { slowLink } from "./slowlink.mjs";

const SETTLE_MS = 3000;
const VISITS = 10;
const VISIT_LINK = { bitsPerSecond: 1.6e6, roundTripMs: 150 };
const VISIT_LIMIT_MS = 1700;
const LOG_BYTES = 56e6;
const LOG_LINK = { bitsPerSecond: 1e7, roundTripMs: 20 };
const LOG_OPENINGS = 5;
const LOG_LIMIT_MS = 1000;
const ABORTS = 20;
const TEXTS = ["batery", "DisplayBrigthness", "focus position", "lens files", "serial number product", "mac adress",
    "camera firmware version", "touch screen", "depth of field near", "sound volumne", "circle of confuson", "xyzzy"];
const TABS = 4;
const STORES = 1000;
const STORE_LIMIT_MS = 120;
const LOST_MS = 5000;
const SERVICE_LIMIT = 10;
const SLOWER = 6;
const KEY_LIMIT_MS = 50;
const KEY_PAGES = 3;
const LINE = "<6>recorder[123]: a line of a log that has grown for a long time, 0123456789";

const sorted = (numbers) => numbers.sort((one, other) => one - other);
const least = (numbers) => numbers[0].toFixed(0);
const median = (numbers) => numbers[numbers.length >> 1].toFixed(0);
const most = (numbers) => numbers.at(-1).toFixed(0);

const processorMs = (id) => Number(readFileSync(`/proc/${id}/schedstat`, "utf8").split(" ")[0]) / 1e6;

// In the page: notes the time of the first frame in which values are there that are not marked as old.
function noteValues() {
    const look = () => {
        const isThere = document.querySelector("#memories [data-variable]") && !document.body.hasAttribute("data-stale");
        if (isThere) globalThis.valuesAt = performance.now();
        else requestAnimationFrame(look);
    };
    requestAnimationFrame(look);
}

// Opens the console in a new browser profile; resolves to the milliseconds until its values are there and the bytes sent.
async function visit(browser, url, query) {
    const link = await slowLink(url, VISIT_LINK);
    const context = await browser.newContext();
    const page = await context.newPage();
    await page.addInitScript(noteValues);
    await page.goto(`${link.url}/${query}`);
    const ms = await (await page.waitForFunction(() => globalThis.valuesAt)).jsonValue();
    const bytes = link.sent();
    await context.close();
    link.stop();
    return { ms, bytes };
}

// Prints the table; complains if the median of a way is above the limit.
export async function printVisits(browser, complaints) {
    const device = await Device.start();
    const rows = [];
    for (const [feed, query] of [["in the shared worker", ""], ["in the page", "?alone"]]) {
        progress(`${VISITS} first visits, feed ${feed}`);
        const visits = [];
        while (visits.length < VISITS) visits.push(await visit(browser, device.url, query));
        const ms = sorted(visits.map((each) => each.ms));
        rows.push([feed, VISITS, least(ms), median(ms), most(ms), Math.max(...visits.map(({ bytes }) => bytes))]);
        if (ms[VISITS >> 1] > VISIT_LIMIT_MS) complaints.push(`a first visit, feed ${feed}, takes more than ${VISIT_LIMIT_MS} ms`);
    }
    await device.stop();
    console.log("From the address of a first visit to live values, in ms, over 1.6 Mbit/s with a round trip of 150 ms that all " +
        "requests of the page and its worker share.\n");
    printTable(["feed", "visits", "least", "median", "most", "bytes sent"], rows);
}

// Bytes of the log as the service has it; reads no more than its first line.
async function logLength({ url }) {
    const answer = await fetch(`${url}/api/v1/log.cgi`);
    const reader = answer.body.getReader();
    const { value } = await reader.read();
    await reader.cancel();
    return parseInt(new TextDecoder().decode(value.subarray(0, 20)), 10);
}

// Milliseconds on the processor that the service needs for an answer which is aborted once its length is known.
async function abortCost(device) {
    const before = processorMs(device.service);
    for (let count = 0; count < ABORTS; ++count) await logLength(device);
    await pause(SETTLE_MS);
    return (processorMs(device.service) - before) / ABORTS;
}

async function fillLog(device) {
    progress(`A log of ${LOG_BYTES / 1e6} MB`);
    const lines = Array(10_000).fill(LINE).join("\n");
    while (await logLength(device) < LOG_BYTES) {
        await device.log(lines);
        await pause(200);
    }
}

// Opens the Log view in a new browser profile; resolves to the milliseconds until lines are there.
async function openLog(browser, url) {
    const link = await slowLink(url, LOG_LINK);
    const { page } = await Console.open(browser, link.url);
    const ms = await page.evaluate(async () => {
        const begun = performance.now();
        document.querySelector("nav a[href='#log']").click();
        while (!document.querySelector("#log-output > div")) await new Promise(requestAnimationFrame);
        return performance.now() - begun;
    });
    await page.context().close();
    link.stop();
    return ms;
}

// Milliseconds until all of the log is offered as a file, and the longest time in which the page answers nothing.
async function saveLog(browser, url) {
    const { page } = await Console.open(browser, url, { view: "log" });
    await page.evaluate(() => {
        globalThis.longest = 0;
        let before = performance.now();
        setInterval(() => {
            globalThis.longest = Math.max(globalThis.longest, performance.now() - before);
            before = performance.now();
        }, 10);
    });
    const saved = page.waitForEvent("download");
    const begun = performance.now();
    await page.locator("#log-save").click();
    await saved;
    const ms = performance.now() - begun;
    const longest = await page.evaluate(() => globalThis.longest);
    await page.context().close();
    return [ms, longest];
}

// Prints the table; complains if the median is above the limit.
export async function printLog(browser, complaints) {
    const device = await Device.start({ simulation: [], display: [] });
    await fillLog(device);
    const found = [];
    while (found.length < LOG_OPENINGS) found.push(await openLog(browser, device.url));
    const ms = sorted(found);
    const aborted = await abortCost(device);
    const [saving, longest] = await saveLog(browser, device.url);
    const length = await logLength(device);
    await device.stop();
    if (ms[LOG_OPENINGS >> 1] > LOG_LIMIT_MS) complaints.push(`a log of ${length} bytes is there after more than ${LOG_LIMIT_MS} ms`);
    console.log("A long log: from the opening of the view to its last lines over 10 Mbit/s with a round trip of 20 ms, and " +
        "saving all of it on this machine, in ms.\n");
    printTable(["bytes", "openings", "least", "median", "most", "service's processor for an aborted answer", "to save",
        "longest time without an answer of the page"],
    [[length, LOG_OPENINGS, least(ms), median(ms), most(ms), aborted.toFixed(1), saving.toFixed(0), longest.toFixed(0)]]);
}

// Milliseconds on the processor that the page's main thread needs until the next frame is drawn, after act(argument).
async function pageTime(page, session, act, argument) {
    const taken = async () => (await session.send("Performance.getMetrics")).metrics.find(({ name }) => name === "TaskDuration").value;
    const before = await taken();
    await page.evaluate(act, argument);
    await page.evaluate(() => new Promise((resolve) => {
        requestAnimationFrame(() => setTimeout(resolve));
    }));
    return (await taken() - before) * 1000;
}

// In the page: what a key does that makes this text of the search.
function enter(text) {
    const input = document.querySelector("#search");
    input.value = text;
    input.dispatchEvent(new Event("input", { bubbles: true }));
}

// For each key of the texts the milliseconds on a processor that is SLOWER, less what measuring takes.
async function keyTimes(page, session) {
    const idle = [];
    while (idle.length < 20) idle.push(await pageTime(page, session, () => {}));
    const own = sorted(idle)[idle.length >> 1];
    const found = [];
    for (const text of TEXTS) {
        for (let length = 1; length <= text.length; ++length) {
            found.push(await pageTime(page, session, enter, text.slice(0, length)));
        }
        found.push(await pageTime(page, session, enter, ""));
        await pause(500);
    }
    return found.map((ms) => Math.max(ms - own, 0) * SLOWER);
}

// The same on a page that is new.
async function newPageKeyTimes(browser, device) {
    const { page } = await Console.open(browser, device.url);
    const session = await page.context().newCDPSession(page);
    await session.send("Performance.enable", { timeDomain: "threadTicks" });
    await pause(SETTLE_MS);
    const found = await keyTimes(page, session);
    await page.context().close();
    return found;
}

// Prints the table; complains if a key takes more than the limit.
export async function printKeys(browser, complaints) {
    progress("Keys in the search");
    const device = await Device.start({ simulation: [], display: [] });
    const pages = [];
    while (pages.length < KEY_PAGES) pages.push(await newPageKeyTimes(browser, device));
    await device.stop();
    const ms = sorted(pages[0].map((_, key) => sorted(pages.map((found) => found[key]))[KEY_PAGES >> 1]));
    const late = ms[Math.floor(ms.length * 0.95)];
    if (ms.at(-1) > KEY_LIMIT_MS) complaints.push(`a key in the search takes ${most(ms)} ms`);
    console.log(`A key in the search, until what it brings is drawn: ${SLOWER} times the processor time of the page, in ms; ` +
        `of each key the median of ${KEY_PAGES} pages.\n`);
    printTable(["keys", "median", "95th percentile", "most"], [[ms.length, median(ms), late.toFixed(0), most(ms)]]);
}

// Another client, which waits for updates: see(value) gets each value of the variable that it stores.
async function follow({ url }, see, signal) {
    const poll = async () => (await fetch(`${url}/api/v1/update.cgi`, { signal })).text();
    for (let next = poll(); !signal.aborted;) {
        const text = await next;
        next = poll();
        next.catch(() => {});
        const { MemPersistent } = JSON.parse(text).variables;
        if (MemPersistent?.DisplayBrightness) see(MemPersistent.DisplayBrightness.value);
    }
}

// For each of STORES stores the milliseconds until that client sees the value; Infinity for one that is lost.
async function storeTimes(device) {
    const end = new AbortController();
    let seen = () => {};
    const following = follow(device, (value) => seen(value), end.signal);
    const found = [];
    while (found.length < STORES) {
        const wanted = String(found.length % 10);
        const isSeen = new Promise((resolve) => { seen = (value) => value === wanted && resolve(true); });
        await pause(Math.random() * 100);
        const stored = performance.now();
        await device.store("MemPersistent.DisplayBrightness", Number(wanted));
        found.push(await Promise.race([isSeen, pause(LOST_MS, false)]) ? performance.now() - stored : Infinity);
    }
    end.abort();
    await following.catch(() => {});
    return found;
}

// Prints the table; complains about a lost store, and if the service or one store of twenty takes more than its limit.
export async function printScreen(browser, complaints) {
    progress(`${STORES} stores while ${TABS} tabs show the screen`);
    const device = await Device.start();
    const context = await browser.newContext();
    for (let tab = 0; tab < TABS; ++tab) await Console.open(browser, device.url, { view: "screen", context });
    await pause(SETTLE_MS);
    const begun = performance.now();
    const before = processorMs(device.service);
    const found = await storeTimes(device);
    const share = ((processorMs(device.service) - before) / (performance.now() - begun)) * 100;
    await context.close();
    await device.stop();
    const lost = found.filter((ms) => ms === Infinity).length;
    const ms = sorted(found);
    const late = ms[Math.floor(STORES * 0.95)];
    if (lost > 0) complaints.push(`${lost} stores are lost while the screen is open`);
    if (share > SERVICE_LIMIT || late > STORE_LIMIT_MS) complaints.push("the screen takes too much of the service");
    console.log(`The Screen view in ${TABS} tabs while another client stores values: how long each takes until that client's poll ` +
        "brings it, in ms. The service looks for changes every 100 ms.\n");
    printTable(["stores", "lost", "median", "95th percentile", "most", "service, percent of one processor"],
        [[STORES, lost, median(ms), late.toFixed(0), most(ms), share.toFixed(1)]]);
}
