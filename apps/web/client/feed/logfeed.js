// Follows the kernel log. An answer has the log's length, a line end, and the text from the requested offset (in bytes) on.
// A long log is not read whole: once the length has arrived, the request is aborted and another one asks for the end.

import { pause, request } from "./api.js";
import { Loop } from "./loop.js";

const LOG = "/api/v1/log.cgi";
const NEWLINE = 10;
// Bytes that are read first; that are read at most to catch up; that are kept for pages which open the log later; that are
// compared after a failure.
const TAIL = 100_000;
const CATCH_UP = 1_000_000;
const KEPT = 4_000_000;
const OVERLAP = 1000;

// Reads the log from an offset: resolves to {length, offset, next}, where next() resolves to the following bytes, or to null
// at the end. A log that is shorter than the offset arrives whole, from offset 0.
async function readFrom(asked, signal) {
  const answer = await request(asked === 0 ? LOG : `${LOG}?offset=${asked}`, { signal });
  const reader = answer.body.getReader();
  let head = new Uint8Array();
  while (!head.includes(NEWLINE)) {
    const { value, done } = await reader.read();
    if (done) throw new Error("the answer has no length");
    head = joined([head, value]);
  }
  const end = head.indexOf(NEWLINE);
  const length = Number(new TextDecoder().decode(head.subarray(0, end)));
  let rest = head.subarray(end + 1);
  const next = async () => {
    if (rest === null) return (await reader.read()).value ?? null;
    const first = rest;
    rest = null;
    return first;
  };
  return { length, offset: length < asked ? 0 : asked, next };
}

// The lines before `until` (an offset), as many bytes of them as fit: resolves to {text, start}. progress() gets the share.
export async function readBefore(until, bytes, progress, signal) {
  const abort = new AbortController();
  const from = Math.max(until - bytes, 0);
  const answer = await readFrom(from, AbortSignal.any([signal, abort.signal]));
  const chunks = [];
  let have = 0;
  for (let chunk = await answer.next(); chunk !== null && have < until - from; chunk = await answer.next()) {
    chunks.push(chunk);
    have += chunk.length;
    progress(Math.min(have / (until - from), 1));
  }
  abort.abort();
  return wholeLines(joined(chunks).subarray(0, until - from), from);
}

// Reads all of the log: take() gets one chunk of bytes after the other, and the share that has come with it.
export async function readAll(take, signal) {
  const { length, next } = await readFrom(0, signal);
  let have = 0;
  for (let chunk = await next(); chunk !== null; chunk = await next()) {
    have += chunk.length;
    take(chunk, Math.min(have / length, 1));
  }
}

// emit() gets {type: "log", reset, text, start}: with `reset` the text replaces all and begins at the offset `start`; and
// {type: "log-state", text}, empty while all is well.
export class LogFeed extends Loop {
  #emit;
  #chunks = [];
  #start = 0;
  #offset = 0;
  #isCertain = true;
  #decoder = new TextDecoder();

  constructor(emit) {
    super();
    this.#emit = emit;
  }

  // For pages that come later: the end of the log as far as it is kept.
  get latest() {
    const bytes = joined(this.#chunks);
    this.#chunks = [bytes];
    return [{ type: "log", reset: true, ...wholeLines(bytes, this.#start) }];
  }

  async turn(signal, succeeded) {
    const overlap = this.#isCertain ? 0 : Math.min(OVERLAP, this.#offset - this.#start);
    const far = new AbortController();
    const answer = await readFrom(this.#offset - overlap, AbortSignal.any([signal, far.signal]));
    succeeded();
    if (answer.length - answer.offset > (this.#offset === 0 ? TAIL : CATCH_UP)) {
      far.abort();
      await this.#restart(await readFrom(answer.length - TAIL, signal));
    } else {
      await this.#take(answer, overlap);
    }
    this.#isCertain = true;
    this.#emit({ type: "log-state", text: "" });
    // Without a log the service answers at once and with nothing.
    if (this.#offset === 0) await pause(1000);
  }

  // The service may have been started anew meanwhile: then the log is another one.
  failed(error) {
    this.#isCertain = false;
    this.#emit({ type: "log-state", text: error.status === 503
      ? "Too many clients are connected. Trying again." : "No connection. Trying again." });
  }

  async #take(answer, overlap) {
    const bytes = await all(answer);
    const known = joined(this.#chunks).subarray(-overlap || Infinity);
    const isSame = answer.offset === this.#offset - overlap && known.every((byte, at) => byte === bytes[at]);
    if (answer.offset === 0) this.#replace(bytes, 0);
    else if (isSame) this.#add(bytes.subarray(overlap));
    else this.#forget();
  }

  async #restart(answer) {
    this.#replace(await all(answer), answer.offset);
  }

  // The next turn reads the log from its beginning.
  #forget() {
    this.#chunks = [];
    this.#start = 0;
    this.#offset = 0;
  }

  #replace(bytes, start) {
    this.#chunks = [bytes];
    this.#start = start;
    this.#offset = start + bytes.length;
    this.#decoder = new TextDecoder();
    this.#decoder.decode(bytes, { stream: true });
    this.latest.forEach(this.#emit);
  }

  #add(bytes) {
    this.#chunks.push(bytes);
    this.#offset += bytes.length;
    while (this.#offset - this.#start > KEPT && this.#chunks.length > 1) {
      this.#start += this.#chunks.shift().length;
    }
    const text = this.#decoder.decode(bytes, { stream: true });
    if (text !== "") this.#emit({ type: "log", reset: false, text });
  }
}

async function all({ next }) {
  const chunks = [];
  for (let chunk = await next(); chunk !== null; chunk = await next()) chunks.push(chunk);
  return joined(chunks);
}

function joined(chunks) {
  const bytes = new Uint8Array(chunks.reduce((sum, { length }) => sum + length, 0));
  let at = 0;
  for (const chunk of chunks) {
    bytes.set(chunk, at);
    at += chunk.length;
  }
  return bytes;
}

// Leaves out the line that begins before the bytes do.
function wholeLines(bytes, start) {
  const cut = start === 0 ? 0 : bytes.indexOf(NEWLINE) + 1;
  return { text: new TextDecoder().decode(bytes.subarray(cut)), start: start + cut };
}
