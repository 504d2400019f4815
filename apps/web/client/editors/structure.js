// The editor of structures: members in a table, with the present value and a field for the new one. Of a list it edits the
// element that is chosen from a table.

import { ask, element, setText } from "../dom.js";
import { assignMembers, memberForm } from "../model/assign.js";
import { memberText } from "../model/format.js";
import { elementPicker, heading } from "./elements.js";
import { Entry } from "./entry.js";
import { createField } from "./field.js";
import { frame } from "./frame.js";

export function structureEditor(app, variable) {
  const isList = variable.kind === "list";
  let index = 0;
  let members = [];
  const item = (at = index) => (isList ? variable.data[at] : variable.data) ?? {};
  const body = element("tbody");
  const table = element("table", { class: "members" },
    element("thead", {}, element("tr", {}, ...["Member", "Now", "Set to"].map(heading))), body);
  const show = () => {
    members = Object.entries(item()).map(([name, value]) => memberRow(app.catalogue, variable.type, name, value));
    body.replaceChildren(...members.map(({ row }) => row));
  };
  const touched = () => members.filter(({ entry }) => entry.isTouched);
  const choose = async (chosen) => {
    const names = touched().map(({ name }) => name).join(", ");
    if (names === "" || await ask(`Discard what is entered for element ${index}: ${names}?`, "Discard")) {
      index = chosen;
      show();
    }
    return index;
  };
  const update = () => {
    picker.update();
    members.forEach((member) => member.update(item()[member.name]));
  };
  const picker = isList ? elementPicker(variable, choose) : { nodes: [], update: () => {} };
  show();
  const capture = (at) => captured(app, variable, members.filter(({ entry }) => entry.isUnsent), at, () => item(at));
  const form = frame(variable, [...picker.nodes, element("div", { class: "scroll" }, table)], () => capture(index));
  return { form, update, isTouched: () => touched().length > 0 };
}

// What is entered for members at this moment, and how it is sent.
function captured(app, variable, members, index, item) {
  const entered = members.map(({ name, form, entry }) => ({ name, form, entry, text: entry.field.text }));
  entered.forEach(({ entry, text }) => { entry.sent = text; });
  const end = () => entered.filter(({ entry, text }) => entry.sent === text).forEach(({ entry }) => { entry.sent = null; });
  const act = () => store().finally(end);
  const confirm = async () => {
    const isMeant = await question();
    if (!isMeant) end();
    return isMeant;
  };
  const question = async () => {
    const changed = entered.filter(({ name, entry }) => item()[name] !== entry.base)
      .map(({ name, entry }) => `${name} from ${memberText(entry.base)} to ${memberText(item()[name])}`);
    return changed.length === 0 || ask(`Meanwhile changed: ${changed.join(", ")}. Set what is entered?`, "Set");
  };
  const store = async () => {
    if (entered.length === 0) return { ok: false, text: "nothing is changed" };
    const outcome = await assignMembers(app, variable, entered, index);
    entered.forEach(({ name, entry }) => entry.mark(outcome.wrong?.includes(name) ?? false));
    if (outcome.ok) entered.forEach(({ name, entry, text }) => entry.settle(text, item()[name]));
    return outcome;
  };
  return { entered: entered.map(({ name, text }) => `${name} ${text}`).join(", "), confirm, act };
}

// A row with the member's name, its present value and its field.
function memberRow(catalogue, structure, name, value) {
  const form = memberForm(catalogue, structure, name, value);
  const field = createField(form, value, { name, "aria-label": `New ${name}` });
  const entry = new Entry(field, value);
  const now = element("td", { class: "now" }, memberText(value));
  const row = element("tr", {}, element("th", { scope: "row" }, name), now, element("td", {}, field.node));
  const update = (latest) => {
    setText(now, memberText(latest));
    row.classList.toggle("behind", !entry.follow(latest));
  };
  return { name, form, entry, row, update };
}
