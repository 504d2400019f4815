// The virtual device, behind a process that speaks JSON: see device.py for the commands.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { createInterface } from "node:readline";
import { fileURLToPath } from "node:url";

const PYTHON = "/usr/bin/python3";
const PROGRAM = fileURLToPath(new URL("device.py", import.meta.url));

export class Device {
    // Options are those of the launcher's VirtualDevice, for example {simulation: ["--speed", "8"]}. Whoever starts a
    // device stops it.
    static async start(options = {}) {
        const device = new Device(options);
        device.url = (await device.#answer()).url;
        return device;
    }

    constructor(options) {
        this.process = spawn(PYTHON, [PROGRAM, JSON.stringify(options)], {
            stdio: ["pipe", "pipe", "inherit"],
            env: { ...process.env, PYTHONDONTWRITEBYTECODE: "1" },
        });
        this.ended = once(this.process, "exit");
        this.lines = createInterface(this.process.stdout)[Symbol.asyncIterator]();
        this.last = Promise.resolve();
    }

    // Sends a command and returns its result; commands are answered in their order.
    ask(name, command = {}) {
        const before = this.last;
        this.process.stdin.write(JSON.stringify({ do: name, ...command }) + "\n");
        this.last = before.then(() => this.#answer());
        return this.last.then(({ result, error }) => {
            assert.equal(error, undefined);
            return result;
        });
    }

    store(variable, value) {
        return this.ask("store", { variable, value });
    }

    load(variable) {
        return this.ask("load", { variable });
    }

    async file(path) {
        const content = await this.ask("file", { path });
        return content === null ? null : Buffer.from(content, "base64");
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
