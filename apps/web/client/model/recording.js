// Numbers over time: what the Watch view draws and exports.

const KEPT_POINTS = 40000;

// The numbers of the tree by name: variables, and members of structures.
export function numbersOf(store) {
  const names = [];
  for (const { key, kind, data } of store.variables.values()) {
    if (kind === "int" || kind === "float") {
      names.push(key);
    } else if (kind === "structure") {
      const members = Object.keys(data).filter((name) => typeof data[name] === "number");
      names.push(...members.map((name) => `${key}.${name}`));
    }
  }
  return names;
}

// One number's values and their times, seconds since 1970.
export class Recording {
  times = [];
  values = [];

  constructor(store, name) {
    const [memory, variable, member] = name.split(".");
    this.name = name;
    this.key = `${memory}.${variable}`;
    this.member = member;
    this.add(store);
  }

  // Takes the value of now.
  add(store) {
    const variable = store.variables.get(this.key);
    const value = Number(this.member ? variable?.data?.[this.member] : variable?.value);
    if (Number.isFinite(value) && !(this.member && value === this.last)) this.#push(value);
  }

  // From now on the value is not known.
  addGap() {
    if (this.times.length > 0 && this.last !== null) this.#push(null);
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
    const note = values.includes(null) ? "no connection" : "";
    return [new Date(time * 1000).toISOString(), ...values.map((value) => value ?? ""), note].join(",");
  });
  return [["time", ...recordings.map((recording) => recording.name), "note"].join(","), ...rows, ""].join("\r\n");
}
