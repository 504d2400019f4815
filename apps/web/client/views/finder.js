// The search of the Variables view: what is asked for, and the rows that fit, best first.

import { readAddress, writeAddress } from "../address.js";
import { byId, loaded, setText, whenIdle } from "../dom.js";
import { clockText } from "../model/format.js";
import { SearchIndex } from "../model/search.js";

const ROWS_AT_ONCE = 20;
// Rows that a key brings before it is drawn; the others follow, as many at a time, when no further key comes.
const FIRST_ROWS = 5;
const REST_MS = 150;
const NEXT_MS = 30;
const LIVE_MS = 500;
const ADDRESS_MS = 300;

export class Finder {
  #app;
  #home;
  #index;
  #asked = { search: "", memory: "", only: "" };
  #changedFrom = 0;
  #snapshots = null;
  #rows = new Set();
  #most = ROWS_AT_ONCE;
  #isFollowing = false;
  #addressTimer = 0;
  #restTimer = 0;

  // `home` has rows, a Map of all rows by key, putBack(row), which puts one where it is without a search, and
  // update(isAway), called when the rows are shown here or there.
  constructor(app, home) {
    this.#app = app;
    this.#home = home;
    this.#index = new SearchIndex(app.catalogue.structures);
    byId("search").addEventListener("input", () => this.#ask());
    byId("memory").addEventListener("change", () => this.#ask());
    byId("only").addEventListener("change", () => this.#ask());
    byId("results-more").addEventListener("click", () => this.#showMore());
  }

  // Asks for what the address says; an address that says nothing gets what is asked for.
  takeAddress() {
    const { params } = readAddress();
    if (Object.keys(params).length > 0) {
      for (const id of Object.keys(this.#asked)) choose(id, params[id] ?? "");
    }
    this.#ask();
  }

  // Values have changed, or there are new variables. Rows move a little later, all together.
  follow() {
    if (this.#isFollowing) return;
    this.#isFollowing = true;
    setTimeout(() => {
      this.#isFollowing = false;
      this.#show(true);
    }, LIVE_MS);
  }

  // There are new variables or memories to choose from.
  renew() {
    const { params } = readAddress();
    if (params.memory && byId("memory").value === "") {
      choose("memory", params.memory);
      this.#ask();
    }
    this.#show(true);
    whenIdle(this.#index.learn(this.#app.store.variables.values()));
  }

  #ask() {
    const { search, memory, only } = Object.fromEntries(Object.keys(this.#asked).map((id) => [id, byId(id).value]));
    if (only === "now" && this.#asked.only !== "now") this.#changedFrom = Date.now();
    if (only !== "now") this.#changedFrom = 0;
    this.#asked = { search: search.trim(), memory, only };
    this.#most = FIRST_ROWS;
    if (only === "snapshot" && this.#snapshots === null) this.#loadSnapshots();
    else this.#show(false);
    clearTimeout(this.#restTimer);
    if (this.#asked.search !== "") this.#restTimer = setTimeout(() => this.#showRest(), REST_MS);
    clearTimeout(this.#addressTimer);
    this.#addressTimer = setTimeout(() => this.#writeAddress(), ADDRESS_MS);
  }

  // Until the memories are known the address keeps the one that it names.
  #writeAddress() {
    const { view, params } = readAddress();
    const kept = this.#home.rows.size === 0 ? { memory: params.memory ?? "" } : {};
    if (view === "variables") writeAddress("variables", { ...this.#asked, ...kept });
  }

  #showRest() {
    if (this.#most >= ROWS_AT_ONCE) return;
    this.#most += FIRST_ROWS;
    this.#show(true);
    this.#restTimer = setTimeout(() => this.#showRest(), NEXT_MS);
  }

  async #loadSnapshots() {
    this.#snapshots = await loaded(() => import("../model/snapshot.js"), "The comparison with the snapshot") ?? null;
    this.#show(false);
  }

  #found() {
    const { search, memory, only } = this.#asked;
    const snapshot = this.#snapshots?.keptSnapshot() ?? null;
    const isChanged = only === "snapshot" ? (variable) => snapshot !== null && this.#snapshots.differs(snapshot, variable)
      : ({ changedAt }) => changedAt !== undefined && changedAt >= this.#changedFrom;
    const isWanted = (variable) => (memory === "" || variable.memory === memory) && (only === "" || isChanged(variable));
    return this.#index.find(search, [...this.#app.store.variables.values()].filter(isWanted));
  }

  #show(isLive) {
    const isAsked = Object.values(this.#asked).some((value) => value !== "");
    const found = isAsked ? this.#found() : [];
    const shown = this.#asked.search === "" ? found : found.slice(0, this.#most);
    this.#place(shown.map(({ key }) => this.#home.rows.get(key)), isLive);
    byId("results").hidden = found.length === 0;
    byId("results-more").hidden = found.length <= Math.max(this.#most, ROWS_AT_ONCE) || this.#asked.search === "";
    setText(byId("results-more"), `Show all ${found.length}`);
    const all = this.#home.rows.size;
    const none = isAsked && found.length === 0 ? this.#whyNone() : "";
    setText(byId("results-none"), all === 0 ? "Waiting for the values." : none);
    this.#home.update(isAsked);
    setText(byId("search-count"), isAsked ? `${found.length} of ${all}${this.#editedAside()}` : `${all} variables`);
  }

  #editedAside() {
    const count = [...this.#home.rows.values()].filter((row) => row.isEdited && !this.#rows.has(row)).length;
    return count === 0 ? "" : `, ${count} open editor${count === 1 ? "" : "s"} hidden`;
  }

  // What changes by itself takes no row away that is worked with.
  #place(wanted, isLive) {
    const list = byId("results");
    const active = document.activeElement;
    const isBusy = (row) => row.node.contains(active) || row.isEdited;
    const rows = new Set(wanted);
    if (isLive) this.#rows.forEach((row) => isBusy(row) && rows.add(row));
    this.#rows.forEach((row) => rows.has(row) || this.#home.putBack(row));
    this.#rows = rows;
    list.classList.toggle("long", rows.size > ROWS_AT_ONCE);
    [...rows].forEach((row, i) => row.node === list.children[i] || list.insertBefore(row.node, list.children[i] ?? null));
    if (document.activeElement !== active && list.contains(active)) active.focus({ preventScroll: true });
  }

  #showMore() {
    this.#most = Infinity;
    this.#show(false);
    [...byId("results").children].at(ROWS_AT_ONCE)?.querySelector("button")?.focus();
  }

  #whyNone() {
    const { search, memory, only } = this.#asked;
    const where = memory === "" ? "" : ` in ${memory}`;
    if (search !== "") return `No variable${where} fits “${search}”.`;
    if (only === "snapshot") {
      return this.#snapshots?.keptSnapshot() ? `No variable${where} differs from the snapshot.` : "There is no snapshot yet: take one in the view Snapshot.";
    }
    return `No variable${where} has changed since ${only === "now" ? clockText(this.#changedFrom) : "the page was opened"}.`;
  }
}

// Enters a text, or chooses it: where it cannot be chosen, the first choice.
function choose(id, text) {
  const field = byId(id);
  field.value = text;
  if (field.selectedIndex === -1) field.selectedIndex = 0;
}
