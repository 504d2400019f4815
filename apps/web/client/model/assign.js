// Sets a variable and finds out what the service has made of it: set.cgi answers result 1 also where it refuses.

import { RequestError, set } from "../feed/api.js";
import { bounds } from "./format.js";
import { write } from "./written.js";

// The service reports a change within its 100 ms; when none comes, the tree is read.
const REPORTED_WITHIN_MS = 300;

const done = (text) => ({ ok: true, text });
const failed = (text) => ({ ok: false, text });

// Sets a variable of a base type to a text. Resolves to {ok, text, later}: what has happened, in words; where that is
// unknown, `later` resolves to words when the value is seen after all.
export async function assign(app, variable, text) {
  const { problem, literal, holds, remark } = write(variable, text);
  if (problem) return failed(`not sent: ${problem}`);
  const body = `{"${variable.memory}": {"${variable.name}": ${literal}}}`;
  return send(app, variable, body, {
    isStored: () => variable.kind !== "unprintable" && holds(variable.value),
    stored: `stored${remark}`,
    refused: () => (isOutside(variable, literal) ? `refused: ${bounds(variable)}` : "refused by the device"),
    now: () => `it holds ${variable.value}`,
  });
}

// Sets members of a structure, a list of {name, form, text}; of a list, those of the element with the index.
export async function assignMembers(app, variable, members, index) {
  const plans = members.map(({ name, form, text }) => ({ name, ...write({ ...form, isMember: true }, text) }));
  const problems = plans.filter(({ problem }) => problem).map(({ name, problem }) => `${name}: ${problem}`);
  if (problems.length > 0) return failed(`not sent: ${problems.join("; ")}`);
  const place = variable.kind === "list" ? [`"Index": ${index}`] : [];
  const pairs = [...place, ...plans.map(({ name, literal }) => `"${name}": ${literal}`)];
  const body = `{"${variable.memory}": {"${variable.name}": {${pairs.join(", ")}}}}`;
  const item = () => (variable.kind === "list" ? variable.data?.[index] : variable.data) ?? {};
  const others = () => plans.filter(({ name, holds }) => !holds(item()[name])).map(({ name }) => name);
  const remarks = plans.filter(({ remark }) => remark).map(({ name, remark }) => `; ${name}${remark}`);
  return send(app, variable, body, {
    isStored: () => others().length === 0,
    stored: `stored${remarks.join("")}`,
    refused: () => `refused by the device: ${others().join(", ")}`,
    now: () => others().map((name) => `${name} is ${item()[name]}`).join(", "),
  });
}

// The kind and length of a member, as createField() and assignMembers() take them.
export function memberForm(catalogue, structure, name, value) {
  const known = catalogue.structures[structure]?.[name];
  const entries = catalogue.enumerations[known?.type];
  if (entries) return { kind: "enum", entries };
  const kind = { boolean: "bool", number: "float", object: "float" }[typeof value] ?? "string";
  return { kind: known?.type === "int" ? "int" : kind, length: known?.length };
}

async function send(app, variable, body, wish) {
  const watch = watchFor(app.store, variable, wish.isStored);
  try {
    const answer = await set(body);
    if (answer.result !== 1) return failed(`refused: ${answer.error.trim() || "the service cannot take this"}`);
    const isKnown = await watch.seen(REPORTED_WITHIN_MS) || await app.readBack();
    return isKnown ? outcome(variable, watch, wish) : unknown(app, variable, wish, "reading it back failed");
  } catch (error) {
    if (!(error instanceof RequestError)) throw error;
    return error.isRefusal ? failed(`not sent: ${error.message}`) : unknown(app, variable, wish, error.message);
  } finally {
    watch.end();
  }
}

function outcome(variable, watch, wish) {
  if (wish.isStored()) return done(wish.stored);
  if (watch.hasSeen) return done(`${wish.stored}; changed since: ${wish.now()}`);
  if (!watch.hasChanged) return failed(wish.refused());
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
