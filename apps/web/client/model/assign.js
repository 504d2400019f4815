// Sets a variable and finds out what has become of it: set.cgi answers result 1 also where it refused.

import { RequestError, set } from "../feed/api.js";
import { bounds } from "./format.js";

// The service tells a change within its 100 ms; what comes later is on a slow way, and then the tree is asked.
const TOLD_WITHIN_MS = 300;

// Sets a variable of a base type to a text. Resolves to what has happened, in words, with `ok`.
export async function assign(app, variable, text) {
  const before = variable.raw;
  const body = `{"${variable.memory}": {"${variable.name}": ${written(variable.kind, text)}}}`;
  return outcome(app, variable, body, {
    isStored: () => isEqual(variable.kind, variable.value, text),
    describe: () => describe(variable, text, variable.raw !== before),
  });
}

// Sets members of a structure, {name: value} with the values as JSON has them; of a list, those of one element.
export async function assignMembers(app, variable, members, index) {
  const pairs = Object.entries(members)
    .map(([name, value]) => `"${name}": ${written(typeof value === "string" ? "string" : "int", String(value))}`);
  const place = variable.kind === "list" ? [`"Index": ${index}`] : [];
  const body = `{"${variable.memory}": {"${variable.name}": {${[...place, ...pairs].join(", ")}}}}`;
  const isTaken = ([name, value]) => {
    const item = variable.kind === "list" ? variable.data[index] : variable.data;
    return typeof value === "number" ? isEqual("float", item?.[name], value) : item?.[name] === value;
  };
  const refused = () => Object.entries(members).filter((member) => !isTaken(member)).map(([name]) => name);
  return outcome(app, variable, body, {
    isStored: () => refused().length === 0,
    describe: () => ({ ok: false, text: `not stored: ${refused().join(", ")}` }),
  });
}

async function outcome(app, variable, body, { isStored, describe: explain }) {
  try {
    const answer = await set(body);
    if (answer.result !== 1) {
      return { ok: false, text: `refused: ${answer.error.trim() || "the service cannot take this"}` };
    }
    if (!await isTold(app.store, variable, isStored) && !await app.readBack()) {
      return { ok: false, text: "sent, but reading it back failed" };
    }
  } catch (error) {
    if (error instanceof RequestError) return { ok: false, text: `not sent: ${error.message}` };
    throw error;
  }
  return isStored() ? { ok: true, text: "stored" } : explain();
}

// Whether an update brings the value in time.
function isTold(store, variable, isStored) {
  return new Promise((resolve) => {
    const end = (told) => {
      clearTimeout(timer);
      stop();
      resolve(told);
    };
    const timer = setTimeout(end, TOLD_WITHIN_MS, false);
    const stop = store.subscribe((changed) => changed.has(variable) && isStored() && end(true));
  });
}

function describe(variable, text, hasChanged) {
  const { kind, value, min, max } = variable;
  const isNumber = kind === "int" || kind === "float";
  if (isNumber && (Number(text) < Number(min) || Number(text) > Number(max))) {
    return { ok: false, text: `refused, ${bounds(variable)}` };
  }
  if (kind === "string" && value !== "" && text.startsWith(value)) {
    return { ok: true, text: `stored, cut to ${value.length} characters` };
  }
  if (!hasChanged) return { ok: false, text: "refused by the device" };
  if (kind === "unprintable") return { ok: false, text: "stored, and cannot be printed now" };
  return { ok: true, text: `stored; now ${value}` };
}

// The service prints floats with six decimals and holds them with 32 bits.
function isEqual(kind, value, text) {
  if (kind === "int") return Number(value) === Number(text);
  if (kind === "float") {
    const wanted = Math.fround(Number(text));
    return Math.abs(Number(value) - wanted) <= Math.max(1e-6, Math.abs(wanted) * 1e-5);
  }
  return kind === "buffer" ? value.startsWith(text.toLowerCase()) : value === text;
}

// The value as the service's reader takes it. It knows no escapes: a text ends at the next quote of its own kind.
function written(kind, text) {
  if (kind === "int" || kind === "float" || kind === "bool") {
    return kind === "bool" || typeof text !== "string" ? text : plainNumber(text);
  }
  return text.includes("\"") ? `'${text}'` : `"${text}"`;
}

// Why a text cannot be sent, or "". Braces are counted wherever they stand, so they have to match.
export function whyUnsendable(text) {
  if (text.includes("\"") && text.includes("'")) return "cannot be sent: it holds both kinds of quotes";
  let depth = 0;
  for (const character of text) {
    depth += character === "{" ? 1 : character === "}" ? -1 : 0;
    if (depth < 0) break;
  }
  return depth === 0 ? "" : "cannot be sent: braces have to match";
}

// 010 would be octal.
const plainNumber = (text) => (Number.isFinite(Number(text)) && text.trim() !== "" ? String(Number(text)) : text);
