// The frame of all editors.

import { element, setText } from "../dom.js";

const SLOW_MS = 1000;

// A form with a button. capture() takes what is entered and returns {entered, confirm, act}: that in words, a question that
// resolves to whether it is meant, and what sends it and resolves to {ok, text, later}. What is submitted while a request is
// on its way is sent after it.
export function frame({ name }, content, capture) {
  const outcome = element("output", { class: "outcome", role: "status" });
  const submit = element("button", { type: "submit", class: "primary" }, "Set");
  // The service decides what is in range and the outcome shows it: the browser does not check.
  const form = element("form", { class: "editor", novalidate: true, autocomplete: "off", "aria-label": `Set ${name}` },
    ...content, element("div", { class: "actions" }, submit, outcome));
  let next = null;
  let isBusy = false;
  let isEdited = false;
  let turn = 0;

  const say = (text, ok) => {
    outcome.dataset.ok = ok ?? "";
    setText(outcome, text);
  };
  // An outcome beside a field that holds something else by now names what it is about.
  const show = (entered, { ok, text }) => say(isEdited ? `${entered}: ${text}` : text, ok);

  async function send(act) {
    const slow = setTimeout(() => say("waiting for the service …"), SLOW_MS);
    return act().finally(() => clearTimeout(slow));
  }

  async function run({ entered, confirm, act }) {
    const number = ++turn;
    isEdited = false;
    say("…");
    const result = await confirm() ? await send(act) : { ok: false, text: "not sent" };
    show(entered, result);
    result.later?.then((late) => number === turn && show(entered, late));
  }

  form.addEventListener("input", () => { isEdited = true; });
  form.addEventListener("submit", async (event) => {
    event.preventDefault();
    next = capture();
    if (isBusy) return;
    isBusy = true;
    try {
      while (next !== null) {
        const captured = next;
        next = null;
        await run(captured);
      }
    } finally {
      isBusy = false;
    }
  });
  return form;
}
