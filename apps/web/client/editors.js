// The forms that set a variable: one fitting input for each type, and the outcome beside it.

import { assign, assignMembers, whyUnsendable } from "./assign.js";
import { element, setText } from "./dom.js";
import { memberText, typeText } from "./format.js";

const ROWS_AT_ONCE = 20;

// A form that sets the variable. `update()` of the result brings in what has changed meanwhile.
export function createEditor(app, variable) {
  const isPlain = variable.kind !== "structure" && variable.kind !== "list";
  return isPlain ? plainEditor(app, variable) : structureEditor(app, variable);
}

// The frame of all editors: on submit act() does it, and resolves to {ok, text}.
function frame({ name }, content, act) {
  const outcome = element("output", { class: "outcome", role: "status" });
  const submit = element("button", { type: "submit", class: "primary" }, "Set");
  // The service decides what is in range, and the outcome tells: the browser does not hold a value back.
  const form = element("form", { class: "editor", novalidate: true, autocomplete: "off", "aria-label": `Set ${name}` },
    ...content, element("div", { class: "actions" }, submit, outcome));
  let isBusy = false;
  form.addEventListener("submit", async (event) => {
    event.preventDefault();
    if (isBusy) return;
    isBusy = true;
    delete outcome.dataset.ok;
    setText(outcome, "…");
    const { ok, text } = await act();
    outcome.dataset.ok = ok;
    setText(outcome, text);
    isBusy = false;
  });
  return form;
}

function plainEditor(app, variable) {
  const input = inputFor(variable, variable.value, `New value of ${variable.name}`);
  const hint = element("span", { class: "note" }, typeText(variable));
  const form = frame(variable, [element("div", { class: "field" }, input, hint)], async () => {
    const why = whyNot(variable, input);
    return why ? { ok: false, text: why } : assign(app, variable, textOf(input));
  });
  return { form, update: () => {} };
}

function whyNot(variable, input) {
  const text = textOf(input);
  if (input.type === "number" && text === "") return "a number is needed";
  if (variable.kind === "buffer") {
    return /^([0-9a-f]{2})*$/i.test(text) ? "" : "pairs of hexadecimal digits are needed";
  }
  return variable.kind === "string" ? whyUnsendable(text) : "";
}

// An input for a value of a kind; `form` is a variable or a member.
function inputFor(form, value, label) {
  const named = { name: "value", "aria-label": label };
  switch (form.kind) {
  case "bool":
    return element("input", { ...named, type: "checkbox", role: "switch", checked: String(value) === "true" });
  case "enum": return choice(form.entries, value, named);
  case "int":
  case "float":
    return element("input", { ...named, type: "number", value, min: form.min, max: form.max,
      step: form.kind === "int" ? 1 : "any", inputmode: form.kind === "int" ? "numeric" : "decimal" });
  case "buffer":
    return element("textarea", { ...named, rows: form.length > 16 ? 4 : 1, maxlength: form.length * 2 }, value);
  default:
    return element("input", { ...named, type: "text", value, maxlength: form.length ? form.length - 1 : false });
  }
}

// A value that is none of the entries is shown, and cannot be chosen again.
function choice(entries, value, attributes) {
  const options = entries.map((entry) => element("option", { selected: entry === value }, entry));
  const strange = entries.includes(value) ? [] : [element("option", { selected: true, disabled: true }, value)];
  return element("select", attributes, ...strange, ...options);
}

const textOf = (input) => (input.type === "checkbox" ? String(input.checked) : input.value);

// Members in a table: what they are, and what they shall be. Of a list those of one element, chosen from a table.
function structureEditor(app, variable) {
  const isList = variable.kind === "list";
  let index = 0;
  let inputs = new Map();
  const item = () => (isList ? variable.data[index] : variable.data) ?? {};
  const members = element("tbody");
  const table = element("table", { class: "members" },
    element("thead", {}, element("tr", {}, ...["Member", "Now", "Set to"].map(heading))), members);
  const show = () => {
    inputs = fillMembers(app, variable, item(), members);
  };
  const picker = isList ? elementPicker(variable, (chosen) => {
    index = chosen;
    show();
  }) : { nodes: [], update: () => {} };
  show();
  const form = frame(variable, [...picker.nodes, element("div", { class: "scroll" }, table)], async () => {
    const { wanted, why } = changedMembers(item(), inputs);
    if (why || Object.keys(wanted).length === 0) return { ok: false, text: why || "nothing is changed" };
    inputs.forEach((each) => { each.before = textOf(each.input); });
    return assignMembers(app, variable, wanted, index);
  });
  const update = () => {
    picker.update();
    inputs.forEach(({ now }, name) => setText(now, memberText(item()[name])));
  };
  return { form, update };
}

