// The variables that are pinned, in the order of pinning, on all pages of the browser.

import { Kept } from "./remember.js";

export class Favourites {
  #kept = new Kept("console.favourites", []);

  get keys() {
    return [...this.#kept.value];
  }

  has(key) {
    return this.#kept.value.includes(key);
  }

  // Pins or unpins a variable.
  set(key, isPinned) {
    this.#kept.change((keys) => {
      if (isPinned && keys.includes(key)) return keys;
      return isPinned ? [...keys, key] : keys.filter((each) => each !== key);
    });
  }

  // listener() is called after each change, also of another page.
  subscribe(listener) {
    this.#kept.subscribe(listener);
  }
}
