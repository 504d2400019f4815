// Finds variables by what a person remembers of them.

import { valueText } from "./format.js";

// Less than this many hits, and looser ways to match are tried as well.
const ENOUGH = 3;
const TYPO_FROM_LENGTH = 4;
const STEM_FROM_LENGTH = 3;
// How much a match is worth by where it is: the whole name, its begin, a word of it, a word's begin, inside a word, in what
// the variable is for, in its memory or type, in its members, in its value.
const WORTH = { whole: 100, begin: 60, word: 55, wordBegin: 50, inside: 30, about: 25, type: 20, member: 15, value: 12 };
// With one typo in the name, its begin, or what the variable is for. A part of the name that is the word's short form
// ("Pos" for "position") is worth more the more of the word it has.
const LOOSE_WORTH = { begin: 24, name: 22, about: 10, short: 40, nearlyShort: 15 };

// Texts that go every way of the search: one character, a typo, several words, nothing that fits.
const WARM_UP = ["a", "voltge", "state motor", "adress network", "ge", "qqqqq", "long list"];

export const wordsOf = (text) => text.toLowerCase().split(/[\s.]+/).filter(Boolean);

// "CamNdFilterAct" as cam, nd, filter, act.
const partsOf = (name) => name.replace(/([a-z\d])([A-Z])|([A-Z])(?=[A-Z][a-z])/g, "$1$3 $2").toLowerCase().split(/[\s_]+/);

// The variables by what is searched. `structures` are the catalogue's.
export class SearchIndex {
  #structures;
  #entries = new Map();
  #words = new Map();

  constructor(structures) {
    this.#structures = structures;
  }

