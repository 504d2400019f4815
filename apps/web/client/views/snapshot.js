// Keeps the values of a moment, shows what differs from it, and restores what is chosen.

import { ask, byId, element, saveAs, setText } from "../dom.js";
import { assign, assignMembers, memberForm } from "../model/assign.js";
import { apart, timeStamp } from "../model/format.js";
import { differences, isSnapshotKept, isSnapshotSaved, keepSnapshot, keptSnapshot, markSnapshotSaved, placeText,
  readSnapshot, snapshotText, subscribeToSnapshot, takeSnapshot, valueAt } from "../model/snapshot.js";

const ROWS_AT_ONCE = 300;

export class SnapshotView {
  #app;
  #other = null;
  #rows = [];
  #most = ROWS_AT_ONCE;
  #isRestoring = false;
  #isStopping = false;

  constructor(app) {
    this.#app = app;
    const on = (id, event, act) => byId(`snapshot-${id}`).addEventListener(event, act);
    on("take", "click", () => this.#take());
    on("save", "click", () => this.#save());
    on("open", "change", () => this.#open());
    on("memory", "change", () => this.#compare());
    on("with", "change", () => this.#chooseOther());
    on("other", "change", () => this.#openOther());
    on("compare", "click", () => this.#compare());
    on("all", "change", () => this.#chooseAll());
    on("more", "click", () => this.#showAll());
    on("rows", "change", () => this.#countChosen());
    on("restore", "click", () => this.#restore());
    app.store.subscribe((changed, isNew) => this.#follow(changed, isNew));
    subscribeToSnapshot(() => this.#renew());
    addEventListener("beforeunload", (event) => this.#isRestoring && event.preventDefault());
    this.#offerMemories();
  }

  show() {
    this.#describe();
  }

  hide() {}

  // What differs from another snapshot is not what is shown.
  #renew() {
    this.#describe();
    if (!this.#isRestoring) this.#show([], "");
  }

  async #take() {
    if (!await this.#mayReplace()) return;
    this.#say("Reading all values …");
    if (!await this.#app.readBack()) {
      this.#say("No snapshot is taken: the service does not answer.");
      return;
    }
    keepSnapshot(takeSnapshot(this.#app.store, byId("snapshot-memory").value), false);
    await this.#compare();
  }

  #save() {
    saveAs(`snapshot-${timeStamp(new Date(keptSnapshot().taken))}.json`, "application/json", [snapshotText(keptSnapshot())]);
    markSnapshotSaved();
  }

  async #open() {
    const snapshot = await this.#read("snapshot-open");
    if (!snapshot || !await this.#mayReplace()) return;
    keepSnapshot(snapshot, true);
    await this.#compare();
  }

  // The snapshot in the chosen file; undefined where there is none, which the page then says.
  async #read(id) {
    const [file] = byId(id).files;
    if (!file) return undefined;
    try {
      return readSnapshot(await file.text());
    } catch (error) {
      this.#say(`${file.name} is not opened: ${error.message}.`);
      return undefined;
    } finally {
      byId(id).value = "";
    }
  }

  async #mayReplace() {
    return isSnapshotSaved() || ask("The present snapshot is not saved as a file. Replace it?", "Replace");
  }

  #chooseOther() {
    this.#other = null;
    const isFile = byId("snapshot-with").value === "file";
    byId("snapshot-other").parentNode.hidden = !isFile;
    isFile ? this.#show([], "Choose the file to compare with.") : this.#compare();
  }

  async #openOther() {
    this.#other = await this.#read("snapshot-other") ?? this.#other;
    if (this.#other) await this.#compare();
  }

  async #compare() {
    const snapshot = keptSnapshot();
    const isWithFile = byId("snapshot-with").value === "file";
    if (!snapshot || isWithFile && !this.#other || this.#isRestoring) return;
    if (!isWithFile && !await this.#app.readBack()) {
      this.#show([], "Not compared: the service does not answer.");
      return;
    }
    const present = this.#other ?? takeSnapshot(this.#app.store);
    const scope = byId("snapshot-memory").value;
    const found = (scope === "" ? Object.keys(snapshot.memories) : [scope])
      .flatMap((memory) => differences(snapshot, present, memory));
    setText(byId("snapshot-column"), this.#other ? "In the other file" : "Now");
    const when = this.#other ? "" : ` at ${new Date().toLocaleTimeString("en-GB")}`;
    this.#most = ROWS_AT_ONCE;
    this.#show(found, `${["Nothing differs", "1 value differs"][found.length] ?? `${found.length} values differ`}${when}.`);
  }

  #show(found, words) {
    this.#rows = found.map((difference) => ({ difference, node: null }));
    setText(byId("snapshot-count"), words);
    byId("snapshot-all").checked = false;
    byId("snapshot-table").hidden = found.length === 0;
    this.#fill();
  }

  #fill() {
    const shown = this.#rows.slice(0, this.#most);
    shown.forEach((row) => { row.node ??= this.#rowNode(row.difference); });
    byId("snapshot-rows").replaceChildren(...shown.map(({ node }) => node));
    byId("snapshot-more").hidden = shown.length === this.#rows.length;
    setText(byId("snapshot-more"), `Show all ${this.#rows.length}`);
    this.#countChosen();
  }

  #showAll() {
    const next = this.#most;
    this.#most = Infinity;
    this.#fill();
    byId("snapshot-rows").rows[next]?.querySelector("input").focus();
  }

  #rowNode(difference) {
    const place = placeText(difference);
    const present = valueAt(this.#app.store, difference);
    const isThere = present !== undefined;
    return element("tr", { "data-place": place },
      element("td", {}, element("input", { type: "checkbox", disabled: !canStore(difference.from, present), "aria-label": `Restore ${place}` })),
      element("th", { scope: "row" }, place), element("td", {}, shownText(difference.from)),
      element("td", {}, shownText(difference.to)), element("td", { class: "outcome" }, isThere ? "" : "not on this device"));
  }

  // The column "Now" follows the device.
  #follow(changed, isNew) {
    if (isNew) this.#offerMemories();
    if (this.#other) return;
    for (const { difference, node } of this.#rows) {
      if (node && changed.has(this.#app.store.variables.get(`${difference.memory}.${difference.name}`))) {
        setText(node.cells[3], shownText(valueAt(this.#app.store, difference)));
      }
    }
  }

  #offerMemories() {
    const known = [...byId("snapshot-memory").options].map(({ value }) => value);
    const memories = new Set([...this.#app.store.variables.values()].map(({ memory }) => memory));
    byId("snapshot-memory").append(...[...memories].filter((memory) => !known.includes(memory))
      .map((memory) => element("option", {}, memory)));
  }

  #chooseAll() {
    byId("snapshot-rows").querySelectorAll("input:enabled").forEach((box) => { box.checked = byId("snapshot-all").checked; });
    this.#countChosen();
  }

  #chosen() {
    return this.#rows.filter(({ node }) => node?.querySelector("input").checked);
  }

  #countChosen() {
    const count = this.#chosen().length;
    byId("snapshot-restore").disabled = count === 0 && !this.#isRestoring;
    if (!this.#isRestoring) setText(byId("snapshot-restore"), count === 0 ? "Restore" : `Restore ${count} on the device`);
  }

  // One after the other; a second press stops behind the one that is on its way.
  async #restore() {
    if (this.#isRestoring) {
      this.#isStopping = true;
      setText(byId("snapshot-restore"), "Stopping …");
      return;
    }
    const chosen = this.#chosen();
    if (!await ask(`Store ${chosen.length === 1 ? "1 value" : `${chosen.length} values`} of the snapshot on the device?`, "Restore")) return;
    [this.#isRestoring, this.#isStopping] = [true, false];
    setText(byId("snapshot-restore"), "Stop");
    let [sent, stored] = [0, 0];
    for (const { difference, node } of chosen) {
      if (this.#isStopping) break;
      setText(byId("snapshot-count"), `Restoring ${++sent} of ${chosen.length}`);
      stored += await this.#restoreOne(difference, node) ? 1 : 0;
    }
    this.#isRestoring = false;
    setText(byId("snapshot-count"), `${stored} stored, ${sent - stored} not stored, ${chosen.length - sent} not sent.`);
    this.#countChosen();
  }

  // Returns whether the device holds the value.
  async #restoreOne(difference, node) {
    const say = ({ ok, text }) => {
      node.cells[4].dataset.ok = ok;
      setText(node.cells[4], text);
      node.querySelector("input").checked = !ok;
    };
    say({ ok: "", text: "…" });
    const outcome = await restoreValue(this.#app, difference);
    say(outcome);
    outcome.later?.then(say);
    return outcome.ok;
  }

  #describe() {
    const snapshot = keptSnapshot();
    byId("snapshot-save").disabled = !snapshot;
    byId("snapshot-compare").disabled = !snapshot;
    if (!snapshot) {
      this.#say("There is no snapshot yet. Take one, or open a file.");
      return;
    }
    const memories = Object.keys(snapshot.memories);
    const unread = Object.values(snapshot.memories).flatMap(Object.values).filter((value) => value === null).length;
    const taken = new Date(snapshot.taken).toLocaleString("en-GB");
    const scope = memories.length === 1 ? memories[0] : `${memories.length} memories`;
    const note = unread === 0 ? "" : ` ${unread} values could not be read.`;
    const lost = isSnapshotKept() ? "" : " This browser cannot keep it: it ends with this page unless it is saved as a file.";
    this.#say(`Snapshot of ${apart(snapshot.device || "a device")}, ${taken}, ${scope}.${note}${lost}`);
  }

  #say(text) {
    setText(byId("snapshot-note"), text);
  }
}

function shownText(value) {
  if (value === undefined) return "not there";
  if (value === null) return "cannot be printed";
  return typeof value === "object" ? JSON.stringify(value) : String(value);
}

// A value takes the place of one of its own form, and of one that could not be printed.
function canStore(value, present) {
  const isValue = value !== undefined && value !== null && !Array.isArray(value);
  return isValue && (present === null ? typeof value === "string" : typeof value === typeof present);
}

// Stores the value of a difference; resolves as assign() does. Of a structure or element as a whole each member is stored.
function restoreValue(app, { memory, name, index, member, from }) {
  const variable = app.store.variables.get(`${memory}.${name}`);
  if (index === undefined && typeof from === "string" && member === undefined) return assign(app, variable, String(from));
  const members = member === undefined ? Object.entries(from) : [[member, from]];
  return assignMembers(app, variable, members.map(([each, value]) =>
    ({ name: each, form: memberForm(app.catalogue, variable.type, each, value), text: String(value) })), index);
}
