// The variables that are pinned, in the order of pinning, on all pages of the browser.

import { KeptEach, takeFormer } from "./remember.js";

// Each is kept with the time at which it was pinned.
export class Favourites {
  #kept = new KeptEach("console.favourite.");

  constructor() {
    this.#kept.change(takeFormer("console.favourites", []).map((key, at) => [key, at]));
  }

  get keys() {
    const order = ([one, time], [other, later]) => time - later || (one < other ? -1 : 1);
    return [...this.#kept.values].sort(order).map(([key]) => key);
  }

  // Whether all survive this page.
  get isKept() {
    return this.#kept.isKept;
  }

  has(key) {
    return this.#kept.values.has(key);
  }

  // Pins or unpins a variable.
  set(key, isPinned) {
    if (isPinned !== this.has(key)) this.#kept.change([[key, isPinned ? Date.now() : undefined]]);
  }

  // listener() is called after each change, also of another page.
  subscribe(listener) {
    this.#kept.subscribe(listener);
  }
}