  // The variables that fit the text, best first: all words somewhere; where few fit, also with one typo a word, and then
  // without one of the words. All variables in their order if the text holds no word.
  find(text, variables) {
    const words = this.#wordsOf(text);
    if (words.length === 0) return [...variables];
    const entries = Array.from(variables, (variable) => this.#entry(variable));
    const found = new Set(ranked(entries, words, (word, entry) => word.exactWorth(entry), 0).map(variableOf));
    if (found.size < ENOUGH) {
      const loose = ranked(entries, words, (word, entry) => word.looseWorth(entry), Math.min(words.length - 1, 1));
      loose.filter(({ missing }) => missing === 0).forEach((hit) => found.add(variableOf(hit)));
      if (found.size < ENOUGH) loose.filter(({ missing }) => missing === 1).forEach((hit) => found.add(variableOf(hit)));
    }
    return [...found];
  }

  // Prepares the search: the first keys are then as quick as the others, also because the browser has compiled it. Yields
  // between steps that are as long as a key at most.
  * learn(variables) {
    const all = [...variables];
    all.forEach((variable) => shownValue(this.#entry(variable)));
    for (const text of WARM_UP) {
      yield;
      this.find(text, all);
    }
  }

  // A key changes one word: what the others are worth is known from the text before.
  #wordsOf(text) {
    this.#words = new Map(wordsOf(text).map((word) => [word, this.#words.get(word) ?? new Word(word)]));
    return wordsOf(text).map((word) => this.#words.get(word));
  }

  #entry(variable) {
    const known = this.#entries.get(variable.key);
    if (known) return known;
    const { name, memory, about = "", type, entries = [] } = variable;
    const members = Object.keys(this.#structures[type] ?? {});
    const parts = partsOf(name);
    const entry = { at: this.#entries.size, variable, name: name.toLowerCase(), parts, begins: begins(parts),
      about: about.toLowerCase(), type: `${memory} ${type} ${entries.join(" ")}`.toLowerCase(), members: members.join(" ").toLowerCase() };
    this.#entries.set(variable.key, entry);
    return entry;
  }
}

const variableOf = ({ entry }) => entry.variable;

// Where in the name its words begin.
function begins(parts) {
  let at = 0;
  return new Set(parts.map((part) => (at += part.length) - part.length));
}

// The entries in which no more than so many of the words are missing, best first. Short names come first among equals.
function ranked(entries, words, worth, mostMissing) {
  const joined = words.map(({ text }) => text).join("");
  const hits = [];
  for (const entry of entries) {
    let [sum, missing] = [0, 0];
    for (const word of words) {
      const points = worth(word, entry);
      sum += points;
      if (points === 0) ++missing;
    }
    const asOne = words.length > 1 ? nameWorth(entry, joined) : 0;
    if (asOne > 0) missing = 0;
    const points = Math.max(sum / words.length, asOne) + 10 / entry.name.length;
    if (missing <= mostMissing) hits.push({ entry, missing, points });
  }
  return hits.sort((one, other) => other.points - one.points);
}

// A word that is searched for. Only the values of the variables change, so all else is looked at once.
class Word {
  #fixed = [];
  #loose = [];

  constructor(text) {
    this.text = text;
  }

  exactWorth(entry) {
    this.#fixed[entry.at] ??= fixedWorth(entry, this.text);
    return this.#fixed[entry.at] || (shownValue(entry).includes(this.text) ? WORTH.value : 0);
  }

  // As exactWorth(), and with one typo in the word, or a short form of it.
  looseWorth(entry) {
    const exact = this.exactWorth(entry);
    if (exact > 0 || this.text.length < TYPO_FROM_LENGTH) return exact;
    return this.#loose[entry.at] ??= this.#typoWorth(entry);
  }

  #typoWorth({ name, about, parts }) {
    const at = typoPlace(name, this.text);
    const inName = at === 0 ? LOOSE_WORTH.begin : LOOSE_WORTH.name;
    const typo = at >= 0 ? inName : typoPlace(about, this.text) >= 0 ? LOOSE_WORTH.about : 0;
    return parts.reduce((most, part) => Math.max(most, shortWorth(part, this.text)), typo);
  }
}

function fixedWorth(entry, word) {
  const inName = nameWorth(entry, word);
  if (inName > 0) return inName;
  if (isWordBegin(entry.about, word)) return WORTH.about;
  if (entry.type.includes(word)) return WORTH.type;
  return entry.members.includes(word) ? WORTH.member : 0;
}

// "files" is found in LensFileList, too.
function nameWorth(entry, word) {
  const singular = word.length > TYPO_FROM_LENGTH && word.endsWith("s") ? placeWorth(entry, word.slice(0, -1)) : 0;
  return Math.max(placeWorth(entry, word), singular - 1);
}

function placeWorth({ name, parts, begins: starts }, word) {
  if (name === word) return WORTH.whole;
  const at = name.indexOf(word);
  if (at === 0) return parts[0] === word ? WORTH.begin + 5 : WORTH.begin;
  if (parts.includes(word)) return WORTH.word;
  for (let next = at; next > 0; next = name.indexOf(word, next + 1)) {
    if (starts.has(next)) return WORTH.wordBegin;
  }
  return at > 0 ? WORTH.inside : 0;
}

function isWordBegin(text, word) {
  for (let at = text.indexOf(word); at >= 0; at = text.indexOf(word, at + 1)) {
    if (at === 0 || /\W/.test(text[at - 1])) return true;
  }
  return false;
}

function shownValue(entry) {
  if (entry.raw !== entry.variable.raw) {
    entry.raw = entry.variable.raw;
    entry.value = valueText(entry.variable).toLowerCase();
  }
  return entry.value;
}

function shortWorth(part, word) {
  if (part.length < STEM_FROM_LENGTH) return 0;
  if (word.startsWith(part)) return LOOSE_WORTH.short * part.length / word.length;
  const isAlike = part.length > STEM_FROM_LENGTH && part[0] === word[0];
  const isNearly = isAlike && [-1, 0, 1].some((more) => isNear(part, word.slice(0, part.length + more)));
  return isNearly ? LOOSE_WORTH.nearlyShort : 0;
}

// Whether the texts differ by at most one character that is wrong, missing, too much, or swapped with the next.
function isNear(one, other) {
  let at = 0;
  while (at < one.length && one[at] === other[at]) ++at;
  const isSwapped = one[at] === other[at + 1] && one[at + 1] === other[at] && one.slice(at + 2) === other.slice(at + 2);
  return isSwapped || one.slice(at + 1) === other.slice(at + 1) || one.slice(at) === other.slice(at + 1)
    || one.slice(at + 1) === other.slice(at);
}

// Where a text has the word with one such typo, -1 for nowhere. A typo leaves one half of the word as it is, unless it swaps
// the two characters in the middle: few places need a closer look.
function typoPlace(text, word) {
  const middle = word.length >> 1;
  const [first, second] = [word.slice(0, middle), word.slice(middle)];
  for (let at = text.indexOf(first); at >= 0; at = text.indexOf(first, at + 1)) {
    if (isNearAt(text, at, word)) return at;
  }
  for (let at = text.indexOf(second); at >= 0; at = text.indexOf(second, at + 1)) {
    const begin = [middle, middle + 1, middle - 1].find((before) => before <= at && isNearAt(text, at - before, word));
    if (begin !== undefined) return at - begin;
  }
  return text.indexOf(word.slice(0, middle - 1) + word[middle] + word[middle - 1] + word.slice(middle + 1));
}

// Whether the text goes on there with the word, with at most one such typo.
function isNearAt(text, from, word) {
  let i = 0;
  while (i < word.length && text[from + i] === word[i]) ++i;
  const [at, after] = [from + i, word.slice(i + 1)];
  return text.startsWith(after, at + 1) || text.startsWith(after, at) || text.startsWith(word[i] + after, at + 1)
    || text[at] === word[i + 1] && text[at + 1] === word[i] && text.startsWith(word.slice(i + 2), at + 2);
}
