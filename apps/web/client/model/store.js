// The tree of variables as this page knows it.

import { readValue, readVariables, Unprintable } from "../feed/documents.js";

const BASE_KINDS = ["bool", "int", "float", "string"];

// Holds every variable by its key "Memory.Variable": key, memory, name, and
//
//   kind    bool, int, float, enum, string, buffer, structure, list or unprintable
//   type    name of the type
//   raw     text of the value in the document: equal means unchanged
//   value   the value as text;  data: members of a structure, elements of a list
//   min, max, entries, length, about, reason: where they are known
//   changedAt  when a change was last seen, in milliseconds;  isChangedBefore: it came at some time since the last
//              answer, which the tree shows;  changes: how many were seen
export class Store {
  #catalogue;
  #listeners = new Set();

  constructor(catalogue) {
    this.#catalogue = catalogue;
    this.variables = new Map();
  }

  // listener(changed, isNew) gets the variables that differ from what was known, and whether any of them is new.
  // Returns a function that ends it.
  subscribe(listener) {
    this.#listeners.add(listener);
    return () => this.#listeners.delete(listener);
  }

  // Takes a document of all.cgi (the whole tree) or update.cgi. Throws when it is not whole. The variables have the order of
  // the tree: updates before it are left out, since it is read after them.
  apply(text, isTree = false) {
    if (!isTree && this.variables.size === 0) return;
    const changed = new Set();
    const variables = isTree ? new Map() : this.variables;
    let isNew = false;
    readVariables(text, (memory, name, raw) => {
      const key = `${memory}.${name}`;
      const known = this.variables.get(key);
      const variable = known ?? { key, memory, name, ...this.#catalogue.variables[key] };
      variables.set(key, variable);
      if (known?.raw === raw) return;
      isNew ||= !known;
      if (known) Object.assign(known, { changedAt: Date.now(), isChangedBefore: isTree, changes: (known.changes ?? 0) + 1 });
      read(variable, raw);
      changed.add(variable);
    });
    this.variables = variables;
    if (changed.size > 0) this.#listeners.forEach((listener) => listener(changed, isNew));
  }
}

function read(variable, raw) {
  const parsed = readValue(raw);
  variable.raw = raw;
  if (parsed instanceof Unprintable) {
    Object.assign(variable, { kind: "unprintable", type: variable.type ?? "unknown", reason: parsed.reason, value: "" });
  } else if (Array.isArray(parsed)) {
    Object.assign(variable, { kind: "list", type: variable.type ?? "structure", data: parsed });
  } else if (typeof parsed.value !== "string" || typeof parsed.type !== "string") {
    Object.assign(variable, { kind: "structure", type: variable.type ?? "structure", data: parsed });
  } else {
    readBase(variable, parsed);
  }
}

// Buffers are printed as strings: only the catalogue tells them apart.
function readBase(variable, parsed) {
  const isBuffer = variable.type === "buffer";
  const isEnum = !BASE_KINDS.includes(parsed.type);
  Object.assign(variable, {
    kind: isBuffer ? "buffer" : isEnum ? "enum" : parsed.type,
    type: isBuffer ? "buffer" : parsed.type,
    value: parsed.value,
    entries: parsed.textid,
    min: parsed.min,
    max: parsed.max,
  });
}
