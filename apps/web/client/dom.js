// Makes elements. Text is always text: nothing here reads HTML.

// An element with attributes and children. A name that begins with "on" is a listener; true is an attribute without a
// value; false, null and undefined are no attribute. A button submits only where its type says so.
export function element(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  if (tag === "button") node.type = "button";
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) {
      node.addEventListener(name.slice(2), value);
    } else if (value === true) {
      node.setAttribute(name, "");
    } else if (value !== false && value !== null && value !== undefined) {
      node.setAttribute(name, value);
    }
  }
  node.append(...children);
  return node;
}

export const byId = (id) => document.getElementById(id);

// Sets the text only where it differs: an unchanged node costs no layout.
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

// Shows a button as pressed or not, with what pressing it does next.
export function setPressed(button, isPressed, otherwise, pressed) {
  button.setAttribute("aria-pressed", isPressed);
  setText(button, isPressed ? pressed : otherwise);
}

// Offers the content as a file to save. `parts` are what a Blob takes.
export function saveAs(name, type, parts) {
  const url = URL.createObjectURL(new Blob(parts, { type }));
  const link = element("a", { href: url, download: name });
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(url), 10000);
}

let lastAnswer = Promise.resolve();

// Asks a yes-or-no question in the page's dialog; resolves to whether the answer was yes. Questions are asked one after
// the other: the event that closes a dialog comes later than the next key, and would answer the next question, too.
export function ask(text, yes) {
  lastAnswer = lastAnswer.then(() => showQuestion(text, yes));
  return lastAnswer;
}

function showQuestion(text, yes) {
  const dialog = byId("question");
  byId("question-text").textContent = text;
  dialog.querySelector("[value=yes]").textContent = yes;
  dialog.returnValue = "no";
  dialog.showModal();
  return new Promise((resolve) => {
    dialog.addEventListener("close", () => resolve(dialog.returnValue === "yes"), { once: true });
  });
}

// What load() resolves to; where it cannot be loaded now, a person may try again, and undefined if not.
export async function loaded(load, what) {
  for (;;) {
    try {
      return await load();
    } catch {
      if (!await ask(`${what} could not be loaded.`, "Try again")) return undefined;
    }
  }
}

// Does the steps of a generator, each when the page has nothing else to do. Safari has no idle times.
export function whenIdle(steps) {
  const soon = globalThis.requestIdleCallback ?? setTimeout;
  soon(() => steps.next().done || whenIdle(steps));
}
