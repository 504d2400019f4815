// A virtual device for programs in Node.js, as browser tests and benchmarks use it.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { readFileSync } from "node:fs";
import { appendFile, open, readFile } from "node:fs/promises";
import { createInterface } from "node:readline";
import { fileURLToPath } from "node:url";
import { until } from "./until.mjs";

const PROGRAM = fileURLToPath(new URL("device.py", import.meta.url));
const SIZE_WORD = 4;

export class Device {
    // Options are those of the launcher's VirtualDevice, for example {simulation: ["--speed", "8"]}; see
    // device.py for `site`. The caller stops it. Has `url`, `root`, the folder of its files, and the process id `service`.
    static async start(options = {}) {
        const device = new Device();
        device.process = spawn("/usr/bin/python3", ["-B", PROGRAM, JSON.stringify(options)],
            { stdio: ["pipe", "pipe", "inherit"] });
        device.ended = once(device.process, "exit");
        device.lines = createInterface(device.process.stdout)[Symbol.asyncIterator]();
        return Object.assign(device, await device.#answer());
    }

    // Ends or starts the service, or the part "live": "end" or "start".
    async command(word, name = "service") {
        this.process.stdin.write(`${word} ${name}\n`);
        this[name] = await this.#answer();
    }

    // Stops the service's process as it is; the result lets it continue.
    freeze(id = this.service) {
        process.kill(id, "SIGSTOP");
        return () => process.kill(id, "SIGCONT");
    }

    // Does so while act() runs, with the service or another process.
    async whileFrozen(act, id = this.service) {
        const thaw = this.freeze(id);
        try {
            await act();
        } finally {
            thaw();
        }
    }

    // Does so with the web server's worker.
    whileServerFrozen(act) {
        return this.whileFrozen(act, Number(readFileSync(`/proc/${this.nginx}/task/${this.nginx}/children`, "utf8").split(" ")[0]));
    }

    // Stores a value, as another client does.
    async store(variable, value) {
        const [memory, name] = variable.split(".");
        const body = `{"${memory}": {"${name}": ${JSON.stringify(value)}}}`;
        const answer = await fetch(`${this.url}/api/v1/set.cgi`, { method: "POST", body });
        assert.equal((await answer.json()).result, 1);
    }

    // What a variable holds: its value, or the structure.
    async load(variable) {
        const [memory, name] = variable.split(".");
        const { variables } = await (await fetch(`${this.url}/api/v1/all.cgi`)).json();
        return variables[memory][name].value ?? variables[memory][name];
    }

    // Writes bytes into a segment, without an event.
    async poke(memory, at, bytes) {
        const segment = await open(`/dev/shm/${this.name}${memory}`, "r+");
        await segment.write(Buffer.from(bytes), 0, bytes.length, SIZE_WORD + at);
        await segment.close();
    }

    // Returns a function that returns when so many more update requests wait at the service, whose log level has to be
    // DebugMost. A change that no request waits for is not reported.
    async countPolls() {
        const count = async () => (await readFile(`${this.root}/dev/kmsg`, "utf8")).split(", /api/v1/update.cgi)").length;
        const before = await count();
        return (polls) => until(async () => (await count()) - before >= polls, true, `${polls} polls`);
    }

    // Stores what so many pages wait for, and returns when they wait again.
    async tell(variable, value, count = 1) {
        const areWaiting = await this.countPolls();
        await this.store(variable, value);
        await areWaiting(count);
    }

    // Writes lines into the kernel log.
    log(lines) {
        return appendFile(`${this.root}/dev/kmsg`, `${lines}\n`);
    }

    async stop() {
        this.process.stdin.end();
        assert.equal((await this.ended)[0], 0, "the device's processes ended well");
    }

    async #answer() {
        const { value, done } = await this.lines.next();
        assert.ok(!done, "the device has ended");
        return JSON.parse(value);
    }
}
