// The upload of a firmware file.

import { uploadFirmware } from "../feed/api.js";

// Soon enough that a person hears of it within ten seconds.
const STALLED_MS = 7000;

export class Upload {
  // Called when `state` has changed.
  onprogress = null;
  #abort = new AbortController();
  #percent = 0;
  #movedAt = Date.now();

  constructor(id, file) {
    this.done = uploadFirmware(id, file, (share) => this.#move(share * 100), this.#abort.signal).catch((error) => {
      if (error.name === "AbortError" && this.#percent < 100) return { result: "cancelled" };
      return error.isRefusal ? { result: error.message } : { unknown: `${error.message}; the file may have arrived` };
    });
  }

  // {percent, note}: the share that has left, and what a person should know.
  get state() {
    const silent = Math.round((Date.now() - this.#movedAt) / 1000);
    const what = this.#percent < 100 ? "stalled" : "the service has not answered";
    return { percent: this.#percent, note: silent * 1000 < STALLED_MS ? "" : `${what} for ${silent} s` };
  }

  cancel() {
    this.#abort.abort();
  }

  #move(percent) {
    this.#percent = percent;
    this.#movedAt = Date.now();
    this.onprogress?.();
  }
}
