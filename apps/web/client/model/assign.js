// Sets a variable and finds out what the device has made of it: by version 2 of the API, which says why it refuses a value,
// where the controller has it. set.cgi of version 1 answers result 1 also where it refuses.

import { patch, RequestError, set } from "../feed/api.js";
import { bounds } from "./format.js";
import { write } from "./written.js";

// The service reports a change within its 100 ms; when none comes, the tree is read.
const REPORTED_WITHIN_MS = 300;

const done = (text) => ({ ok: true, text });
const failed = (text, wrong = []) => ({ ok: false, text, wrong });

// Sets a variable of a base type to a text. Resolves to {ok, text, wrong, later}: what has happened, in words, and the names
// whose values are refused; where it is unknown, `later` resolves to words when the value is seen after all.
export function assign(app, variable, text) {
  return byEither(app, (isTyped) => {
    const { problem, literal, value, holds, remark } = write(variable, text, isTyped);
    if (problem) return failed(`not sent: ${problem}`, [variable.name]);
    const body = `{"${variable.memory}": {"${variable.name}": ${literal}}}`;
    return send(app, variable, isTyped ? () => patch(variable.key, value) : () => set(body), {
      isStored: (present = variable.value) => variable.kind !== "unprintable" && holds(present),
      stored: `stored${remark}`,
      refused: () => (isOutside(variable, value) ? `refused: ${bounds(variable)}` : "refused by the device"),
      now: () => `it holds ${variable.value}`,
      wrong: () => [variable.name],
    });
  });
}

// Sets members of a structure, a list of {name, form, text}; of a list, those of the element with the index.
export function assignMembers(app, variable, members, index) {
  return byEither(app, (isTyped) => {
    const plans = members.map(({ name, form, text }) => ({ name, ...write({ ...form, isMember: true }, text, isTyped) }));
    const wrong = plans.filter(({ problem }) => problem);
    if (wrong.length > 0) return failed(`not sent: ${wrong.map(({ name, problem }) => `${name}: ${problem}`).join("; ")}`, namesOf(wrong));
    const item = () => (variable.kind === "list" ? variable.data?.[index] : variable.data) ?? {};
    const others = (present = item()) => namesOf(plans.filter(({ name, holds }) => !holds(present[name])));
    const remarks = plans.filter(({ remark }) => remark).map(({ name, remark }) => `; ${name}${remark}`);
    return send(app, variable, () => (isTyped ? patchMembers : setMembers)(variable, plans, index), {
      isStored: (present) => others(present).length === 0,
      stored: `stored${remarks.join("")}`,
      refused: () => `refused by the device: ${others().join(", ")}`,
      now: () => others().map((name) => `${name} is ${item()[name]}`).join(", "),
      wrong: () => others(),
    });
  });
}

const namesOf = (plans) => plans.map(({ name }) => name);

function setMembers(variable, plans, index) {
  const place = variable.kind === "list" ? [`"Index": ${index}`] : [];
  const pairs = [...place, ...plans.map(({ name, literal }) => `"${name}": ${literal}`)];
  return set(`{"${variable.memory}": {"${variable.name}": {${pairs.join(", ")}}}}`);
}

function patchMembers(variable, plans, index) {
  const place = variable.kind === "list" ? `[${index}]` : "";
  return patch(variable.key + place, Object.fromEntries(plans.map(({ name, value }) => [name, value])));
}

// By version 2, or where that is not there by version 1. attempt(isTyped) resolves to null if it is not there.
async function byEither(app, attempt) {
  return app.connection.isTyped && await attempt(true) || attempt(false);
}

// The kind and length of a member, as createField() and assignMembers() take them.
export function memberForm(catalogue, structure, name, value) {
  const known = catalogue.structures[structure]?.[name];
  const entries = catalogue.enumerations[known?.type];
  if (entries) return { kind: "enum", entries };
  const kind = { boolean: "bool", number: "float", object: "float" }[typeof value] ?? "string";
  return { kind: known?.type === "int" ? "int" : kind, length: known?.length };
}

// `act` sends it: resolves to null, or as set() or patch() do.
async function send(app, variable, act, wish) {
  const watch = watchFor(app.store, variable, wish.isStored);
  try {
    const answer = await act();
    if (answer === null) return null;
    if (answer.errors) return refusal(variable, answer.errors);
    const words = answer.result === 0 ? withError(wish, answer.error) : wish;
    const isKnown = await watch.seen(REPORTED_WITHIN_MS) || await app.readBack();
    if (isKnown) return outcome(variable, watch, words);
    if (answer.stored !== undefined && wish.isStored(answer.stored)) return done(wish.stored);
    return unknown(app, variable, wish, "reading it back failed");
  } catch (error) {
    if (error.isRefusal) return failed(`not sent: ${error.message}`);
    if (watch.hasSeen) return outcome(variable, watch, wish);
    return unknown(app, variable, wish, error instanceof RequestError ? error.message : "the answer is not readable");
  } finally {
    watch.end();
  }
}

// An error says nothing about what is stored: without a broker the service stores, but cannot tell the other processes.
const withError = (wish, error) => ({ ...wish, stored: `${wish.stored}; the service reports an error`,
  refused: () => `refused: ${error.trim() || "the service cannot take this"}` });

// Each message begins with a name: the variable's is known where it is shown.
function refusal({ key }, errors) {
  const isOwn = new RegExp(`^${key}(\\[\\d+\\])?[.: ]+`);
  const [words, wrong] = ["message", "variable"].map((part) => errors.map((error) => error[part].replace(isOwn, "")));
  return failed(`refused: ${words.join("; ")}`, wrong.map((name) => name.split(".").at(-1)));
}

function outcome(variable, watch, wish) {
  if (wish.isStored()) return done(wish.stored);
  if (watch.hasSeen) return done(`${wish.stored}; changed since: ${wish.now()}`);
  if (!watch.hasChanged) return failed(wish.refused(), wish.wrong());
  if (variable.kind === "unprintable") return failed("it cannot be printed now");
  return failed(`changed by another process: ${wish.now()}`);
}

// The request may be stored at any time: what is on its way cannot be taken back.
function unknown(app, variable, wish, reason) {
  const watch = watchFor(app.store, variable, wish.isStored);
  const later = watch.seen().then(() => {
    watch.end();
    return done(wish.stored);
  });
  return { ...failed(`unknown: ${reason}; it may be stored later`), later };
}

// Notes changes of a variable until end(). seen(ms) resolves to whether an update brings the wanted value in time.
function watchFor(store, variable, isStored) {
  let report = () => {};
  const watch = { hasSeen: false, hasChanged: false };
  watch.end = store.subscribe((changed) => {
    if (!changed.has(variable)) return;
    watch.hasChanged = true;
    watch.hasSeen ||= isStored();
    if (watch.hasSeen) report(true);
  });
  watch.seen = (ms) => new Promise((resolve) => {
    report = resolve;
    if (watch.hasSeen) resolve(true);
    if (ms !== undefined) setTimeout(resolve, ms, false);
  });
  return watch;
}

const isOutside = ({ kind, min, max }, literal) =>
  (kind === "int" || kind === "float") && (Number(literal) < Number(min) || Number(literal) > Number(max));
