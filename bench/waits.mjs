// What a person waits for at the console: the first values and the last lines of a long log over a slow link, what a key in
// the search brings, and what other clients wait while the Screen view is open.

import { setTimeout as pause } from "node:timers/promises";

import { Device } from "../device/node/device.mjs";
import { until } from "../device/node/until.mjs";
import { Console } from "../tests/browser/console.mjs";
import { printTable, progress } from "./report.mjs";
import { slowLink } from "./slowlink.mjs";

const VISITS = 10;
const VISIT_LINK = { bitsPerSecond: 1.6e6, roundTripMs: 150 };
const VISIT_LIMIT_MS = 1700;

const sorted = (numbers) => numbers.sort((one, other) => one - other);
const least = (numbers) => numbers[0].toFixed(0);
const median = (numbers) => numbers[numbers.length >> 1].toFixed(0);
const most = (numbers) => numbers.at(-1).toFixed(0);

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
