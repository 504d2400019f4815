// What is open and what is asked for in it, in the address's fragment: #variables?search=lens&only=changed

export function readAddress() {
  const [view, query = ""] = location.hash.slice(1).split("?");
  return { view, params: Object.fromEntries(new URLSearchParams(query)) };
}

// The fragment for it; empty parameters are left out.
export function addressOf(view, params) {
  const query = new URLSearchParams(Object.entries(params).filter(([, value]) => value !== ""));
  return `#${view}${query.size > 0 ? `?${query}` : ""}`;
}

// Writes it without a new entry in the browser's history.
export function writeAddress(view, params) {
  const hash = addressOf(view, params);
  if (location.hash !== hash) history.replaceState(null, "", hash);
}
