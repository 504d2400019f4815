// Follows the variables. The service reports a change only to requests that wait when its 100 ms period ends, so the next
// poll is sent before anything else happens. See docs/console.md.

import { request, RequestError } from "./api.js";
import { Loop } from "./loop.js";

const TREE = "/api/v1/all.cgi";
const UPDATE = "/api/v1/update.cgi";
// A request that the service answers at once, and that leaves no line in its log.
const PROBE = "/qorapp/v1/setups/list";

const LOST_AFTER_MS = 5000;
const QUIET_MS = 2000;
const PROBE_MS = 2500;

// Reads the whole tree, then follows its changes; after any gap again. emit() gets messages:
//   {type: "tree" | "update", text}   {type: "state", state: "live" | "reconnecting" | "lost", text}
export class TreeFeed extends Loop {
  #emit;
  #failingSince = null;
  #state = { type: "state", state: "reconnecting", text: "Connecting" };
  #reading = null;
  #next = null;
  #behind = new Set();

  constructor(emit) {
    super();
    this.#emit = emit;
  }

  get state() {
    return this.#state;
  }

  stop() {
    super.stop();
    this.#setState("reconnecting", "Paused");
  }

  // Reads the tree again. A call during a read waits for the next read, which further calls share. Resolves to whether the
  // tree arrived.
  reread() {
    if (this.#reading === null) {
      this.#reading = this.#readTree().then(() => true, () => false).finally(() => { this.#reading = null; });
      return this.#reading;
    }
    this.#next ??= this.#reading.then(() => {
      this.#next = null;
      return this.reread();
    });
    return this.#next;
  }

  // The first poll is sent before the tree is requested, and polling continues meanwhile, so each change is in one of both.
  // A failure of either ends both.
  async turn(signal, succeeded) {
    const either = new AbortController();
    const both = AbortSignal.any([signal, either.signal]);
    const changes = this.#follow(both);
    try {
      await Promise.race([this.#readTree(both), changes]);
      succeeded();
      this.#failingSince = null;
      this.#setState("live", "Live");
      await changes;
    } finally {
      changes.catch(() => {});
      either.abort();
    }
  }

  failed(error) {
    this.#failingSince ??= Date.now();
    const reason = error instanceof RequestError ? error.message : "the answer is not readable";
    if (error.status === 503) {
      this.#setState("reconnecting", "Too many clients are connected. Trying again");
      this.reread();
    } else if (Date.now() - this.#failingSince > LOST_AFTER_MS) {
      this.#setState("lost", `Lost: ${reason}. Trying again`);
    } else {
      this.#setState("reconnecting", `Reconnecting: ${reason}`);
    }
  }

  async #follow(signal) {
    let poll = this.#poll(signal);
    for (;;) {
      const text = await this.#orGone(poll, signal);
      poll = this.#poll(signal);
      poll.catch(() => {});
      this.#behind.forEach((updates) => updates.push(text));
      this.#emit({ type: "update", text });
    }
  }

  // A device out of radio range closes no connection: after a time without updates a small request checks the service.
  async #orGone(poll, signal) {
    for (;;) {
      let timer;
      const quiet = new Promise((resolve) => { timer = setTimeout(resolve, QUIET_MS, null); });
      const text = await Promise.race([poll, quiet]).finally(() => clearTimeout(timer));
      if (text !== null) return text;
      await request(PROBE, { signal: AbortSignal.any([signal, AbortSignal.timeout(PROBE_MS)]) });
    }
  }

  async #poll(signal) {
    return (await request(UPDATE, { signal })).text();
  }

  // Updates that arrive meanwhile may be newer than the tree, so they are emitted once more after it.
  async #readTree(signal) {
    const behind = [];
    this.#behind.add(behind);
    try {
      const text = await (await request(TREE, { signal })).text();
      this.#emit({ type: "tree", text });
      behind.forEach((update) => this.#emit({ type: "update", text: update }));
    } finally {
      this.#behind.delete(behind);
    }
  }

  #setState(state, text) {
    if (this.#state.state !== state || this.#state.text !== text) {
      this.#state = { type: "state", state, text };
      this.#emit(this.#state);
    }
  }
}
