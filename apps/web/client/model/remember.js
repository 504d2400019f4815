// What the browser keeps over a reload. Where it may keep nothing, the page works without.

export function recall(key, otherwise) {
  try {
    return JSON.parse(localStorage.getItem(key)) ?? otherwise;
  } catch {
    return otherwise;
  }
}

export function remember(key, value) {
  try {
    localStorage.setItem(key, JSON.stringify(value));
  } catch {
    // Private windows and full disks.
  }
}
