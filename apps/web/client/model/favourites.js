// The variables that are pinned, in the order of pinning. They survive a reload.

import { recall, remember } from "./remember.js";

const KEY = "console.favourites";

export class Favourites {
  #keys = recall(KEY, []);

  get keys() {
    return [...this.#keys];
  }

  has(key) {
    return this.#keys.includes(key);
  }

  // Pins or unpins; returns whether it is pinned now.
  toggle(key) {
    const isPinned = this.has(key);
    this.#keys = isPinned ? this.#keys.filter((each) => each !== key) : [...this.#keys, key];
    remember(KEY, this.#keys);
    return !isPinned;
  }
}
