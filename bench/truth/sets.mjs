// Whether the outcome of a set says what the variable holds: every kind of field times everything that can come between.

import { until } from "../../device/node/until.mjs";
import { Console, enter } from "../../device/node/console.mjs";

const FIGURES = "0".repeat(40);
const LIST = "MemCamera.CamSupply";
const NUMBER = { infinity: ["inf", "Infinity", "-inf", "NaN"], empty: ["", " "], "multi-byte": ["٣", "1２", "−1"] };
const INT = { ...NUMBER, comma: ["2,9", "1,5,0", "-0,5"], "too long": [`${FIGURES}5`, "1.23456789012345678901234567890"] };
const FLOAT = { ...NUMBER, comma: ["0,5", "1,5,0", "0,0078125"], "too long": [`0.${FIGURES}5`, "123456789.123456789"] };
const TEXT = { infinity: ["inf", "NaN"], empty: [""], comma: ["a, b", ",", "1,5"], "too long": ["x".repeat(100), "a 'b' ".repeat(20)] };
const SHORT = { edge: ["1234567890123456789", "ü".repeat(9)], overflow: ["12345678901234567890"],
    "multi-byte": ["1234567890123456😀😀", "ü".repeat(10), "日本語日本語日本語", "<b>é</b> & \"q\""] };
const MEMBER = { edge: ["123456789012345"], overflow: ["1234567890123456"], "multi-byte": ["ü".repeat(7), "ü".repeat(8), "日本語 \"q\""] };

// `values` are what it holds before, what another process stores, and two that can be set; `cases` what is entered.
const FIELDS = [
    { kind: "bool", variable: "MemPersistent.StealthMode", values: ["false", "true", "true", "false"], cases: { edge: ["true", "false"] } },
    { kind: "int", variable: "MemDynamic.LostFrameCounter", values: ["7", "8", "9", "10"],
        cases: { ...INT, edge: ["-2147483648", "2147483647", "0", "-0"], overflow: ["2147483648", "-2147483649", "1e21"] } },
    { kind: "int, 0 to 10", variable: "MemPersistent.DisplayBrightness", values: ["7", "8", "9", "10"],
        cases: { ...INT, edge: ["0", "10", "10.9", "-0.9"], overflow: ["11", "-1", "2147483648"] } },
    { kind: "float", variable: "MemCamera.CamFootage", values: ["1.500000", "2.500000", "3.500000", "4.500000"],
        cases: { ...FLOAT, edge: ["3.4028234e38", "1e-45", "1e22", "-0", "16777217"], overflow: ["1e40", "-3.5e38", "1e400"] } },
    { kind: "float, 0 to 360", variable: "MemCamera.CamShutterCustomSet", values: ["1.500000", "2.500000", "3.500000", "4.500000"],
        cases: { ...FLOAT, edge: ["0", "360", "360.00001", "172.8"], overflow: ["361", "-0.1", "1e40"] } },
    { kind: "enum", variable: "MemPersistent.KnobColor", values: ["Red", "Green", "Blue", "Magenta"], cases: { edge: ["White", "Cyan"] } },
    { kind: "text, 19 bytes", variable: "MemPersistent.ProductName", values: ["one", "two", "three", "four"], cases: { ...TEXT, ...SHORT } },
    { kind: "buffer, 3 bytes", variable: "MemGuiLocal.RadioRegionFlags", values: ["010203", "020304", "030405", "0affc3"],
        cases: { edge: ["000000", "FFFFFF", "AB"], overflow: ["12345678"], infinity: ["inf"], empty: [""], "too long": ["00".repeat(99)],
            "multi-byte": ["éé", "１２"], comma: ["01,02"] } },
    { kind: "bool of a structure", variable: LIST, member: "CamSupplyPresent", values: ["false", "true", "true", "false"],
        cases: { edge: ["true", "false"] } },
    { kind: "int of a structure", variable: "MemPersistent.RadioModuleList", member: "RadioModuleChannel", values: ["7", "8", "9", "10"],
        cases: { ...INT, edge: ["-2147483648", "2147483647"], overflow: ["2147483648", "1e21"] } },
    { kind: "float of a structure", variable: LIST, member: "CamSupplyValue", values: ["1.5", "2.5", "3.5", "4.5"],
        cases: { ...FLOAT, edge: ["3.4028234e38", "16777217", "172.8"], overflow: ["1e40", "-3.5e38"] } },
    { kind: "text of a structure", variable: LIST, member: "CamSupplyName", values: ["one", "two", "three", "four"],
        cases: { ...TEXT, ...MEMBER } },
];
// The request of either version.
const SET = /\/api\/(v1\/set\.cgi|v2\/values)$/;
export const CASES = ["edge", "overflow", "infinity", "empty", "too long", "multi-byte", "comma", "in flight", "frozen service",
    "changed meanwhile"];

