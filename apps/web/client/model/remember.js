// What the browser keeps over a reload. Where it may keep nothing, the page works without.

export function recall(key, otherwise) {
  try {
    return JSON.parse(localStorage.getItem(key)) ?? otherwise;
  } catch {
    return otherwise;
  }
}

// An undefined value is forgotten.
export function remember(key, value) {
  try {
    if (value === undefined) localStorage.removeItem(key);
    else localStorage.setItem(key, JSON.stringify(value));
  } catch {
    // Private windows and full disks.
  }
}

// The keys under which anything is kept.
export function keptKeys() {
  try {
    return Object.keys(localStorage);
  } catch {
    return [];
  }
}

// A value that all pages of the browser share.
export class Kept {
  #key;
  #value;
  #listeners = new Set();

  constructor(key, otherwise) {
    this.#key = key;
    this.#value = recall(key, otherwise);
    addEventListener("storage", (event) => {
      if (event.key !== key && event.key !== null) return;
      this.#value = recall(key, otherwise);
      this.#listeners.forEach((listener) => listener());
    });
  }

  get value() {
    return this.#value;
  }

  // Changes what is kept at this moment, by whichever page: update() gets it and returns the new value.
  change(update) {
    this.#value = update(recall(this.#key, this.#value));
    remember(this.#key, this.#value);
    this.#listeners.forEach((listener) => listener());
  }

  // listener() is called after each change, also of another page.
  subscribe(listener) {
    this.#listeners.add(listener);
  }
}
