// All memories with their variables; the pinned ones first.

import { byId, element, setText } from "../dom.js";
import { Favourites } from "../model/favourites.js";
import { Row } from "./row.js";

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
    const edited = [...this.#rows.values()].filter((row) => row.isEdited && row.node.hidden).length;
    const aside = edited === 0 ? "" : `, ${edited} open editor${edited === 1 ? "" : "s"} hidden`;
    setText(byId("search-count"), (shown === all ? `${all} variables` : `${shown} of ${all}`) + aside);
  }
}
