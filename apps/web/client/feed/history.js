// What is recorded, in the browser's IndexedDB: the last 30 minutes. Where the browser keeps nothing, it is empty.
//
// A record is {session, to, series}: the recorder's run, the time until which its values are known (seconds since 1970), and
// the points since the record before, {name: [[time, value], ...]}, where null begins a gap.

const KEPT_S = 1800;

const done = (request) => new Promise((resolve, reject) => {
  request.onsuccess = () => resolve(request.result);
  request.onerror = () => reject(request.error);
});

async function openStore(mode) {
  const opening = indexedDB.open("console", 1);
  opening.onupgradeneeded = () => opening.result.createObjectStore("records", { autoIncrement: true }).createIndex("to", "to");
  const database = await done(opening);
  const transaction = database.transaction("records", mode);
  const end = () => database.close();
  Object.assign(transaction, { oncomplete: end, onabort: end });
  return transaction.objectStore("records");
}

// Adds a record and forgets those that are too old. Resolves to whether the browser keeps it: a full disk aborts the
// transaction at its end.
export async function writeRecord(record) {
  try {
    const store = await openStore("readwrite");
    const old = IDBKeyRange.upperBound(record.to - KEPT_S);
    const cursors = store.index("to").openCursor(old);
    cursors.onsuccess = () => {
      cursors.result?.delete();
      cursors.result?.continue();
    };
    store.add(record);
    return await new Promise((resolve) => {
      store.transaction.addEventListener("complete", () => resolve(true));
      store.transaction.addEventListener("abort", () => resolve(false));
    });
  } catch {
    return false;
  }
}

// The points of the names, Map of name to {times, values, to}, with a gap between two runs of the recorder.
export async function readHistory(names) {
  const found = new Map(names.map((name) => [name, { times: [], values: [], to: 0 }]));
  try {
    const store = await openStore("readonly");
    const records = await done(store.index("to").getAll(IDBKeyRange.lowerBound(Date.now() / 1000 - KEPT_S)));
    let before = null;
    for (const record of records) {
      if (before && before.session !== record.session) found.forEach((series) => add(series, [[before.to, null]]));
      found.forEach((series, name) => add(series, record.series[name] ?? []));
      found.forEach((series) => { series.to = record.to; });
      before = record;
    }
  } catch {
    // Private windows and full disks.
  }
  return found;
}

function add({ times, values }, points) {
  for (const [time, value] of points) {
    if (value === (values.at(-1) ?? null)) continue;
    times.push(time);
    values.push(value);
  }
}
