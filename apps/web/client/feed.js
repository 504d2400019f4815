// What waits at the service: changes of variables, and log text. The service tells a change only to those who wait when
// its 100 ms are over: between an answer and the next poll nothing is done. See docs/console.md.

import { pause, request, RequestError } from "./api.js";

const TREE = "/api/v1/all.cgi";
const UPDATE = "/api/v1/update.cgi";
const LOG = "/api/v1/log.cgi";
// A request that the service answers at once, and that leaves no line in its log.
const PROBE = "/qorapp/v1/setups/list";

const RETRY_MS = [200, 500, 1000, 2000];
const CROWDED_RETRY_MS = 3000;
const LOST_AFTER_MS = 5000;
const QUIET_MS = 10000;
const PROBE_MS = 5000;
// Characters of the log for pages that come later.
const KEPT_AT_MOST = 4000000;

// A loop that can be started and stopped any number of times, and backs off while `turn` fails.
class Loop {
  #abort = null;

  // Returns whether it stood still before.
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
    this.#tell("reconnecting", "Paused");
  }

  // Reads the tree for who came later, or wants to be certain. Who asks while one is on its way shares the next.
  // Resolves to whether it came.
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

  // The first poll leaves before the tree is asked for, and polls go on while it is on its way: what changes meanwhile
  // is in one of both. What fails ends both.
  async turn(signal, succeeded) {
    const either = new AbortController();
    const both = AbortSignal.any([signal, either.signal]);
    const changes = this.#follow(both);
    try {
      await Promise.race([this.#readTree(both), changes]);
      succeeded();
      this.#failingSince = null;
      this.#tell("live", "Live");
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
      this.#tell("reconnecting", "Too many clients are connected. Trying again");
      this.reread();
    } else if (Date.now() - this.#failingSince > LOST_AFTER_MS) {
      this.#tell("lost", `Lost: ${reason}. Trying again`);
    } else {
      this.#tell("reconnecting", `Reconnecting: ${reason}`);
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

  // A device that has left the radio's range closes nothing: when it is quiet for long, the service is asked.
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

  // Updates that come meanwhile may be newer than the tree: they are told once more behind it.
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

  #tell(state, text) {
    if (this.#state.state !== state || this.#state.text !== text) {
      this.#state = { type: "state", state, text };
      this.#emit(this.#state);
    }
  }
}

// Follows the kernel log. The answer is a length, a line end, and the text behind the offset (bytes) that was asked for.
// emit() gets {type: "log", reset, text}, where the text is all of the log with `reset`, and {type: "log-state", text},
// empty while all is well.
export class LogFeed extends Loop {
  #emit;
  #offset = 0;
  #decoder = new TextDecoder();
  #text = "";

  constructor(emit) {
    super();
    this.#emit = emit;
  }

  // All of the log so far, for who came later.
  get whole() {
    return { type: "log", reset: true, text: this.#text };
  }

  async turn(signal, succeeded) {
    const asked = this.#offset;
    const answer = await request(asked === 0 ? LOG : `${LOG}?offset=${asked}`, { signal });
    const bytes = new Uint8Array(await answer.arrayBuffer());
    succeeded();
    this.#take(asked, bytes);
    // Without a log the service answers at once and with nothing.
    if (this.#offset === 0) await pause(1000);
  }

  // The next answer may begin anywhere after a failure: the service may have been started anew.
  failed(error) {
    this.#offset = 0;
    this.#emit({ type: "log-state", text: error.status === 503
      ? "Too many clients are connected. Trying again." : "No connection. Trying again." });
  }

  #take(asked, bytes) {
    const lineEnd = bytes.indexOf(10);
    const length = Number(new TextDecoder().decode(bytes.subarray(0, lineEnd)));
    const body = bytes.subarray(lineEnd + 1);
    // Less than what was asked for: another log, and all of it is here.
    const isWhole = asked === 0 || length < asked;
    if (isWhole) this.#decoder = new TextDecoder();
    const text = this.#decoder.decode(body, { stream: true });
    this.#offset = (isWhole ? 0 : asked) + body.length;
    this.#emit({ type: "log-state", text: "" });
    this.#add(text, isWhole);
  }

  // After a gap in the connection the log is most often the known one and a bit more.
  #add(text, isWhole) {
    const isKnown = isWhole && this.#text !== "" && text.startsWith(this.#text);
    const added = isKnown ? text.slice(this.#text.length) : text;
    const reset = isWhole && !isKnown;
    this.#text = isWhole ? text : this.#text + text;
    if (this.#text.length > KEPT_AT_MOST) {
      this.#text = this.#text.slice(this.#text.indexOf("\n", this.#text.length - KEPT_AT_MOST / 2) + 1);
    }
    if (reset || added !== "") this.#emit({ type: "log", reset, text: added });
  }
}
