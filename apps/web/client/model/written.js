// What is sent for a text that a person enters, and what the service then prints for the value that it stores: floats have
// 32 bits and print as "%f", in structures with as few digits as tell them apart; ints are truncated, texts are cut at whole
// characters. The service's reader knows no escapes.

const INT_MIN = -2147483648;
const INT_MAX = 2147483647;

// A decimal number with a point or a comma, or NaN.
export function numberOf(text) {
  const plain = text.trim().replace(",", ".");
  return /^[-+]?(\d+\.?\d*|\.\d+)(e[-+]?\d+)?$/i.test(plain) ? Number(plain) : NaN;
}

// A number of 32 bits as printf("%f") prints it. toFixed() rounds halves up where C rounds them to even, and has an exponent
// from 1e21. Halves at the seventh decimal are odd multiples of 1/128.
export function floatText(number) {
  const value = Math.fround(number);
  if (Math.abs(value) >= 1e21) return `${BigInt(value)}.000000`;
  const text = value.toFixed(6);
  const isHalf = Math.abs(value * 128) % 2 === 1;
  return isHalf && Number(text.at(-1)) % 2 === 1 ? text.slice(0, -1) + (Number(text.at(-1)) - 1) : text;
}

// With as few digits as tell it from other numbers of 32 bits.
export function shortText(number) {
  const value = Math.fround(number);
  for (let digits = 1; ; ++digits) {
    const text = String(Number(value.toPrecision(digits)));
    if (Math.fround(Number(text)) === value) return text;
  }
}

export const bytesOf = (text) => new TextEncoder().encode(text).length;

// As many whole characters as fit into so many bytes of UTF-8.
export function cutText(text, bytes) {
  let cut = "";
  let size = 0;
  for (const character of text) {
    size += bytesOf(character);
    if (size > bytes) break;
    cut += character;
  }
  return cut;
}

// For a text that is entered for `form`, a variable or a member with its kind and length:
//
//   problem      why it is not sent; else
//   literal      what is sent
//   holds(value) whether a value, text or as JSON has it, is what the service stores for this
//   remark       how that differs from what was entered, or ""
export function write(form, text) {
  switch (form.kind) {
  case "bool": return plan(text, text);
  case "int": return writeInt(text);
  case "float": return writeFloat(form, text);
  case "buffer": return writeBuffer(form, text);
  case "enum": return plan(quoted(text), text);
  default: return writeText(form, text);
  }
}

const plan = (literal, printed, remark = "") => ({ literal, remark, holds: (value) => String(value) === printed });
const quoted = (text) => (text.includes("\"") ? `'${text}'` : `"${text}"`);
const isAsEntered = (text, printed) => !text.includes(",") && Number(text) === Number(printed);

function writeInt(text) {
  const number = Math.trunc(numberOf(text)) + 0;
  if (Number.isNaN(number)) return { problem: "a number is needed" };
  if (number < INT_MIN || number > INT_MAX) return { problem: `an int holds ${INT_MIN} to ${INT_MAX}` };
  const printed = String(number);
  return plan(printed, printed, isAsEntered(text, printed) ? "" : ` as ${printed}`);
}

// The number is rounded here: it is the same after each further rounding.
function writeFloat({ isMember }, text) {
  const number = Math.fround(numberOf(text));
  if (Number.isNaN(number)) return { problem: "a number is needed" };
  if (!Number.isFinite(number)) return { problem: "a float holds no more than 3.4e38" };
  const printed = isMember ? shortText(number) : floatText(number);
  const holds = (value) => (typeof value === "number" ? Math.fround(value) === number : value === printed);
  return { literal: String(number), holds, remark: isAsEntered(text, printed) ? "" : ` as ${printed}` };
}

function writeBuffer({ length }, text) {
  const digits = text.trim().toLowerCase();
  const bytes = digits.length / 2;
  if (!/^([0-9a-f]{2})+$/.test(digits)) return { problem: "pairs of hexadecimal digits are needed" };
  if (bytes > length) return { problem: `the buffer holds ${length} bytes, these are ${bytes}` };
  const remark = bytes < length ? ` in the first ${bytes} of ${length} bytes` : "";
  return { literal: quoted(digits), holds: (value) => value.startsWith(digits), remark };
}

// A text of a structure is refused where the text of a variable is cut.
function writeText({ length, isMember }, text) {
  const sent = text.toWellFormed();
  const problem = whyUnsendable(sent);
  const limit = length ? length - 1 : Infinity;
  if (problem) return { problem };
  if (isMember && bytesOf(sent) > limit) return { problem: `${limit} bytes fit, these are ${bytesOf(sent)}` };
  const stored = cutText(sent, limit);
  return plan(quoted(sent), stored, stored === text ? "" : `, cut to ${bytesOf(stored)} bytes: ${stored}`);
}

// The service's reader counts braces wherever they are.
function whyUnsendable(text) {
  if (text.includes("\"") && text.includes("'")) return "a text cannot be sent with both kinds of quotes";
  let depth = 0;
  for (const character of text) {
    depth += character === "{" ? 1 : character === "}" ? -1 : 0;
    if (depth < 0) break;
  }
  return depth === 0 ? "" : "a text cannot be sent with braces that do not match";
}
