// The console in a real browser, as a person sees it. tests/browser/run starts the tests and benchmarks that use it.

import { readFileSync } from "node:fs";
import { readFile } from "node:fs/promises";
import { createRequire } from "node:module";
import { until, WAIT_MS } from "./until.mjs";

const packages = createRequire(`${process.env.BROWSER_MODULES}/`);
const { chromium } = packages("playwright-core");
const accessibilityChecker = readFileSync(packages.resolve("axe-core/axe.min.js"), "utf8");

// Requests stay on this machine, and the browser does not look for updates.
const FLAGS = ["--no-sandbox", "--disable-gpu", "--disable-quic", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"];

export const launchBrowser = () => chromium.launch({ executablePath: process.env.CHROMIUM, args: FLAGS, timeout: WAIT_MS });

// Enters a text into a field, or what it is for a choice or a switch.
export async function enter(field, text) {
    const kind = await field.evaluate((node) => node.localName + node.type);
    if (kind === "inputcheckbox") await field.setChecked(text === "true");
    else if (kind.startsWith("select")) await field.selectOption(text);
    else await field.fill(text);
}

// The content of the file that a page offers while press() runs.
export async function saved(page, press) {
    const download = page.waitForEvent("download");
    await press();
    return readFile(await (await download).path(), "utf8");
}

// A page that shows the console.
export class Console {
    // With a browser profile of its own, for which `options` are, or as one more page of the profile `context`. With
    // `prepare`, which gets the page before it loads anything, it polls by itself and not in the worker of all pages.
    static async open(browser, url, { view = "variables", context, prepare, ...options } = {}) {
        const result = new Console(await (context ?? (await browser.newContext(options))).newPage(), url);
        await prepare?.(result.page);
        await result.page.goto(`${url}/${prepare ? "?alone" : ""}#${view}`);
        await result.isLive();
        await result.isIn(view);
        return result;
    }

    // Returns when the page waits for updates: it sends its next poll before it shows an update, so before these requests.
    async settles() {
        for (let i = 0; i < 3; ++i) {
            await this.page.evaluate(() => fetch("/qorapp/v1/setups/list").then((answer) => answer.text()));
        }
    }

    // `faults` gets exceptions, what the content policy forbids, and addresses elsewhere.
    constructor(page, url) {
        this.page = page;
        this.faults = [];
        page.setDefaultTimeout(WAIT_MS);
        page.on("pageerror", (error) => this.faults.push(String(error.stack)));
        page.on("console", (message) => {
            const isAboutAnswer = message.text().startsWith("Failed to load resource");
            if (message.type() === "error" && !isAboutAnswer) this.faults.push(message.text());
        });
        page.on("request", (request) => request.url().startsWith(`${url}/`) || this.faults.push(request.url()));
    }

    connection() {
        return this.page.locator("#connection").getAttribute("data-state");
    }

    isStale() {
        return this.page.locator("body").evaluate((body) => body.hasAttribute("data-stale"));
    }

    async isLive() {
        await until(() => this.connection(), "live", "the connection");
        await until(() => this.isStale(), false, "values that may be old");
    }

    // Waits until the element shows the text.
    says(selector, text) {
        return until(async () => (await this.page.locator(selector).first().innerText()).trim(), text, selector);
    }

    async go(view) {
        await this.page.locator(`nav a[href="#${view}"]`).click();
        await this.isIn(view);
    }

    isIn(view) {
        const open = () => this.page.locator("section[data-view]:visible").evaluateAll((all) => all.map((one) => one.dataset.view));
        return until(open, [view], "the view");
    }

    // The row of a variable; searched for, because long lists draw only what is seen.
    async row(variable) {
        const name = variable.split(".")[1];
        const search = this.page.locator("#search");
        if ((await search.inputValue()) !== name) await search.fill(name);
        return this.page.locator(`[data-variable="${variable}"]`).last();
    }

    async shows(variable, text) {
        const value = (await this.row(variable)).locator(".value");
        await until(async () => (await value.innerText()).trim(), text, variable);
    }

    // The open editor of a variable.
    async editor(variable) {
        const row = await this.row(variable);
        const editor = row.locator("form.editor");
        if (!(await editor.isVisible())) await row.locator("button.edit").click();
        await editor.waitFor();
        return editor;
    }

    // Opens the editor of a variable, gives it to `fill`, submits it and waits for the outcome.
    async edit(variable, fill, outcome) {
        const editor = await this.editor(variable);
        await fill(editor);
        await editor.locator("button[type=submit]").first().click();
        await until(() => editor.locator(".outcome").first().innerText(), outcome, `outcome of ${variable}`);
    }

    // What the accessibility checker finds in a part of the page, with its impact.
    async findings(part = "html") {
        if (!await this.page.evaluate(() => "axe" in globalThis)) await this.page.evaluate(accessibilityChecker);
        const { violations } = await this.page.evaluate((scope) => globalThis.axe.run(scope, { resultTypes: ["violations"] }), part);
        return violations.map(({ impact, id, nodes }) => `${impact}, ${id}: ${nodes.map(({ target }) => target).join(", ")}`);
    }
}

// Brings something to see into a view that is open, and returns when it is there.
export const FILL = {
    variables: (console) => console.edit("MemPersistent.DisplayBrightness", (editor) => editor.locator("input").fill("11"), /refused/),
    watch: async ({ page }) => {
        for (const name of ["MemDynamic.LensActFocus", "MemDynamic.BattVoltage"]) {
            await page.locator("#watch-add").fill(name);
            await page.locator("#watch-add").press("Enter");
        }
        await until(() => page.locator("#watch-plots canvas").count(), 2, "plots");
    },
    log: (console) => console.says("#log-output", /\S/),
    screen: ({ page }) => until(() => page.locator("#screen-save").isEnabled(), true, "a picture"),
    snapshot: async (console) => {
        await console.page.locator("#snapshot-take").click();
        await console.says("#snapshot-note", /^Snapshot of/);
        await until(async () => {
            await console.page.locator("#snapshot-compare").click();
            return console.page.locator("#snapshot-rows tr").count();
        }, /[1-9]/, "what differs");
    },
    device: (console) => console.says("#device-identity", /K1-00042/),
};
