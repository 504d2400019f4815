// The frame of all editors.

import { element, setText } from "../dom.js";

// A form with a button that calls act(), which resolves to the outcome {ok, text}.
export function frame({ name }, content, act) {
  const outcome = element("output", { class: "outcome", role: "status" });
  const submit = element("button", { type: "submit", class: "primary" }, "Set");
  // The service decides what is in range and the outcome shows it: the browser does not check.
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
