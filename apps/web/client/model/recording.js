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
    if (!Number.isFinite(value) || (this.member && value === this.last)) return;
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

  // Times and values from `from` to `to`: with the value that held before, and the last one held until the end.
  between(from, to) {
    const begin = Math.max(firstBehind(this.times, from) - 1, 0);
    const end = firstBehind(this.times, to);
    const times = this.times.slice(begin, end);
    const values = this.values.slice(begin, end);
    if (times.length > 0) {
      times.push(to);
      values.push(values.at(-1));
    }
    return [times, values];
  }

  // The value that held at a time; undefined before the first.
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

// All recordings as one table: a row for each time at which one of them changed, with what held then.
export function asCsv(recordings) {
  const times = [...new Set(recordings.flatMap((recording) => recording.times))].sort((a, b) => a - b);
  const rows = times.map((time) => [new Date(time * 1000).toISOString(),
    ...recordings.map((recording) => recording.at(time) ?? "")].join(","));
  return [["time", ...recordings.map((recording) => recording.name)].join(","), ...rows, ""].join("\r\n");
}
