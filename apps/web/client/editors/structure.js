// The editor of structures: members in a table, with the present value and a field for the new one. Of a list it edits the
// element that is chosen from a table.

import { element, setText } from "../dom.js";
import { assignMembers } from "../model/assign.js";
import { memberText } from "../model/format.js";
import { elementPicker, heading } from "./elements.js";
import { createField } from "./field.js";
import { frame } from "./frame.js";

export function structureEditor(app, variable) {
  const isList = variable.kind === "list";
  let index = 0;
  let fields = new Map();
  const item = () => (isList ? variable.data[index] : variable.data) ?? {};
  const members = element("tbody");
  const table = element("table", { class: "members" },
    element("thead", {}, element("tr", {}, ...["Member", "Now", "Set to"].map(heading))), members);
  const show = () => {
    fields = fillMembers(app, variable, item(), members);
  };
  const picker = isList ? elementPicker(variable, (chosen) => {
    index = chosen;
    show();
  }) : { nodes: [], update: () => {} };
  show();
  const form = frame(variable, [...picker.nodes, element("div", { class: "scroll" }, table)], async () => {
    const { wanted, why } = changedMembers(item(), fields);
    if (why || Object.keys(wanted).length === 0) return { ok: false, text: why || "nothing is changed" };
    fields.forEach((each) => { each.before = each.field.text; });
    return assignMembers(app, variable, wanted, index);
  });
  const update = () => {
    picker.update();
    fields.forEach(({ now }, name) => setText(now, memberText(item()[name])));
  };
  return { form, update };
}

// Fills the rows and returns by member its field, the cell that shows its present value, and the text it began with.
function fillMembers(app, variable, item, body) {
  const fields = new Map();
  body.replaceChildren(...Object.entries(item).map(([name, value]) => {
    const now = element("td", { class: "now" }, memberText(value));
    const form = memberForm(app.catalogue, variable.type, name, value);
    const field = createField(form, value, { name, "aria-label": `New ${name}` });
    fields.set(name, { field, now, before: field.text });
    return element("tr", {}, element("th", { scope: "row" }, name), now, element("td", {}, field.node));
  }));
  return fields;
}

function memberForm(catalogue, structure, name, value) {
  const known = catalogue.structures[structure]?.[name];
  const entries = catalogue.enumerations[known?.type];
  if (entries) return { kind: "enum", entries };
  const kind = { boolean: "bool", number: known?.type === "int" ? "int" : "float" }[typeof value] ?? "string";
  return { kind, length: known?.length };
}

// What was edited, as JSON has it, or why that cannot be sent.
function changedMembers(item, fields) {
  const wanted = {};
  for (const [name, { field, before }] of fields) {
    const { text } = field;
    if (text === before) continue;
    const problem = field.problem();
    if (problem) return { wanted, why: `${name}: ${problem}` };
    const type = typeof item[name];
    wanted[name] = type === "number" ? Number(text) : type === "boolean" ? text === "true" : text;
  }
  return { wanted };
}
