// Changes as version 2 of the web API pushes them, in the form of version 1's updates, which all pages read.

import { request, RequestError } from "./api.js";

const API = "/api/v2";
const NAME = /[{,]"(\w+)\.(\w+)":/g;
const TYPE = /"type": ?"(\w+)"/;
const VALUE = /("value": ?)"(?:[^"\\]|\\.)*"/;
const ANSWERED_WITHIN_MS = 2500;
// From here on toFixed() writes an exponent.
const LARGE = 1e21;

// The number of the last change, or null where the controller has no version 2 or it does not answer. It is asked a second
// time when no answer comes: this machine may have stalled.
export async function lastChange(signal) {
  const first = await askLastChange(signal);
  return first === undefined ? await askLastChange(signal) ?? null : first;
}

// As lastChange(), but undefined where no answer comes in time.
async function askLastChange(signal) {
  const late = AbortSignal.timeout(ANSWERED_WITHIN_MS);
  try {
    const options = { method: "HEAD", signal: AbortSignal.any([signal, late]) };
    return (await request(`${API}/values?vars=ProductName`, options)).headers.get("Event-Sequence");
  } catch (error) {
    if (error instanceof RequestError && error.status > 0) return null;
    if (late.aborted && !signal.aborted) return undefined;
    throw error;
  }
}

// Resolves to all changes behind the number `since`, each as the text of an object of names and values, until the stream
// ends; to null where the controller has no place for another stream.
export async function changesSince(since, signal) {
  try {
    return textsOf(await request(`${API}/events?since=${since}`, { signal }));
  } catch (error) {
    if (error.status === 503) return null;
    throw error;
  }
}

async function* textsOf(answer) {
  const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
  let text = "";
  for (let piece = await reader.read(); !piece.done; piece = await reader.read()) {
    const lines = (text + piece.value).split("\n");
    text = lines.pop();
    for (const line of lines) {
      if (line.startsWith("data: ")) yield line.slice("data: ".length);
    }
  }
}

// The changes as a document of update.cgi. `known` has the text of each variable's value in the tree, by its name: type and
// bounds are from there. Returns null for what only the tree can tell, such as numbers that are not finite.
export function updateText(changes, known) {
  const memories = {};
  const names = [...changes.matchAll(NAME)];
  for (const [at, { 0: { length }, 1: memory, 2: variable, index }] of names.entries()) {
    const plain = changes.slice(index + length, names[at + 1]?.index ?? -1);
    const text = valueText(plain, known.get(`${memory}.${variable}`) ?? "");
    if (text === null) return null;
    (memories[memory] ??= []).push(`"${variable}" : ${text}`);
  }
  const parts = Object.entries(memories).map(([memory, values]) => `"${memory}" : {${values.join(",")}}`);
  return `{"variables": {${parts.join(",")}}}`;
}

// Structures have the same form in both versions. The texts are those of the tree byte by byte, because equal texts are
// equal values to the pages.
function valueText(plain, before) {
  if (/^[[{]/.test(plain)) return plain;
  if (plain === "null" || !VALUE.test(before)) return null;
  const text = TYPE.exec(before)[1] === "float" ? sixDecimals(Number(plain)) : plain;
  return before.replace(VALUE, (_, name) => name + (plain.startsWith("\"") ? plain : `"${text}"`));
}

// As the service prints floats: what is just between two numbers becomes the even one.
function sixDecimals(value) {
  const float = Math.fround(value);
  if (Math.abs(float) >= LARGE) return `${BigInt(float)}.000000`;
  const millionths = Math.abs(float) * 1e6;
  const isTieBelowOdd = millionths % 1 === 0.5 && Math.floor(millionths) % 2 === 0;
  return (isTieBelowOdd ? float - Math.sign(float) * 1e-7 : float).toFixed(6);
}