const isNumber = (kind) => /^(int|float)/.test(kind);
const SPEAKS = /^(stored|refused|not sent|unknown|changed by|nothing)/;

// Whether a message about an entered text is true of what is held.
function isTrue({ kind }, message, entered, before, held) {
    const equals = (text) => (isNumber(kind) ? text.trim() !== "" && Math.fround(Number(text)) === Math.fround(Number(held)) : text === held);
    const said = (pattern) => pattern.exec(message)?.slice(1);
    const [as] = said(/^stored[^]* as (\S+)$/) ?? [];
    const [bytes, cut] = said(/^stored, cut to (\d+) bytes: ([^]*)$/) ?? [];
    const [first] = said(/^stored in the first (\d+) of/) ?? [];
    const [now] = said(/(?:it holds|is) ([^]*)$/) ?? [];
    if (as !== undefined) return equals(as);
    if (bytes !== undefined) return cut === held && Buffer.byteLength(held) === Number(bytes);
    if (first !== undefined) return held === entered.toLowerCase() + before.slice(2 * first);
    if (/^stored; changed since|^changed by/.test(message)) return equals(now);
    if (message === "stored") return equals(kind.startsWith("buffer") ? entered.toLowerCase() : entered);
    return /^(refused|not sent|nothing)/.test(message) && held === before;
}

// Tries everything on one page, and counts what was true.
class Matrix {
    constructor(device, page) {
        this.device = device;
        this.console = page;
        this.counts = new Map();
        this.wrong = [];
    }

    note(field, name, message, entered, before, held) {
        const key = `${field.kind}: ${name}`;
        const count = this.counts.get(key) ?? [0, 0];
        const isRight = isTrue(field, message, entered, before, held);
        this.counts.set(key, [count[0] + (isRight ? 1 : 0), count[1] + 1]);
        if (!isRight) this.wrong.push(`${key}: “${entered}” for ${before}: “${message}”, but it holds ${held}`);
    }

    async held({ variable, member }) {
        const value = await this.device.load(variable);
        return String(member ? value[0][member] : value);
    }

    // As another process does; the page waits for it.
    async store({ kind, variable, member }, text) {
        await this.console.settles();
        const value = isNumber(kind) ? Number(text) : kind.startsWith("bool") ? text === "true" : text;
        await this.device.store(variable, member ? { Index: 0, [member]: value } : value);
    }

    shown({ variable, member }) {
        const row = this.console.page.locator(`[data-variable="${variable}"]`).last();
        return (member ? row.locator("tr", { has: this.console.page.locator(`[name=${member}]`) }).locator(".now") : row.locator(".value").first())
            .textContent();
    }

    // An editor that was not used before.
    async open(field) {
        const row = await this.console.row(field.variable);
        const [edit, editor] = [row.locator(".edit"), row.locator("form.editor")];
        if (await editor.count()) {
            await edit.click();
            await until(async () => {
                const discard = this.console.page.locator("#question[open] [value=yes]");
                if (await discard.count()) await discard.click();
                return editor.count();
            }, 0, "a closed editor");
        }
        await edit.click();
        await editor.waitFor();
        return editor;
    }

    // One that shows the value.
    async begin(field, value) {
        const editor = await this.open(field);
        await this.store(field, value);
        await until(() => this.shown(field), value, `${field.kind} before`);
        return editor;
    }

    enter(field, editor, text) {
        return enter(editor.locator(field.member ? `[name=${field.member}]` : "input, select, textarea").first(), text);
    }

    async submit(editor) {
        await editor.locator(".outcome").evaluate((node) => { node.textContent = ""; });
        await editor.locator(".primary").click();
    }

    async outcome(editor, pattern = SPEAKS) {
        const read = () => editor.locator(".outcome").textContent();
        await until(read, pattern, "an outcome");
        return read();
    }

