// Follows the variables: by the events of the API's version 2, or by polls where the controller does not have it. The
// service reports a change only to polls that wait when its 100 ms period ends, so the next poll is sent before anything
// else happens. See docs/console.md.

import { pause, request, RequestError } from "./api.js";
import { changesSince, lastChange, updateText } from "./events.js";
import { Gaps } from "./gaps.js";
import { Loop } from "./loop.js";

const TREE = "/api/v1/all.cgi";
const UPDATE = "/api/v1/update.cgi";
// A request that the service answers at once, and that leaves no line in its log.
const PROBE = "/qorapp/v1/setups/list";

const LOST_AFTER_MS = 5000;
const QUIET_MS = 2000;
const PROBE_MS = 2500;
// Version 2 may be installed or started later.
const RETRY_TYPED_MS = 10000;
// After a poll that may have come too late the tree is read: a little later, so that what changes together comes together,
// and not more often than this, because the service keeps a line of each in its log.
const SETTLE_MS = 300;
const REREAD_MS = 10000;

// The promise, whose failure may come before anything waits for it.
function handled(promise) {
  promise.catch(() => {});
  return promise;
}

// Reads the whole tree, then follows its changes; after any gap again. emit() gets messages:
//   {type: "tree" | "update", text}
//   {type: "state", state: "live" | "reconnecting" | "lost", text, isTyped}: whether version 2 is used
export class TreeFeed extends Loop {
  #emit;
  #known;
  #failingSince = null;
  #state = { type: "state", state: "reconnecting", text: "Connecting", isTyped: false };
  #isTyped = false;
  // Version 2 has not answered, so the next turn polls.
  #isSilent = false;
  #reading = null;
  #next = null;
  #behind = new Set();
  #readAt = 0;
  #probedAt = 0;
  #rereadTimer = 0;
  #calmTimer = 0;
  #gaps = new Gaps(UPDATE, [TREE, PROBE], () => this.#bridge());

  // `known` is a Map of "Memory.Variable" to the text of its value, which the owner fills with what is emitted.
  constructor(emit, known) {
    super();
    this.#emit = emit;
    this.#known = known;
  }

  // For pages that come later.
  get latest() {
    return [this.#state];
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

  // Events continue from before the tree. The first poll is sent before the tree is requested, and polling continues
  // meanwhile. So each change is in one of both. A failure of either ends both.
  async turn(signal, succeeded) {
    const either = new AbortController();
    const both = AbortSignal.any([signal, either.signal]);
    try {
      const since = this.#isSilent ? null : await lastChange(both);
      this.#isSilent = false;
      const besideEvents = since === null ? null : handled(this.#readTree(both));
      const events = since === null ? null : await changesSince(since, both);
      this.#isTyped = events !== null;
      const polls = events ? null : handled(Promise.race([this.#follow(both), this.#untilTyped(both)]));
      const tree = events ? besideEvents : this.#readTree(both);
      const changes = polls ?? handled(tree.then(() => this.#listen(events, both)));
      await Promise.race([tree, changes]);
      succeeded();
      this.#failingSince = null;
      this.#setState("live", "Live");
      await changes;
    } finally {
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
    this.#gaps.restart();
    let poll = this.#poll(signal);
    for (;;) {
      const text = await this.#orGone(poll, signal);
      poll = this.#poll(signal);
      poll.catch(() => {});
      this.#update(text);
      if (performance.now() - this.#probedAt > REREAD_MS) this.#probe(signal).catch(() => {});
    }
  }

  // Returns when version 2 is there and has a place.
  async #untilTyped(signal) {
    for (;;) {
      await pause(RETRY_TYPED_MS);
      const since = await lastChange(signal);
      if (since !== null && await changesSince(since, signal) !== null) return;
    }
  }

  async #listen(events, signal) {
    for (;;) {
      const { value, done } = await this.#orGone(events.next(), signal);
      if (done) throw new RequestError(0);
      const text = updateText(value, this.#known);
      if (text === null) this.reread();
      else this.#update(text);
    }
  }

  #update(text) {
    this.#behind.forEach((updates) => updates.push(text));
    this.#emit({ type: "update", text });
  }

  // A device out of radio range closes no connection: after a time without updates a small request checks who sends them.
  async #orGone(change, signal) {
    for (;;) {
      let timer;
      const quiet = new Promise((resolve) => { timer = setTimeout(resolve, QUIET_MS, null); });
      const came = await Promise.race([change, quiet]).finally(() => clearTimeout(timer));
      if (came !== null) return came;
      await this.#probe(signal);
    }
  }

  // Measures the way, too. The browser measures what is read to its end.
  async #probe(signal) {
    this.#probedAt = performance.now();
    if (this.#isTyped) {
      this.#isSilent = await lastChange(signal) === null;
      if (this.#isSilent) throw new RequestError(504);
      return "";
    }
    return (await request(PROBE, { signal: AbortSignal.any([signal, AbortSignal.timeout(PROBE_MS)]) })).text();
  }

  async #poll(signal) {
    this.#gaps.sent();
    return (await request(UPDATE, { signal })).text();
  }

  // A change may have been missed. Until the tree is read, old values may be shown.
  #bridge() {
    if (this.#state.state !== "live" || this.#rereadTimer !== 0) return;
    const wait = Math.max(this.#readAt + REREAD_MS - performance.now(), SETTLE_MS);
    this.#rereadTimer = setTimeout(() => {
      this.#rereadTimer = 0;
      if (this.#state.state === "live") this.reread();
    }, wait);
    if (wait === SETTLE_MS) return;
    this.#setState("live", `Live, up to ${REREAD_MS / 1000} s late`);
    clearTimeout(this.#calmTimer);
    this.#calmTimer = setTimeout(() => this.#state.state === "live" && this.#setState("live", "Live"), 2 * REREAD_MS);
  }

  // Updates that arrive meanwhile may be newer than the tree, so they are emitted once more after it.
  async #readTree(signal) {
    const behind = [];
    this.#readAt = performance.now();
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
    const isTyped = this.#isTyped;
    if (this.#state.state !== state || this.#state.text !== text || this.#state.isTyped !== isTyped) {
      this.#state = { type: "state", state, text, isTyped };
      this.#emit(this.#state);
    }
  }
}
