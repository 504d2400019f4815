// The editor of a variable that holds one value.

import { element } from "../dom.js";
import { assign } from "../model/assign.js";
import { typeText } from "../model/format.js";
import { createField } from "./field.js";
import { frame } from "./frame.js";

export function scalarEditor(app, variable) {
  const field = createField(variable, variable.value, { name: "value", "aria-label": `New value of ${variable.name}` });
  const hint = element("span", { class: "note" }, typeText(variable));
  const form = frame(variable, [element("div", { class: "field" }, field.node, hint)], async () => {
    const problem = field.problem();
    return problem ? { ok: false, text: problem } : assign(app, variable, field.text);
  });
  return { form, update: () => {} };
}
