// What the browser keeps over a reload. Where it may keep nothing, the page works without.

const BROWSER = () => localStorage;
// What only this tab keeps.
export const TAB = () => sessionStorage;

export function recall(key, otherwise, storage = BROWSER) {
  try {
    return JSON.parse(storage().getItem(key)) ?? otherwise;
  } catch {
    return otherwise;
  }
}

// An undefined value is forgotten. Returns whether the browser keeps it: private windows and full disks keep nothing.
export function remember(key, value, storage = BROWSER) {
  try {
    if (value === undefined) storage().removeItem(key);
    else storage().setItem(key, JSON.stringify(value));
    return true;
  } catch {
    return false;
  }
}

// The names of what is kept under keys that begin so.
export function keptNames(prefix) {
  try {
    return Object.keys(localStorage).filter((key) => key.startsWith(prefix)).map((key) => key.slice(prefix.length));
  } catch {
    return [];
  }
}

// What an earlier version kept under the key, which is forgotten then.
export function takeFormer(key, otherwise) {
  const value = recall(key, otherwise);
  remember(key, undefined);
  return value;
}

// Why remember() fails. The reader needs no more to act.
export const FULL = "this browser's storage is full or blocked";

// A value that all pages of the browser share. Of two that are written at the same time one remains.
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

  // Whether it survives this page.
  isKept = true;

  // Changes what is kept at this moment, by whichever page: update() gets it and returns the new value. What could not be
  // kept is newer than what is.
  change(update) {
    this.#value = update(this.isKept ? recall(this.#key, this.#value) : this.#value);
    this.isKept = remember(this.#key, this.#value);
    this.#listeners.forEach((listener) => listener());
  }

  // listener() is called after each change, also of another page.
  subscribe(listener) {
    this.#listeners.add(listener);
  }
}

// Values by name that all pages of the browser share. Each has a key of its own: pages are processes that write at the same
// time, and of one value for all names only the last writer's would remain. Locks for pages exist with HTTPS only.
export class KeptEach {
  #prefix;
  #listeners = new Set();
  #unkept = new Set();
  values = new Map();

  constructor(prefix) {
    this.#prefix = prefix;
    this.#readAll();
    addEventListener("storage", ({ key }) => {
      if (key === null) this.#readAll();
      else if (key.startsWith(prefix)) this.#read(key.slice(prefix.length));
      else return;
      this.#listeners.forEach((listener) => listener());
    });
  }

  // Whether all values survive this page.
  get isKept() {
    return this.#unkept.size === 0;
  }

  // Takes pairs of name and value; an undefined value is forgotten. What could not be kept before is tried again. Returns
  // whether all values survive this page.
  change(pairs) {
    for (const [name, value] of pairs) {
      this.#take(name, value);
      this.#unkept.add(name);
    }
    for (const name of this.#unkept) {
      if (remember(this.#prefix + name, this.values.get(name))) this.#unkept.delete(name);
    }
    this.#listeners.forEach((listener) => listener());
    return this.isKept;
  }

  // listener() is called after each change, also of another page.
  subscribe(listener) {
    this.#listeners.add(listener);
  }

  #read(name) {
    this.#take(name, recall(this.#prefix + name, undefined));
  }

  #take(name, value) {
    if (value === undefined) this.values.delete(name);
    else this.values.set(name, value);
  }

  #readAll() {
    this.values.clear();
    keptNames(this.#prefix).forEach((name) => this.#read(name));
  }
}
