// All memories with their variables; the pinned ones first.

import { byId, element, setText } from "../dom.js";
import { Favourites } from "../model/favourites.js";
import { FULL } from "../model/remember.js";
import { Finder } from "./finder.js";
import { rove } from "./roving.js";
import { loadEditors, Row } from "./row.js";

const SWEEP_MS = 200;
// The editors are loaded when the values are there.
const EDITORS_MS = 2000;
// Height of a row before it is drawn.
const ROW_REM = 3;

export class VariablesView {
  #app;
  #favourites = new Favourites();
  #rows = new Map();
  #lists = new Map();
  #last = null;
  #behind = new Set();
  #finder;
  #isShown = false;
  #frame = 0;

  constructor(app) {
    this.#app = app;
    this.#finder = new Finder(app, { rows: this.#rows, putBack: (row) => this.#putBack(row),
      update: (isAway) => this.#showLists(!isAway) });
    rove(document.querySelector("[data-view=variables]"), ".variable", ".pin, .edit");
    this.#favourites.subscribe(() => this.#movePinned());
    app.store.subscribe((changed, isNew) => this.#take(changed, isNew));
    if (app.store.variables.size > 0) this.#addRows();
    setInterval(() => this.#calmDown(), SWEEP_MS);
    const isTouched = () => [...this.#rows.values()].some((row) => row.isTouched);
    addEventListener("beforeunload", (event) => isTouched() && event.preventDefault());
    setTimeout(() => loadEditors().catch(() => {}), EDITORS_MS);
  }

  show() {
    this.#isShown = true;
    this.#draw(false);
    this.takeAddress();
  }

  takeAddress() {
    this.#finder.takeAddress();
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
    this.#behind.forEach(({ key }) => this.#rows.get(key).update(isNews));
    this.#behind.clear();
    this.#finder.follow();
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
        if (this.#last) this.#last.next = row;
        this.#last = row;
        this.#listOf(variable.memory).append(row.node);
      }
    }
    this.#putPinned();
    this.#finder.renew();
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

  // A row is in one place only: among the results, pinned, or in its memory.
  #putPinned() {
    const rows = this.#favourites.keys.map((key) => this.#rows.get(key)).filter((row) => row && !this.#isResult(row));
    const list = byId("favourites");
    rows.forEach(({ node }, i) => node === list.children[i] || list.insertBefore(node, list.children[i] ?? null));
  }

  #isResult(row) {
    return row.node.parentNode === byId("results");
  }

  #togglePin(key) {
    const row = this.#rows.get(key);
    this.#favourites.set(key, !row.isPinned);
    row.node.querySelector(".pin").focus();
  }

  // Brings the rows to where they belong after this or another page has changed the favourites.
  #movePinned() {
    const moved = [...this.#rows.values()].filter((row) => row.isPinned !== this.#favourites.has(row.variable.key));
    moved.forEach((row) => row.showPin());
    const away = moved.filter((row) => !this.#isResult(row));
    away.forEach((row) => this.#putBack(row));
    this.#putPinned();
    if (away.length > 0) this.#showLists(true);
    setText(byId("favourites-note"), this.#favourites.isKept ? "" : `New favourites end with this page: ${FULL}.`);
  }

  // Among the pinned ones, or before the next variable of its memory that is there.
  #putBack(row) {
    if (this.#favourites.has(row.variable.key)) {
      byId("favourites").append(row.node);
      this.#putPinned();
      return;
    }
    const list = this.#listOf(row.variable.memory);
    let after = row.next;
    while (after && after.node.parentNode !== list) after = after.next;
    list.insertBefore(row.node, after?.node ?? null);
  }

  #showLists(areShown) {
    byId("memories").classList.toggle("away", !areShown);
    byId("pinned").hidden = !areShown || byId("favourites").childElementCount === 0;
    if (!areShown) return;
    for (const list of this.#lists.values()) {
      list.parentNode.hidden = list.childElementCount === 0;
      list.style.containIntrinsicHeight = `auto ${list.childElementCount * ROW_REM}rem`;
    }
  }
}
