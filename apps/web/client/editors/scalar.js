// The editor of a variable that holds one value.

import { ask, element, setText } from "../dom.js";
import { assign } from "../model/assign.js";
import { typeText } from "../model/format.js";
import { createField } from "./field.js";
import { Entry } from "./entry.js";
import { frame } from "./frame.js";

export function scalarEditor(app, variable) {
  const field = createField(variable, variable.value, { name: "value", "aria-label": `New value of ${variable.name}` });
  const entry = new Entry(field, variable.value);
  const hint = element("span", { class: "note" });
  const update = () => {
    const isBehind = !entry.follow(variable.value);
    const now = isBehind ? `changed meanwhile: ${entry.base} → ${variable.value}` : field.hint?.() ?? "";
    setText(hint, [typeText(variable), now].filter(Boolean).join(" · "));
  };
  const capture = () => {
    const entered = field.text;
    const confirm = async () => entry.base === variable.value
      || ask(`${variable.name} has changed from ${entry.base} to ${variable.value} meanwhile. Set it to ${entered}?`, "Set");
    return { entered, confirm, act: async () => {
      const settle = (outcome) => {
        entry.mark(outcome.wrong?.length > 0);
        if (outcome.ok) entry.settle(entered, variable.value);
        update();
        return outcome;
      };
      const outcome = settle(await assign(app, variable, entered));
      return { ...outcome, later: outcome.later?.then(settle) };
    } };
  };
  const form = frame(variable, [element("div", { class: "field" }, field.node, hint)], capture);
  form.addEventListener("input", update);
  update();
  return { form, update, isTouched: () => entry.isTouched };
}
