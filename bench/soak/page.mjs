// The console in a browser, for bench/soak/browser.py. Reads lines from standard input: the text that the counter's row has
// to show. Answers each with a line of JSON: whether it does, the heap's size after a collection, and faults of the page.
//
//   tests/browser/run BUILD-FOLDER bench/soak/page.mjs URL VARIABLE

import { createInterface } from "node:readline";

import { Console, launchBrowser } from "../../device/node/console.mjs";

const [url, variable] = process.argv.slice(2);
const browser = await launchBrowser();
// A page that polls by itself: its heap is the one that is measured.
const page = await Console.open(browser, url, { prepare: () => {} });
const session = await page.page.context().newCDPSession(page.page);

async function heapSize() {
    await session.send("HeapProfiler.collectGarbage");
    return (await session.send("Runtime.getHeapUsage")).usedSize;
}

async function check(text) {
    const shows = await page.isLive().then(() => page.shows(variable, text)).then(() => true, String);
    return { shows, heap: await heapSize(), faults: page.faults.splice(0) };
}

console.log(JSON.stringify(await check(/./)));
for await (const line of createInterface(process.stdin)) console.log(JSON.stringify(await check(line)));
await browser.close();
