// The virtual device, behind a process that speaks JSON: see device.py for the commands.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { appendFile, readFile } from "node:fs/promises";
import { createInterface } from "node:readline";
import { fileURLToPath } from "node:url";
import { until } from "./console.mjs";

const PYTHON = "/usr/bin/python3";
const PROGRAM = fileURLToPath(new URL("device.py", import.meta.url));

export class Device {
    // Options are those of the launcher's VirtualDevice, for example {simulation: ["--speed", "8"]}. Whoever starts a
    // device stops it. It has a `url`, and its files are below the folder `root`.
    static async start(options = {}) {
        const device = new Device(options);
        return Object.assign(device, await device.#answer());
    }

    constructor(options) {
        this.process = spawn(PYTHON, [PROGRAM, JSON.stringify(options)], {
            stdio: ["pipe", "pipe", "inherit"],
            env: { ...process.env, PYTHONDONTWRITEBYTECODE: "1" },
        });
        this.ended = once(this.process, "exit");
        this.lines = createInterface(this.process.stdout)[Symbol.asyncIterator]();
    }

    // Sends a command and returns its result; commands are answered in their order.
    async ask(name, command = {}) {
        this.process.stdin.write(JSON.stringify({ do: name, ...command }) + "\n");
        const { result, error } = await this.#answer();
        assert.equal(error, undefined);
        return result;
    }

    store(variable, value) {
        return this.ask("store", { variable, value });
    }

    // Returns a function that returns when so many requests more for updates have come to the service, whose log has to
    // have the level DebugMost. Who does not wait for an update misses it.
    async countPolls() {
        const log = `${this.root}/dev/kmsg`;
        const count = async () => (await readFile(log, "utf8")).split(", /api/v1/update.cgi)").length;
        const before = await count();
        return (polls) => until(async () => (await count()) - before >= polls, true, `${polls} polls`);
    }

    // Stores what so many wait for, and returns when they wait again.
    async tell(variable, value, count = 1) {
        const areWaiting = await this.countPolls();
        await this.store(variable, value);
        await areWaiting(count);
    }

    load(variable) {
        return this.ask("load", { variable });
    }

    // Writes lines into the kernel log.
    log(lines) {
        return appendFile(`${this.root}/dev/kmsg`, `${lines}\n`);
    }

    // Ends the device, and fails where one of its processes ended badly.
    async stop() {
        this.process.stdin.end();
        const [code] = await this.ended;
        assert.equal(code, 0, "the device's processes ended well");
    }

    async #answer() {
        const { value, done } = await this.lines.next();
        assert.ok(!done, "the device has gone");
        return JSON.parse(value);
    }
}