const heading = (text) => element("th", { scope: "col" }, text);

// Fills the rows and returns by member its input, the cell that shows it now, and the value it had.
function fillMembers(app, variable, item, body) {
  const inputs = new Map();
  body.replaceChildren(...Object.entries(item).map(([name, value]) => {
    const now = element("td", { class: "now" }, memberText(value));
    const input = inputFor(memberForm(app.catalogue, variable.type, name, value), value, `New ${name}`);
    input.name = name;
    inputs.set(name, { input, now, before: textOf(input) });
    return element("tr", {}, element("th", { scope: "row" }, name), now, element("td", {}, input));
  }));
  return inputs;
}

function memberForm(catalogue, structure, name, value) {
  const known = catalogue.structures[structure]?.[name];
  const entries = catalogue.enumerations[known?.type];
  if (entries) return { kind: "enum", entries };
  const kind = { boolean: "bool", number: known?.type === "int" ? "int" : "float" }[typeof value] ?? "string";
  return { kind, length: known?.length };
}

// What was edited, as JSON has it, or why that cannot be sent.
function changedMembers(item, inputs) {
  const wanted = {};
  for (const [name, { input, before }] of inputs) {
    const text = textOf(input);
    if (text === before) continue;
    const type = typeof item[name];
    if (type === "number" && text === "") return { wanted, why: `${name}: a number is needed` };
    if (type === "string" && whyUnsendable(text)) return { wanted, why: `${name} ${whyUnsendable(text)}` };
    wanted[name] = type === "number" ? Number(text) : type === "boolean" ? text === "true" : text;
  }
  return { wanted };
}

// Chooses an element of a list: by its index, or from a table that shows some at a time.
function elementPicker(variable, choose) {
  let first = 0;
  const last = variable.data.length - 1;
  const columns = Object.keys(variable.data[0] ?? {}).slice(0, 6);
  const field = element("input", { type: "number", name: "Index", min: 0, max: last, value: 0, step: 1 });
  const body = element("tbody");
  const position = element("span", { class: "note" });
  const pick = (index) => {
    field.value = index;
    choose(index);
    mark();
  };
  const mark = () => body.querySelectorAll("button").forEach((button) =>
    button.setAttribute("aria-pressed", button.textContent === field.value));
  const update = () => {
    const shown = variable.data.slice(first, first + ROWS_AT_ONCE);
    setText(position, `${first} to ${first + shown.length - 1} of ${last + 1}`);
    fillElements(body, shown, first, columns, pick);
    mark();
  };
  const turn = (step) => {
    first = Math.min(Math.max(first + step, 0), last - (last % ROWS_AT_ONCE));
    update();
  };
  field.addEventListener("change", () => pick(Math.min(Math.max(Math.trunc(Number(field.value)), 0), last)));
  update();
  const pager = element("div", { class: "pager" }, element("label", {}, "Element ", field),
    element("button", { onclick: () => turn(-ROWS_AT_ONCE) }, "Earlier"),
    element("button", { onclick: () => turn(ROWS_AT_ONCE) }, "Later"), position);
  const table = element("table", { class: "elements" },
    element("thead", {}, element("tr", {}, ...["Index", ...columns].map(heading))), body);
  const nodes = [pager, element("div", { class: "scroll", tabindex: 0, role: "region", "aria-label": "Elements" }, table)];
  return { nodes, update };
}

// Keeps the rows that are there, so that what has the focus keeps it.
function fillElements(body, items, first, columns, pick) {
  while (body.rows.length > items.length) {
    body.lastChild.remove();
  }
  items.forEach((item, i) => {
    const row = body.rows[i] ?? body.appendChild(elementRow(columns, pick));
    setText(row.cells[0].firstChild, String(first + i));
    columns.forEach((name, column) => setText(row.cells[column + 1], memberText(item[name])));
  });
}

function elementRow(columns, pick) {
  const button = element("button", { class: "index" });
  button.addEventListener("click", () => pick(Number(button.textContent)));
  return element("tr", {}, element("th", { scope: "row" }, button), ...columns.map(() => element("td")));
}
