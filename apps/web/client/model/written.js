// What is sent for a text that a person enters, and what the service then prints for the value that it stores: floats have
// 32 bits and print as "%f", in structures with as few digits as tell them apart. Version 1 of the API truncates ints, cuts
// texts at whole characters and knows no escapes. Version 2 takes a value as it is, or refuses it.

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
//   literal      what is sent by version 1
//   value        what is sent by version 2, for which `isTyped` is true
//   holds(value) whether a value, text or as JSON has it, is what the service stores for this
//   remark       how that differs from what was entered, or ""
export function write(form, text, isTyped = false) {
  switch (form.kind) {
  case "bool": return plan(text, text, "", text === "true");
  case "int": return writeInt(text, isTyped);
  case "float": return writeFloat(form, text);
  case "buffer": return writeBuffer(form, text);
  case "enum": return plan(quoted(text), text);
  default: return writeText(form, text, isTyped);
  }
}

const plan = (literal, printed, remark = "", value = printed) =>
  ({ literal, value, remark, holds: (present) => String(present) === printed });
const quoted = (text) => (text.includes("\"") ? `'${text}'` : `"${text}"`);
const isAsEntered = (text, printed) => !text.includes(",") && Number(text) === Number(printed);

function writeInt(text, isTyped) {
  const entered = numberOf(text);
  const number = (isTyped ? entered : Math.trunc(entered)) + 0;
  if (Number.isNaN(number)) return { problem: "a number is needed" };
  if (number < INT_MIN || number > INT_MAX) return { problem: `an int holds ${INT_MIN} to ${INT_MAX}` };
  const printed = String(number);
  return plan(printed, printed, isAsEntered(text, printed) ? "" : ` as ${printed}`, number);
}

// The number is rounded here: it is the same after each further rounding.
function writeFloat({ isMember }, text) {
  const number = Math.fround(numberOf(text));
  if (Number.isNaN(number)) return { problem: "a number is needed" };
  if (!Number.isFinite(number)) return { problem: "a float holds no more than 3.4e38" };
  const printed = isMember ? shortText(number) : floatText(number);
  const holds = (value) => (typeof value === "number" ? Math.fround(value) === number : value === printed);
  const remark = isAsEntered(text, printed) ? "" : ` as ${printed}`;
  return { literal: String(number), value: Number(shortText(number)), holds, remark };
}

function writeBuffer({ length }, text) {
  const digits = text.trim().toLowerCase();
  const bytes = digits.length / 2;
  if (!/^([0-9a-f]{2})+$/.test(digits)) return { problem: "pairs of hexadecimal digits are needed" };
  if (bytes > length) return { problem: `the buffer holds ${length} bytes, these are ${bytes}` };
  const remark = bytes < length ? ` in the first ${bytes} of ${length} bytes` : "";
  return { literal: quoted(digits), value: digits, holds: (value) => value.startsWith(digits), remark };
}

function writeText(form, text, isTyped) {
  const sent = text.toWellFormed();
  if (isTyped) return plan("", sent, sent === text ? "" : ` as ${sent}`);
  const problem = whyUnsendable(form, sent);
  if (problem) return { problem };
  const stored = cutText(sent, mostBytes(form));
  return plan(quoted(sent), stored, stored === text ? "" : `, cut to ${bytesOf(stored)} bytes: ${stored}`);
}

const mostBytes = ({ length }) => (length ? length - 1 : Infinity);

// Version 1 counts braces wherever they are. It refuses a text of a structure where it cuts the text of a variable.
function whyUnsendable(form, text) {
  if (text.includes("\"") && text.includes("'")) return "a text cannot be sent with both kinds of quotes";
  if (text.includes("\0")) return "a text cannot be sent with zero characters";
  let depth = 0;
  for (const character of text) {
    depth += character === "{" ? 1 : character === "}" ? -1 : 0;
    if (depth < 0) break;
  }
  if (depth !== 0) return "a text cannot be sent with braces that do not match";
  const isCut = form.isMember && bytesOf(text) > mostBytes(form);
  return isCut ? `${mostBytes(form)} bytes fit, these are ${bytesOf(text)}` : "";
}
