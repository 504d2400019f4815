// Values over time: what the Watch view draws and exports.

const KEPT_POINTS = 40000;
// Seconds between what is recorded and what comes next that are no gap.
const LONGEST_PAUSE = 3;

// What can be watched of the tree, by name: numbers, booleans and enumerations, and such members of structures. Maps the
// name to whether it is a state: a text that is drawn as a band.
export function seriesOf(store, catalogue) {
  const found = new Map();
  for (const { key, kind, type, data } of store.variables.values()) {
    if (["int", "float", "bool", "enum"].includes(kind)) found.set(key, kind === "bool" || kind === "enum");
    if (kind !== "structure") continue;
    for (const [name, value] of Object.entries(data)) {
      const isEnum = catalogue.structures[type]?.[name]?.type in catalogue.enumerations;
      if (typeof value !== "string" || isEnum) found.set(`${key}.${name}`, typeof value !== "number");
    }
  }
  return found;
}

// The values of one name and their times, seconds since 1970. A value of null is a gap.
export class Recording {
  times = [];
  values = [];
  hasHistory = false;

  constructor(store, name, isBand = false) {
    const [memory, variable, member] = name.split(".");
    Object.assign(this, { name, isBand, member, key: `${memory}.${variable}` });
    this.add(store);
  }

  // Takes the value of now.
  add(store) {
    const { kind, data, value } = store.variables.get(this.key) ?? {};
    const present = this.member ? data?.[this.member] : value;
    const taken = this.isBand ? String(present) : Number(present);
    const isKnown = this.isBand || Number.isFinite(taken);
    if (kind === "unprintable" || present !== undefined && !isKnown) this.addGap();
    else if (present !== undefined && taken !== this.last) this.#push(taken);
  }

  // From now on the value is not known.
  addGap() {
    if (this.times.length > 0 && this.last !== null) this.#push(null);
  }

  // Puts what was recorded before in front: {times, values, to}, known until the time `to`.
  addHistory({ times, values, to }) {
    this.hasHistory = true;
    const first = this.times[0] ?? Infinity;
    const count = times.findIndex((time) => time >= first);
    const end = count < 0 ? times.length : count;
    const gap = end > 0 && values[end - 1] !== null && to + LONGEST_PAUSE < first ? [to] : [];
    this.times.unshift(...times.slice(0, end), ...gap);
    this.values.unshift(...values.slice(0, end), ...gap.map(() => null));
  }

  #push(value) {
    this.times.push(Date.now() / 1000);
    this.values.push(value);
    if (this.times.length > KEPT_POINTS) {
      this.times.splice(0, KEPT_POINTS / 4);
      this.values.splice(0, KEPT_POINTS / 4);
    }
  }

  get last() {
    return this.values.at(-1);
  }

  // Times and values from `from` to `to`: it begins with the value that held at `from` and ends with the one that holds at
  // `to`. A value of null is a gap.
  between(from, to) {
    const begin = Math.max(firstBehind(this.times, from) - 1, 0);
    const end = firstBehind(this.times, to);
    const times = this.times.slice(begin, end);
    const values = this.values.slice(begin, end);
    if (times.length > 0) {
      times[0] = Math.max(times[0], from);
      times.push(Math.max(to, times.at(-1)));
      values.push(values.at(-1));
    }
    return [times, values];
  }

  // The value that held at a time; undefined before the first, null in a gap.
  at(time) {
    return this.values[firstBehind(this.times, time) - 1];
  }
}

// Index of the first time that is later.
function firstBehind(times, time) {
  let low = 0;
  let high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[middle] <= time) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

// All recordings as one table: a row for each time at which one of them changed, with what held then. Where a gap begins,
// the last column says so.
export function asCsv(recordings) {
  const times = [...new Set(recordings.flatMap((recording) => recording.times))].sort((a, b) => a - b);
  const rows = times.map((time) => {
    const values = recordings.map((recording) => recording.at(time));
    const note = values.includes(null) ? "not known" : "";
    return [new Date(time * 1000).toISOString(), ...values.map((value) => value ?? ""), note].join(",");
  });
  return [["time", ...recordings.map((recording) => recording.name), "note"].join(","), ...rows, ""].join("\r\n");
}