    async tryEntered(field) {
        for (const [name, texts] of Object.entries(field.cases)) {
            for (const text of texts) {
                const [before] = field.values;
                const editor = await this.begin(field, before);
                await this.enter(field, editor, text);
                await this.submit(editor);
                this.note(field, name, await this.outcome(editor), text, before, await this.held(field));
            }
        }
    }

    // A second set while the first is on its way.
    async tryInFlight(field) {
        const [before, , first, second] = field.values;
        for (const [one, other] of [[first, second], [second, first]]) {
            if (one === before) continue;
            const editor = await this.begin(field, before);
            const held = [];
            let isOpen = false;
            await this.console.page.route(SET, (route) => (isOpen ? route.continue() : held.push(route)));
            for (const text of [one, other]) {
                await this.enter(field, editor, text);
                await this.submit(editor);
                await until(() => held.length, 1, "a request");
            }
            isOpen = true;
            await held[0].continue();
            this.note(field, "in flight", await this.outcome(editor, /^stored$/), other, before, await this.held(field));
            await this.console.page.unroute(SET);
        }
    }

    // Another process stores while the form is filled, while the request is on its way, and right after it.
    async tryChanged(field) {
        const [before, others, typed] = field.values;
        const question = this.console.page.locator("#question[open]");
        for (const answer of ["no", "yes"]) {
            const editor = await this.begin(field, before);
            await this.enter(field, editor, typed);
            await this.store(field, others);
            await until(() => this.shown(field), others, "the other's value");
            await this.submit(editor);
            await question.locator(`[value=${answer}]`).click();
            this.note(field, "changed meanwhile", await this.outcome(editor), typed, others, await this.held(field));
        }
        for (const isAfter of [false, true]) {
            const editor = await this.begin(field, before);
            let go;
            await this.console.page.route(SET, async (route) => {
                const response = isAfter ? await route.fetch() : undefined;
                go = () => (isAfter ? route.fulfill({ response }) : route.continue());
            });
            await this.enter(field, editor, typed);
            await this.submit(editor);
            await until(() => go !== undefined, true, "the request");
            const last = isAfter && others === typed ? before : others;
            if (isAfter) await until(() => this.shown(field), typed, "what is stored");
            await this.store(field, last);
            await until(() => this.shown(field), last, "the other's value");
            await go();
            this.note(field, "changed meanwhile", await this.outcome(editor), typed, before, await this.held(field));
            await this.console.page.unroute(SET);
        }
    }

    // Several at once, because the web server gives up after 30 s; of one variable only one.
    async tryFrozen(fields) {
        const editors = [];
        await this.console.isLive();
        for (const field of fields) {
            const editor = await this.begin(field, field.values[0]);
            await this.enter(field, editor, field.values[2]);
            editors.push(editor);
        }
        const { service, live = service } = this.device;
        const thaws = [...new Set([service, live])].map((id) => this.device.freeze(id));
        for (const [at, field] of fields.entries()) {
            await this.console.row(field.variable);
            await this.submit(editors[at]);
        }
        for (const editor of editors) await this.outcome(editor, /^unknown: /);
        thaws.forEach((thaw) => thaw());
        for (const [at, field] of fields.entries()) {
            const message = await this.outcome(editors[at], /^stored/);
            this.note(field, "frozen service", message, field.values[2], field.values[0], await this.held(field));
        }
    }
}

// {rows: a row for each kind with "right of all" for each case, wrong: what was not true}.
export async function measureSets(device, browser, progress) {
    const page = await Console.open(browser, device.url);
    const matrix = new Matrix(device, page);
    for (const field of FIELDS) {
        progress(`Sets of ${field.kind}`);
        await matrix.tryEntered(field);
        await matrix.tryInFlight(field);
        await matrix.tryChanged(field);
    }
    progress("Sets while the service is frozen");
    for (const turn of [0, 1, 2, 3]) await matrix.tryFrozen(FIELDS.filter((_, at) => at % 4 === turn));
    await page.page.context().close();
    const cell = (kind, name) => matrix.counts.get(`${kind}: ${name}`)?.join(" of ") ?? "–";
    return { rows: FIELDS.map(({ kind }) => [kind, ...CASES.map((name) => cell(kind, name))]), wrong: matrix.wrong };
}
