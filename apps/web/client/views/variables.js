// All memories with their variables; the pinned ones first.

import { byId, element, setText } from "../dom.js";
import { createEditor } from "../editors.js";
import { Favourites } from "../favourites.js";
import { typeText, valueText } from "../format.js";

const CHANGED_MS = 1200;
const SWEEP_MS = 200;

export class VariablesView {
  #app;
  #favourites = new Favourites();
  #rows = new Map();
  #lists = new Map();
  #behind = new Set();
  #isShown = false;
  #frame = 0;

  constructor(app) {
    this.#app = app;
    byId("search").addEventListener("input", () => this.#filterAll());
    byId("memory").addEventListener("change", () => this.#filterAll());
    app.store.subscribe((changed, isNew) => this.#take(changed, isNew));
    if (app.store.variables.size > 0) this.#addRows();
    setInterval(() => this.#calmDown(), SWEEP_MS);
  }

  show() {
    this.#isShown = true;
    this.#draw(false);
  }

  hide() {
    this.#isShown = false;
  }

  // Any number of changes between two frames are drawn once.
  #take(changed, isNew) {
    if (isNew) this.#addRows();
    changed.forEach((variable) => this.#behind.add(variable));
    if (this.#isShown && this.#frame === 0) this.#frame = requestAnimationFrame(() => this.#draw(true));
  }

  #draw(isNews) {
    this.#frame = 0;
    const isFiltered = byId("search").value !== "";
    for (const variable of this.#behind) {
      const row = this.#rows.get(variable.key);
      row.update(isNews);
      if (isFiltered) row.filter(this.#query(), byId("memory").value);
    }
    this.#behind.clear();
    if (isFiltered) this.#count();
  }

  #calmDown() {
    const now = performance.now();
    this.#rows.forEach((row) => row.calmDown(now));
  }

  #addRows() {
    for (const variable of this.#app.store.variables.values()) {
      if (!this.#rows.has(variable.key)) {
        const row = new Row(this.#app, variable, this.#favourites, () => this.#togglePin(variable.key));
        this.#rows.set(variable.key, row);
        this.#listOf(variable.memory).append(row.node);
      }
    }
    this.#favourites.keys.forEach((key) => this.#pinned(key));
    this.#filterAll();
  }

  #listOf(memory) {
    if (!this.#lists.has(memory)) {
      const list = element("ul", { class: "variables" });
      byId("memories").append(element("section", { class: "memory" }, element("h2", {}, memory), list));
      byId("memory").append(element("option", {}, memory));
      this.#lists.set(memory, list);
    }
    return this.#lists.get(memory);
  }

  // A row is in one place only: a pinned one leaves its memory.
  #pinned(key) {
    const row = this.#rows.get(key);
    if (row) byId("favourites").append(row.node);
  }

  #togglePin(key) {
    const row = this.#rows.get(key);
    if (this.#favourites.toggle(key)) {
      this.#pinned(key);
    } else {
      this.#putBack(row);
    }
    row.showPin();
    this.#filterAll();
    row.node.querySelector(".pin").focus();
  }

  // Before the next variable of its memory that is not pinned.
  #putBack(row) {
    const list = this.#listOf(row.variable.memory);
    const order = [...this.#rows.values()];
    const after = order.slice(order.indexOf(row) + 1).find((each) => each.node.parentNode === list);
    list.insertBefore(row.node, after?.node ?? null);
  }

  #query() {
    return byId("search").value.trim().toLowerCase().split(/\s+/).filter(Boolean);
  }

  #filterAll() {
    const words = this.#query();
    const memory = byId("memory").value;
    this.#rows.forEach((row) => row.filter(words, memory));
    this.#count();
  }

  #count() {
    const lists = [byId("favourites"), ...this.#lists.values()];
    let shown = 0;
    for (const list of lists) {
      const count = [...list.children].filter((node) => !node.hidden).length;
      list.parentNode.hidden = count === 0;
      shown += count;
    }
    const all = this.#rows.size;
    setText(byId("search-count"), shown === all ? `${all} variables` : `${shown} of ${all}`);
  }
}

// One variable: what it is, its value, and on demand its editor.
class Row {
  #app;
  #favourites;
  #parts;
  #editor = null;
  #changedUntil = 0;

  constructor(app, variable, favourites, togglePin) {
    this.#app = app;
    this.#favourites = favourites;
    this.variable = variable;
    const memory = element("span", { class: "of" }, `${variable.memory}.`);
    const name = element("span", { class: "name" }, variable.name);
    const about = variable.about ? [element("span", { class: "about" }, variable.about)] : [];
    this.#parts = {
      pin: element("button", { class: "pin", onclick: togglePin,
        "aria-label": `Favourite ${variable.name}` }),
      type: element("span", { class: "type" }),
      value: element("span", { class: "value" }),
      edit: element("button", { class: "edit", "aria-expanded": "false",
        "aria-label": `Edit ${variable.name}`, onclick: () => this.#toggleEditor() }, "Edit"),
    };
    const { pin, type, value, edit } = this.#parts;
    this.node = element("li", { class: "variable", "data-variable": variable.key }, pin,
      element("div", { class: "what" }, memory, name, ...about), type, value, edit);
    this.node.addEventListener("keydown", (event) => event.key === "Escape" && this.#editor && this.#toggleEditor());
    this.showPin();
    this.update(false);
  }

  showPin() {
    this.#parts.pin.setAttribute("aria-pressed", this.#favourites.has(this.variable.key));
  }

  update(isNews) {
    const { type, value, edit } = this.#parts;
    const text = valueText(this.variable);
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

  // Shows the row when each word is in its name, type or value. A row that is being edited stays.
  filter(words, memory) {
    const isWanted = memory === "" || memory === this.variable.memory;
    const { type, value } = this.#parts;
    const text = words.length === 0 ? ""
      : [this.variable.key, this.variable.about, type.textContent, value.textContent].join("\n").toLowerCase();
    this.node.hidden = !(isWanted && words.every((word) => text.includes(word))) && this.#editor === null;
  }

  #toggleEditor() {
    if (this.#editor) {
      this.#editor.form.remove();
      this.#editor = null;
      this.#parts.edit.focus();
    } else {
      this.#editor = createEditor(this.#app, this.variable);
      this.node.append(this.#editor.form);
      this.#editor.form.querySelector("input, select, textarea, button")?.focus();
    }
    this.#parts.edit.setAttribute("aria-expanded", this.#editor !== null);
    setText(this.#parts.edit, this.#editor ? "Close" : "Edit");
    this.#parts.edit.setAttribute("aria-label", `${this.#editor ? "Close" : "Edit"} ${this.variable.name}`);
  }
}
