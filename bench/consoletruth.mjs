// Measures whether the browser console says what is true, where the tests in tests/browser try less: sets, several tabs,
// firmware. Prints Markdown tables; ends with status 1 if anything was not true.
//
//   tests/browser/run BUILD-FOLDER bench/consoletruth.mjs [--only sets,tabs,firmware] [--live]
//                                                         [--tabs 50] [--pins 100] [--updates 9]
//
// With --live the sets go by version 2 of the API.

import { parseArgs } from "node:util";

import { Device } from "../device/node/device.mjs";
import { launchBrowser } from "../device/node/console.mjs";
import { printConditions, printTable, progress } from "./report.mjs";
import { measureFirmware } from "./truth/firmware.mjs";
import { CASES, measureSets } from "./truth/sets.mjs";
import { measureFavourites, measureOrder } from "./truth/tabs.mjs";

const TABS_WITH_PINS = 20;
const SHOWN_WITHIN_MS = 1000;

const { values: options } = parseArgs({
    options: { only: { type: "string", default: "sets,tabs,firmware" }, live: { type: "boolean", default: false }, tabs: { type: "string", default: "50" },
        pins: { type: "string", default: "100" }, updates: { type: "string", default: "9" } },
});
const complaints = [];

async function printSets(browser) {
    const device = await Device.start({ live: options.live });
    const { rows, wrong } = await measureSets(device, browser, progress);
    await device.stop();
    console.log(`Outcomes of sets by version ${options.live ? 2 : 1} of the API that say what the variable holds, of all tried. “–”: cannot be entered.\n`);
    printTable(["kind", ...CASES], rows);
    complaints.push(...wrong);
}

async function printTabs(browser) {
    const [tabs, pins] = [Number(options.tabs), Number(options.pins)];
    const device = await Device.start({ simulation: ["--changes", "50", "--interval", "100"] });
    progress(`${tabs} second tabs`);
    const ordered = await measureOrder(device, browser, tabs);
    progress(`${pins} pins in ${TABS_WITH_PINS} tabs`);
    const { right, missing } = await measureFavourites(device, browser, TABS_WITH_PINS, pins);
    await device.stop();
    printTable(["several tabs", "right", "of"], [["order of a second tab while 50 variables change ten times a second", ordered, tabs],
        [`favourites after ${pins} pins at the same time`, right, TABS_WITH_PINS]]);
    if (ordered < tabs) complaints.push("tabs have another order than the tree");
    if (right < TABS_WITH_PINS) complaints.push(`favourites differ, ${missing} pins are missing`);
}

async function printFirmware(browser) {
    const device = await Device.start({ simulation: ["--speed", "6"] });
    const { ended, behind, late } = await measureFirmware(device, browser, Number(options.updates), progress);
    await device.stop();
    console.log("Updates whose page is loaded anew at a random moment.\n");
    const texts = [...new Set(ended)].sort();
    printTable(["end of an update", "times"], texts.map((text) => [text, ended.filter((each) => each === text).length]));
    printTable(["another browser shows it", "at most after ms"], [["while the update goes on", Math.max(...behind)],
        ["opened meanwhile, once it has its values", Math.max(...late)]]);
    if (Math.max(...behind, ...late) > SHOWN_WITHIN_MS) complaints.push("a second browser shows a running update too late");
}

const PARTS = { sets: printSets, tabs: printTabs, firmware: printFirmware };

const browser = await launchBrowser();
printConditions("What the console says", "bench/consoletruth.mjs", browser);
for (const part of options.only.split(",")) await PARTS[part](browser);
await browser.close();
for (const complaint of complaints) console.log(`- ${complaint}`);
process.exitCode = complaints.length > 0 ? 1 : 0;
