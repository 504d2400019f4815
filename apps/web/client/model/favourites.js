// The variables that are pinned, in the order of pinning, on all pages of the browser.

import { keptKeys, recall, remember } from "./remember.js";

const PREFIX = "console.favourite.";
// A list of all was kept here before.
const FORMER = "console.favourites";

// Each is kept by itself, with the time at which it was pinned: pages are processes that write at the same time, and of one
// list only the last writer's would remain.
export class Favourites {
  #times = new Map();
  #listeners = new Set();

  constructor() {
    recall(FORMER, []).forEach((key, at) => remember(PREFIX + key, at));
    remember(FORMER, undefined);
    this.#readAll();
    addEventListener("storage", ({ key }) => {
      if (key === null) this.#readAll();
      else if (key.startsWith(PREFIX)) this.#read(key.slice(PREFIX.length));
      else return;
      this.#listeners.forEach((listener) => listener());
    });
  }

  get keys() {
    const order = ([one, time], [other, later]) => time - later || (one < other ? -1 : 1);
    return [...this.#times].sort(order).map(([key]) => key);
  }

  has(key) {
    return this.#times.has(key);
  }

  // Pins or unpins a variable.
  set(key, isPinned) {
    if (isPinned === this.has(key)) return;
    if (isPinned) this.#times.set(key, Date.now());
    else this.#times.delete(key);
    remember(PREFIX + key, this.#times.get(key));
    this.#listeners.forEach((listener) => listener());
  }

  // listener() is called after each change, also of another page.
  subscribe(listener) {
    this.#listeners.add(listener);
  }

  #read(key) {
    const time = recall(PREFIX + key, null);
    if (time === null) this.#times.delete(key);
    else this.#times.set(key, time);
  }

  #readAll() {
    this.#times.clear();
    keptKeys().filter((key) => key.startsWith(PREFIX)).forEach((key) => this.#read(key.slice(PREFIX.length)));
  }
}
