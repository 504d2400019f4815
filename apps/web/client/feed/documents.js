// Reads the documents of all.cgi and update.cgi. They may be no JSON: "ERROR": "reason" is in place of or behind a value
// that could not be printed, and an update may name a memory twice. Only names of memories and variables have a blank on
// both sides of their colon: there the text is cut, and what cannot be read costs its value only.

const BEGIN = "\"variables\": {";
const NAME = /"(\w+)" : /g;
const MEMORY_OPENS = /\{\s*"\w+" : /y;
// Braces behind the last value: of its memory, of "variables" and of the document.
const BRACES_AT_END = 3;

export class Unprintable {
  constructor(reason) {
    this.reason = reason;
  }
}

// Calls visit(memory, variable, text of the value) for each variable. Throws when the document is not whole.
export function readVariables(text, visit) {
  const begin = text.indexOf(BEGIN);
  if (begin < 0 || !/\}\s*\}\s*$/.test(text.slice(-16))) throw new Error("the document is not whole");
  NAME.lastIndex = begin + BEGIN.length;
  let memory = "";
  let name = null;
  let from = 0;
  for (let match = NAME.exec(text); match !== null; match = NAME.exec(text)) {
    MEMORY_OPENS.lastIndex = NAME.lastIndex;
    const isMemory = MEMORY_OPENS.test(text);
    if (name !== null) visit(memory, name, withoutEnd(text.slice(from, match.index), isMemory ? 1 : 0));
    from = NAME.lastIndex;
    name = isMemory ? null : match[1];
    memory = isMemory ? match[1] : memory;
  }
  if (name !== null) visit(memory, name, withoutEnd(text.slice(from), BRACES_AT_END));
}

// A value as JSON.parse gives it, or an Unprintable.
export function readValue(text) {
  try {
    return JSON.parse(text);
  } catch {
    return new Unprintable(/"ERROR": "([^]*?)"\s*(?:[,}\]]|$)/.exec(text)?.[1] ?? "not readable");
  }
}

function withoutEnd(text, braces) {
  let end = text.replace(/[\s,]+$/, "");
  for (let i = 0; i < braces; ++i) {
    end = end.replace(/\}$/, "").trimEnd();
  }
  return end;
}
