// Values, types and bounds as people read them.

// Bounds beyond this stand for "none".
const NO_BOUND = 2147483647;
const SUMMARY_LENGTH = 90;

// "0 to 10", "at least 0", "at most 0.1", or "" where nothing limits the number.
export function bounds({ min, max }) {
  const hasMin = Number(min) > -NO_BOUND;
  const hasMax = Number(max) < NO_BOUND;
  if (hasMin && hasMax) return `${min} to ${max}`;
  return hasMin ? `at least ${min}` : hasMax ? `at most ${max}` : "";
}

// The type, for example "int, 0 to 10" or "LensFile, 100 elements".
export function typeText(variable) {
  switch (variable.kind) {
  case "int":
  case "float": return [variable.kind, bounds(variable)].filter(Boolean).join(", ");
  case "string": return variable.length ? `string, up to ${variable.length - 1} bytes` : "string";
  case "buffer": return `buffer, ${variable.length} ${variable.length === 1 ? "byte" : "bytes"}`;
  case "list": return `${variable.type}, ${variable.data.length} elements`;
  default: return variable.type;
  }
}

// One line for the value of a variable.
export function valueText(variable) {
  switch (variable.kind) {
  case "structure": return shortened(Object.values(variable.data).map(memberText));
  case "list": return listText(variable.data);
  case "unprintable": return `cannot be printed: ${variable.reason}`;
  default: return variable.value;
  }
}

export const memberText = (value) => (value !== null && typeof value === "object" ? "…" : String(value));

// Elements that hold a text come first to mind: their texts, or how many there are.
function listText(data) {
  if (data.length === 0) return "empty";
  const key = Object.keys(data[0]).find((name) => typeof data[0][name] === "string");
  const texts = data.map((item) => item[key]).filter((text) => text);
  return texts.length === 0 ? `${data.length} elements, no text in them` : shortened(texts);
}

function shortened(words) {
  let text = "";
  for (const word of words) {
    if (text.length + word.length > SUMMARY_LENGTH) return `${text} …`;
    text += (text === "" ? "" : " · ") + word;
  }
  return text;
}

// A text that is part of a sentence: one that runs from right to left leaves the order of the rest as it is.
export const apart = (text) => (/[\u0590-\u08ff\u202a-\u202e\ufb1d-\ufeff]/.test(text) ? `\u2068${text}\u2069` : text);

// 4265201664 as "4.27 GB".
export function sizeText(bytes) {
  const power = Math.min(Math.floor(Math.log10(Math.max(bytes, 1)) / 3), 3);
  return `${Number((bytes / 1000 ** power).toPrecision(3))} ${["B", "kB", "MB", "GB"][power]}`;
}

// 14:03:07, here.
export const clockText = (ms) => new Date(ms).toLocaleTimeString("en-GB");

// For names of files: 2026-03-14-094501, here.
export function timeStamp(time = new Date()) {
  const local = new Date(time - time.getTimezoneOffset() * 60000).toISOString();
  return local.slice(0, 19).replace("T", "-").replaceAll(":", "");
}
