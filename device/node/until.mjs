// Waits for a condition.

import assert from "node:assert/strict";
import { setTimeout as pause } from "node:timers/promises";

// Longer than a busy machine ever stalls.
export const WAIT_MS = 60_000;
// A question that reads the tree stays below the web server's 20 requests a second.
const PAUSE_MS = 50;

// Asks until the answer equals the wanted one or matches it; fails with the last answer otherwise.
export async function until(question, wanted, what) {
    const isWanted = (answer) =>
        wanted instanceof RegExp ? wanted.test(answer) : JSON.stringify(answer) === JSON.stringify(wanted);
    const end = Date.now() + WAIT_MS;
    let answer = await question();
    while (!isWanted(answer)) {
        assert.ok(Date.now() < end, `${what}: ${JSON.stringify(answer)?.slice(0, 500)}, not ${wanted}`);
        await pause(PAUSE_MS);
        answer = await question();
    }
}
