// The values of all or one memory at one moment, as an object and as a file that people can read and compare:
//
//   { "snapshot": 1, "device": name, "taken": ISO time, "memories": { memory: { variable: value } } }
//
// A value is the text that the service prints, an object of members, a list of such objects, or null where the service
// could not print it.

import { Kept } from "./remember.js";

const VERSION = 1;

const kept = new Kept("console.snapshot", null);
const saved = new Kept("console.snapshot-saved", true);

// The snapshot that the pages of this browser work with, or null. It survives a reload.
export const keptSnapshot = () => kept.value;

// Whether a file has it.
export const isSnapshotSaved = () => saved.value;
// Whether it survives this page.
export const isSnapshotKept = () => kept.isKept;
export const markSnapshotSaved = () => saved.change(() => true);

export function keepSnapshot(snapshot, isSaved) {
  saved.change(() => isSaved);
  kept.change(() => snapshot);
}

// listener() is called when there is another snapshot, also of another page.
export const subscribeToSnapshot = (listener) => kept.subscribe(listener);

const valueOf = ({ kind, data, value }) => (kind === "unprintable" ? null : data ?? value);

// Takes the memory with the name, or all where it is "".
export function takeSnapshot(store, memory = "") {
  const memories = {};
  for (const variable of store.variables.values()) {
    if (memory !== "" && variable.memory !== memory) continue;
    (memories[variable.memory] ??= {})[variable.name] = valueOf(variable);
  }
  const device = store.variables.get("MemPersistent.ProductName")?.value ?? "";
  return { snapshot: VERSION, device, taken: new Date().toISOString(), memories };
}

// As text: a line for each variable, and for each element of a list.
export function snapshotText({ snapshot, device, taken, memories }) {
  const variableText = ([name, value]) => `   ${JSON.stringify(name)}: ${Array.isArray(value)
    ? `[\n${value.map((item) => `    ${JSON.stringify(item)}`).join(",\n")}\n   ]` : JSON.stringify(value)}`;
  const memoryText = ([name, variables]) =>
    `  ${JSON.stringify(name)}: {\n${Object.entries(variables).map(variableText).join(",\n")}\n  }`;
  const heads = Object.entries({ snapshot, device, taken }).map(([name, value]) => ` ${JSON.stringify(name)}: ${JSON.stringify(value)},\n`);
  return `{\n${heads.join("")} "memories": {\n${Object.entries(memories).map(memoryText).join(",\n")}\n }\n}\n`;
}

// Reads such a text. Throws an Error with the reason in words.
export function readSnapshot(text) {
  let snapshot;
  try {
    snapshot = JSON.parse(text);
  } catch {
    throw new Error("it is not JSON");
  }
  if (snapshot?.snapshot !== VERSION) throw new Error("it is not a snapshot of this console");
  const isObject = (value) => value !== null && typeof value === "object" && !Array.isArray(value);
  if (!isObject(snapshot.memories) || !Object.values(snapshot.memories).every(isObject)) throw new Error("it has no memories");
  if (Number.isNaN(Date.parse(snapshot.taken))) throw new Error("it does not say when it was taken");
  return snapshot;
}

// The values that differ between two snapshots, in the order of the first: {memory, name, index, member, from, to}, where
// index and member are there for parts of lists and structures. What only one of them has is undefined in the other. Only
// the memory with the name is compared, or all where it is "".
export function differences(one, other, memory = "") {
  const found = [];
  for (const each of memory === "" ? union(one.memories, other.memories) : [memory]) {
    const [before, after] = [one.memories[each] ?? {}, other.memories[each] ?? {}];
    for (const name of union(before, after)) compare({ memory: each, name }, before[name], after[name], found);
  }
  return found;
}

function compare(place, from, to, found) {
  if (Object.is(from, to) || JSON.stringify(from) === JSON.stringify(to)) return;
  if (isParted(from) && isParted(to)) {
    const part = Array.isArray(from) ? (key) => ({ index: Number(key) }) : (key) => ({ member: key });
    for (const key of union(from, to)) compare({ ...place, ...part(key) }, from[key], to[key], found);
  } else {
    found.push({ ...place, from, to });
  }
}

const isParted = (value) => value !== null && typeof value === "object";
const union = (one, other) => new Set([...Object.keys(one), ...Object.keys(other)]);

// Whether a variable differs from the snapshot; also where the snapshot does not have its memory's variable.
export function differs(snapshot, variable) {
  const memory = snapshot.memories[variable.memory];
  return memory !== undefined && JSON.stringify(memory[variable.name]) !== JSON.stringify(valueOf(variable));
}

// MemLens.LensFileList[2].LensFileName
export const placeText = ({ memory, name, index, member }) =>
  `${memory}.${name}${index === undefined ? "" : `[${index}]`}${member === undefined ? "" : `.${member}`}`;

// What a store holds at the place of a difference.
export function valueAt(store, { memory, name, index, member }) {
  const variable = store.variables.get(`${memory}.${name}`);
  const value = variable && valueOf(variable);
  const item = index === undefined ? value : value?.[index];
  return member === undefined ? item : item?.[member];
}
