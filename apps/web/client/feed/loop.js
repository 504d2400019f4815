// A loop of requests that retries with growing pauses.

import { pause } from "./api.js";

const RETRY_MS = [200, 500, 1000, 2000];
const CROWDED_RETRY_MS = 3000;

// Calls turn(signal, succeeded) until stop(); failed(error) hears of each failure. May be started again.
export class Loop {
  #abort = null;

  // Returns false if it already runs.
  start() {
    if (this.#abort !== null) return false;
    this.#abort = new AbortController();
    this.#run(this.#abort.signal);
    return true;
  }

  stop() {
    this.#abort?.abort();
    this.#abort = null;
  }

  async #run(signal) {
    for (let failures = 0; !signal.aborted; ++failures) {
      try {
        await this.turn(signal, () => { failures = -1; });
      } catch (error) {
        if (!signal.aborted) {
          this.failed(error);
          const wait = RETRY_MS[Math.min(Math.max(failures, 0), RETRY_MS.length - 1)];
          await pause(error.status === 503 ? CROWDED_RETRY_MS * (0.5 + Math.random()) : wait);
        }
      }
    }
  }
}
