// A row of the Variables view.

import { ask, element, loaded, setText } from "../dom.js";
import { clockText, typeText, valueText } from "../model/format.js";

export const loadEditors = () => import("../editors/editor.js");
const CHANGED_MS = 1200;

// One variable: what it is, its value, and on demand its editor.
export class Row {
  #app;
  #favourites;
  #parts;
  #editor = null;
  #changedUntil = 0;
  // The row that was made after this one.
  next = null;

  constructor(app, variable, favourites, togglePin) {
    this.#app = app;
    this.#favourites = favourites;
    this.variable = variable;
    const memory = element("span", { class: "of" }, `${variable.memory}.`);
    const name = element("span", { class: "name" }, variable.name);
    const about = variable.about ? [element("span", { class: "about" }, variable.about)] : [];
    this.#parts = {
      pin: element("button", { class: "pin", tabindex: -1, onclick: togglePin,
        "aria-label": `Favourite ${variable.name}` }),
      when: element("time", { class: "when" }),
      type: element("span", { class: "type" }),
      value: element("span", { class: "value" }),
      edit: element("button", { class: "edit", tabindex: -1, "aria-expanded": "false",
        "aria-label": `Edit ${variable.name}`, onclick: () => this.#toggleEditor() }, "Edit"),
    };
    const { pin, when, type, value, edit } = this.#parts;
    this.node = element("li", { class: "variable", "data-variable": variable.key }, pin,
      element("div", { class: "what" }, memory, element("wbr"), name, " ", when, ...about), type, value, edit);
    this.node.addEventListener("keydown", (event) => {
      if (event.key !== "Escape" || !this.#editor) return;
      event.preventDefault(); // else it closes the question as well
      this.#toggleEditor();
    });
    this.showPin();
    this.update(false);
  }

  showPin() {
    this.#parts.pin.setAttribute("aria-pressed", this.#favourites.has(this.variable.key));
  }

  // Whether the row shows that it is pinned.
  get isPinned() {
    return this.#parts.pin.getAttribute("aria-pressed") === "true";
  }

  update(isNews) {
    const { when, type, value, edit } = this.#parts;
    const { changedAt, isChangedBefore } = this.variable;
    const text = valueText(this.variable);
    if (changedAt) setText(when, `changed ${isChangedBefore ? "before " : ""}${clockText(changedAt)}`);
    const isChanged = isNews && (value.textContent !== text || this.variable.data);
    setText(type, typeText(this.variable));
    setText(value, text);
    this.node.dataset.kind = this.variable.kind;
    value.dataset.value = this.variable.kind === "bool" ? text : "";
    edit.hidden = this.variable.kind === "unprintable" && this.variable.type !== "string";
    this.#editor?.update();
    if (isChanged) {
      this.#changedUntil = performance.now() + CHANGED_MS;
      this.node.classList.add("changed");
    }
  }

  calmDown(now) {
    if (this.#changedUntil !== 0 && now > this.#changedUntil) {
      this.#changedUntil = 0;
      this.node.classList.remove("changed");
    }
  }

  // Whether something is typed that is not stored.
  get isTouched() {
    return this.#editor?.isTouched() ?? false;
  }

  get isEdited() {
    return this.#editor !== null;
  }

  async #toggleEditor() {
    if (this.#editor) {
      const isMeant = !this.isTouched || await ask(`Discard what is entered for ${this.variable.name}?`, "Discard");
      if (!isMeant) return;
      this.#editor.form.remove();
      this.#editor = null;
      this.#parts.edit.focus();
    } else {
      const focused = document.activeElement;
      const { createEditor } = await loaded(loadEditors, "The editor") ?? {};
      if (!createEditor) return;
      this.#editor ??= createEditor(this.#app, this.variable);
      this.node.append(this.#editor.form);
      const first = this.#editor.form.querySelector("input, select, textarea, button");
      if (document.activeElement === focused) first?.focus(); // else a person types somewhere else by now
    }
    this.#parts.edit.setAttribute("aria-expanded", this.#editor !== null);
    setText(this.#parts.edit, this.#editor ? "Close" : "Edit");
    this.#parts.edit.setAttribute("aria-label", `${this.#editor ? "Close" : "Edit"} ${this.variable.name}`);
  }
}
