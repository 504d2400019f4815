// Records what is watched from the feed of the tree, for all pages and over reloads.

import { readValue, Unprintable } from "./documents.js";
import { writeRecord } from "./history.js";

const WRITE_MS = 1000;
// Each so many records has all values: those that do not change must outlive the records that are forgotten.
const FULL_RECORD = 60;

export class Recorder {
  #known;
  #changed;
  #names = new Map();
  #last = new Map();
  #points = {};
  #timer = 0;
  #written = 0;
  #session = `${Date.now()}-${Math.random()}`;

  // `known` is a Map of "Memory.Variable" to the text of its value, empty while nothing is known. The owner changes it and
  // calls take() then. changed() is called when `isKept` has changed.
  constructor(known, changed) {
    this.#known = known;
    this.#changed = changed;
  }

  get isWanted() {
    return this.#names.size > 0;
  }

  // Whether what is recorded survives the pages.
  isKept = true;

  // Records these names, "Memory.Variable" or "Memory.Variable.Member", from now on.
  watch(names) {
    this.#names.clear();
    for (const name of names) {
      const [memory, variable, member] = name.split(".");
      const key = `${memory}.${variable}`;
      this.#names.set(key, [...this.#names.get(key) ?? [], { name, member }]);
    }
    const all = new Set(names);
    [...this.#last.keys()].filter((name) => !all.has(name)).forEach((name) => this.#last.delete(name));
    clearInterval(this.#timer);
    this.#timer = this.isWanted ? setInterval(() => this.write(), WRITE_MS) : 0;
    this.take();
  }

  // Takes what is known now.
  take() {
    this.#names.forEach((watched, key) => this.#read(watched, this.#known.get(key)));
  }

  // Writes what has come since the last time.
  async write() {
    const series = this.#points;
    if (this.#known.size === 0 && Object.keys(series).length === 0) return;
    this.#points = {};
    if (++this.#written % FULL_RECORD === 0) {
      this.#last.forEach((value, name) => { series[name] ??= [[Date.now() / 1000, value]]; });
    }
    const isKept = await writeRecord({ session: this.#session, to: Date.now() / 1000, series });
    if (isKept === this.isKept) return;
    this.isKept = isKept;
    this.#changed();
  }

  #read(watched, raw) {
    const parsed = raw === undefined ? new Unprintable("not known") : readValue(raw);
    for (const { name, member } of watched) {
      const value = parsed instanceof Unprintable ? null : member ? parsed[member] : parsed.value;
      const isNumber = member ? typeof value === "number" : ["int", "float"].includes(parsed.type);
      const isKnown = value !== null && value !== undefined && !(isNumber && !Number.isFinite(Number(value)));
      this.#add(name, !isKnown ? null : isNumber ? Number(value) : String(value));
    }
  }

  #add(name, value) {
    if ((this.#last.get(name) ?? null) === value) return;
    this.#last.set(name, value);
    (this.#points[name] ??= []).push([Date.now() / 1000, value]);
  }
}
