// Follows the kernel log.

import { pause, request } from "./api.js";
import { Loop } from "./loop.js";

const LOG = "/api/v1/log.cgi";
// Characters that are kept for pages that open the log later.
const KEPT_AT_MOST = 4000000;

// The answer is a length, a line end, and the text behind the offset (bytes) that was asked for.
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
