// The console in a real browser, as a person sees it.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { setTimeout as pause } from "node:timers/promises";

const packages = createRequire(`${process.env.BROWSER_MODULES}/`);
const { chromium } = packages("playwright-core");
const accessibilityChecker = readFileSync(packages.resolve("axe-core/axe.min.js"), "utf8");

// Nothing is this slow; a machine that has much else to do is.
const WAIT_MS = 120_000;
const POLL_MS = 20;
const WORDS_AT_MOST = 500;
// Nothing leaves the machine, whatever a page asks for.
const FLAGS = ["--no-sandbox", "--disable-gpu", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"];

export function launchBrowser() {
    return chromium.launch({ executablePath: process.env.CHROMIUM, args: FLAGS, timeout: WAIT_MS });
}

// Asks again and again until the answer is the wanted one (or matches it), and fails with the last answer otherwise.
export async function until(question, wanted, what) {
    const end = Date.now() + WAIT_MS;
    let answer = await question();
    while (!isWanted(answer, wanted)) {
        assert.ok(Date.now() < end, `${what}: ${inWords(answer)}, not ${inWords(wanted)}`);
        await pause(POLL_MS);
        answer = await question();
    }
}

function isWanted(answer, wanted) {
    return wanted instanceof RegExp ? wanted.test(answer) : JSON.stringify(answer) === JSON.stringify(wanted);
}

function inWords(value) {
    return value instanceof RegExp ? String(value) : String(JSON.stringify(value)).slice(0, WORDS_AT_MOST);
}

// A page that shows the console.
export class Console {
    // With a browser profile of its own, for which `options` are, or as one more page of the profile `context`. With
    // `prepare`, which gets the page before it loads anything, it polls by itself and not in the worker of all pages.
    static async open(browser, url, { view = "variables", context, prepare, ...options } = {}) {
        const profile = context ?? (await browser.newContext(options));
        const result = new Console(await profile.newPage(), profile, url);
        await prepare?.(result.page);
        await result.page.goto(`${url}/${prepare ? "?alone" : ""}#${view}`);
        await result.isLive();
        return result;
    }

    constructor(page, profile, url) {
        this.page = page;
        this.profile = profile;
        this.url = url;
        this.faults = [];
        page.setDefaultTimeout(WAIT_MS);
        page.on("pageerror", (error) => this.faults.push(String(error.stack)));
        page.on("console", (message) => this.#hear(message));
        page.on("request", (request) => this.#see(request.url()));
    }

    // Fails where the page had faults: an exception, something that its content policy forbids, a foreign address.
    async close() {
        await this.profile.close();
        assert.deepEqual(this.faults, []);
    }

    connection() {
        return this.page.locator("#connection").getAttribute("data-state");
    }

    async isLive() {
        await until(() => this.connection(), "live", "the connection");
        await until(() => this.isStale(), false, "values that may be old");
    }

    isStale() {
        return this.page.locator("body").evaluate((body) => body.hasAttribute("data-stale"));
    }

    async go(view) {
        await this.page.locator(`nav a[href="#${view}"]`).click();
        await until(() => this.visibleViews(), [view], "the view");
    }

    visibleViews() {
        return this.page
            .locator("section[data-view]:visible")
            .evaluateAll((views) => views.map((view) => view.dataset.view));
    }

    // Shows the rows that match the text.
    search(text) {
        return this.page.locator("#search").fill(text);
    }

    // The row of a variable; searched for, since long lists draw only what is seen.
    async row(variable) {
        const name = variable.split(".")[1];
        if ((await this.page.locator("#search").inputValue()) !== name) await this.search(name);
        return this.rowInView(variable);
    }

    rowInView(variable) {
        return this.page.locator(`[data-variable="${variable}"]`).last();
    }

    async shows(variable, text) {
        const value = (await this.row(variable)).locator(".value");
        await until(async () => (await value.innerText()).trim(), text, variable);
    }

    // Opens the editor of a variable, gives it to `fill`, submits it and waits for the outcome.
    async edit(variable, fill, outcome) {
        const row = await this.row(variable);
        const editor = row.locator("form.editor");
        if (!(await editor.isVisible())) await row.locator("button.edit").click();
        await fill(editor);
        await editor.locator("button[type=submit]").first().click();
        await until(() => row.locator(".outcome").first().innerText(), outcome, `outcome of ${variable}`);
    }

    // What the checker finds, by weight: {critical: [...], serious: [...], moderate: [...], minor: [...]}.
    async findings() {
        await this.page.evaluate(accessibilityChecker);
        const { violations } = await this.page.evaluate(() => globalThis.axe.run({ resultTypes: ["violations"] }));
        const about = ({ id, nodes }) => `${id}: ${nodes.map((node) => node.target.join(" ")).join(", ")}`;
        const weights = ["critical", "serious", "moderate", "minor"];
        const ofWeight = (weight) => violations.filter(({ impact }) => impact === weight).map(about);
        return Object.fromEntries(weights.map((weight) => [weight, ofWeight(weight)]));
    }

    #hear(message) {
        // The browser reports every answer that is no success; what the page makes of them is tested by itself.
        const isAboutAnswer = message.text().startsWith("Failed to load resource");
        if (message.type() === "error" && !isAboutAnswer) this.faults.push(message.text());
    }

    #see(address) {
        if (!address.startsWith(`${this.url}/`)) this.faults.push(`asked for ${address}`);
    }
}
