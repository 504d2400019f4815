// Chooses an element of a list.

import { element, setText } from "../dom.js";
import { memberText } from "../model/format.js";

const ROWS_AT_ONCE = 20;

export const heading = (text) => element("th", { scope: "col" }, text);

// By its index, or from a table that shows some at a time; choose(index) resolves to the index that is chosen from then on.
// `nodes` of the result are its parts, update() brings in what has changed.
export function elementPicker(variable, choose) {
  let first = 0;
  const last = variable.data.length - 1;
  const columns = Object.keys(variable.data[0] ?? {}).slice(0, 6);
  const field = element("input", { type: "number", name: "Index", min: 0, max: last, value: 0, step: 1 });
  const body = element("tbody");
  const position = element("span", { class: "note" });
  const pick = async (index) => {
    field.value = await choose(index);
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
