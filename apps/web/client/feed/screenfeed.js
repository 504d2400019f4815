// Follows the display at a rate that leaves the service its time: encoding a picture holds it up.

import { capture, pause } from "./api.js";
import { Loop } from "./loop.js";

const EVERY_MS = 200;
const EVERY_UNCHANGED_MS = 1000;
// Of the time, as a share, in which the service may be encoding. The shorter of the last two answer times is the most that
// it can be: the longer one may have waited for something else.
const SHARE = 0.1;
const LATE_MS = 2000;
const FAST_MS = 30000;
const STEP_MS = 50;

// emit() gets {type: "screen", picture, rate}, with the PNG as a Blob and the pictures a second that are asked for,
// {type: "screen-fast", until} and {type: "screen-state", text}.
export class ScreenFeed extends Loop {
  #emit;
  #last = null;
  #bytes = new Uint8Array();
  #took = Infinity;
  #fastUntil = 0;

  constructor(emit) {
    super();
    this.#emit = emit;
  }

  // For pages that come later: the last messages.
  get latest() {
    return [this.#fast, ...(this.#last ? [this.#last] : [])];
  }

  // Asks without a rest for a while.
  hurry() {
    this.#fastUntil = Date.now() + FAST_MS;
    this.#emit(this.#fast);
  }

  get #fast() {
    return { type: "screen-fast", until: this.#fastUntil };
  }

  async turn(signal, succeeded) {
    const begun = performance.now();
    const late = setTimeout(() => this.#say("No picture for 2 s: waiting for the service."), LATE_MS);
    const picture = await capture(signal).finally(() => clearTimeout(late));
    const bytes = new Uint8Array(await picture.arrayBuffer());
    succeeded();
    const last = performance.now() - begun;
    const took = Math.min(last, this.#took);
    this.#took = last;
    const isSame = bytes.length === this.#bytes.length && bytes.every((byte, at) => byte === this.#bytes[at]);
    const everyMs = Math.max(isSame ? EVERY_UNCHANGED_MS : EVERY_MS, took / SHARE);
    this.#bytes = bytes;
    this.#last = { type: "screen", picture, rate: 1000 / (this.#isFast ? took : everyMs) };
    this.#emit(this.#last);
    while (!signal.aborted && !this.#isFast && performance.now() - begun < everyMs) {
      await pause(Math.max(Math.min(STEP_MS, everyMs - (performance.now() - begun)), 0));
    }
  }

  failed(error) {
    this.#say(`No picture: ${error.message}. Trying again.`);
  }

  #say(text) {
    this.#emit({ type: "screen-state", text });
  }

  get #isFast() {
    return Date.now() < this.#fastUntil;
  }
}
