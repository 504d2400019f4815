// Values over time, several at once.

import { byId, element, saveAs, setPressed, setText } from "../dom.js";
import { readHistory } from "../feed/history.js";
import { clockText, timeStamp } from "../model/format.js";
import { asCsv, Recording, seriesOf } from "../model/recording.js";
import { FULL } from "../model/remember.js";
import { Watched } from "../model/watched.js";
import { Layouts } from "./layouts.js";
import { COLOURS, loadPlots, Plot } from "./plot.js";

const DRAW_MS = 100;
// Seconds that a part has at least and at most.
const SHORTEST = 0.1;
const LONGEST = 3600;
const OFFERED = 3;

export class WatchView {
  #app;
  #recordings = new Map();
  #plots = [];
  #series = new Map();
  #pausedAt = null;
  #zoom = null;
  #cursor = null;
  #warning = "";
  #isRecorded = true;
  #timer = 0;
  #watched = new Watched();

  constructor(app) {
    this.#app = app;
    const on = (id, event, act) => byId(`watch-${id}`).addEventListener(event, act);
    on("form", "submit", (event) => {
      event.preventDefault();
      this.#addTyped();
    });
    on("pause", "click", () => this.#togglePause());
    on("reset", "click", () => this.#setZoom(null));
    on("span", "change", () => this.#setZoom(null));
    on("export", "click", () => this.#export());
    on("zoom", "click", (event) => this.#step(event.target.dataset));
    on("offer", "click", () => this.#watched.show(this.#moving().map((name) => [name])));
    app.store.subscribe((changed, isNew) => this.#take(changed, isNew));
    app.connection.subscribe(() => this.#markGap());
    app.listen("recorded", ({ isKept }) => {
      this.#isRecorded = isKept;
      this.#say("");
      this.#readHistory();
    });
    this.#watched.subscribe(() => {
      this.#restore();
      this.#say("");
    });
    new Layouts(() => this.#watched.layout, (layout) => this.#watched.show(layout));
    this.#learn();
    this.#load();
  }

  show() {
    this.#timer ||= setInterval(() => this.#draw(), DRAW_MS);
    this.#draw();
  }

  hide() {
    clearInterval(this.#timer);
    this.#timer = 0;
  }

  isRecording() {
    return this.#recordings.size > 0;
  }

  async #load() {
    if (!await loadPlots()) {
      this.#warning = "Plots are not available: the plotting library was not there when the console was built. "
        + "Values are recorded and can be exported.";
    }
    this.#say("");
    this.#draw();
  }

  // What can be watched is known with the first tree.
  #learn() {
    this.#series = seriesOf(this.#app.store, this.#app.catalogue);
    byId("watch-numbers").replaceChildren(...[...this.#series.keys()].map((name) => element("option", { value: name })));
    this.#restore();
  }

  // Shows what this or another page has chosen.
  #restore() {
    const layout = this.#watched.layout.map((names) => names.filter((name) => this.#series.has(name)))
      .filter((names) => names.length > 0);
    const names = layout.flat();
    [...this.#recordings.keys()].filter((name) => !names.includes(name)).forEach((name) => this.#recordings.delete(name));
    for (const name of names.filter((each) => !this.#recordings.has(each))) {
      this.#recordings.set(name, new Recording(this.#app.store, name, this.#series.get(name)));
    }
    this.#plots.forEach(({ plot }) => plot.destroy());
    this.#plots = layout.map((each) => this.#plotNode(each));
    byId("watch-plots").replaceChildren(...this.#plots.map(({ node }) => node));
    const into = byId("watch-into").value;
    byId("watch-into").replaceChildren(element("option", { value: "" }, "a new plot"), ...layout.map(([first]) =>
      element("option", { value: first, selected: first === into }, `the plot of ${first.split(".").slice(1).join(".")}`)));
    if (this.#series.size > 0) this.#app.feed.record(this.#watched.layout.flat());
    this.#draw();
  }

  #plotNode(names) {
    const chart = element("div", { class: "chart" });
    const lines = names.map((name, i) => {
      const value = element("span", { class: "now" });
      const remove = element("button", { "aria-label": `Remove ${name}`, onclick: () => this.#remove(name) }, "Remove");
      const node = element("div", { class: "series", "data-watch": name, "data-colour": i % COLOURS },
        element("span", { class: "name" }, name), value, remove);
      return { name, value, node };
    });
    const node = element("figure", { class: "plot" }, element("figcaption", {}, ...lines.map((line) => line.node)), chart);
    const plot = new Plot(chart, {
      onZoom: (min, max) => this.#setZoom({ min, max }),
      onReset: () => this.#setZoom(null),
      onCursor: (time) => { this.#cursor = time; },
    });
    return { node, plot, lines };
  }

  // While the values may be old, nothing is known.
  #markGap() {
    for (const recording of this.#recordings.values()) {
      this.#app.connection.isStale ? recording.addGap() : recording.add(this.#app.store);
    }
  }

  #take(changed, isNew) {
    if (isNew) this.#learn();
    for (const recording of this.#recordings.values()) {
      if (changed.has(this.#app.store.variables.get(recording.key))) recording.add(this.#app.store);
    }
  }

  // What was recorded before this page, or before the name was shown here.
  async #readHistory() {
    const missing = [...this.#recordings.values()].filter((recording) => !recording.hasHistory);
    if (missing.length === 0) return;
    missing.forEach((recording) => { recording.hasHistory = true; });
    const history = await readHistory(missing.map(({ name }) => name));
    missing.forEach((recording) => recording.addHistory(history.get(recording.name)));
    this.#draw();
  }

  // The whole name, or an end of it that only one has.
  #addTyped() {
    const input = byId("watch-add");
    const typed = input.value.trim().toLowerCase();
    const fits = [...this.#series.keys()].filter((name) => `.${name.toLowerCase()}`.endsWith(`.${typed}`));
    if (typed !== "" && fits.length === 1) {
      this.#watched.add(fits[0], byId("watch-into").value);
      input.value = "";
      this.#say("");
    } else if (typed !== "") {
      this.#say(fits.length === 0 ? "Nothing that can be watched has this name." : `${fits.length} names fit: type more.`);
    }
  }

  #remove(name) {
    this.#watched.remove(name);
    byId("watch-add").focus();
  }

  #say(text) {
    const ends = [!this.#watched.isKept && "watched", !this.#isRecorded && "recorded"].filter(Boolean).join(" and ");
    setText(byId("watch-note"), text || ends && `What is ${ends} ends with this page: ${FULL}.` || this.#warning);
  }

  // The numbers that have changed most often since the page was opened.
  #moving() {
    const moved = [...this.#app.store.variables.values()].filter(({ kind, changes }) => changes && ["int", "float"].includes(kind));
    return moved.sort((one, other) => other.changes - one.changes).slice(0, OFFERED).map(({ key }) => key);
  }

  #offer() {
    const isEmpty = this.#watched.layout.length === 0;
    const moving = isEmpty ? this.#moving() : [];
    byId("watch-offer").hidden = moving.length < OFFERED;
    setText(byId("watch-offer"), `Watch three numbers that move: ${moving.map((name) => name.split(".")[1]).join(", ")}`);
  }

  #setZoom(zoom) {
    this.#zoom = zoom && fitted(zoom);
    byId("watch-reset").disabled = zoom === null;
    this.#draw();
  }

  // Makes the part that is shown `by` times as long around its middle, or moves it by a share of its length.
  #step({ by, move }) {
    if (!by && !move) return;
    const { min, max } = this.#part();
    const middle = (min + max) / 2 + (max - min) * Number(move ?? 0);
    const half = (max - min) * Number(by ?? 1) / 2;
    this.#setZoom({ min: middle - half, max: middle + half });
  }

  #part() {
    const now = this.#pausedAt ?? Date.now() / 1000;
    return this.#zoom ?? { min: now - Number(byId("watch-span").value), max: now };
  }

  #draw() {
    if (this.#timer === 0 || document.hidden) return;
    this.#offer();
    const now = this.#pausedAt ?? Date.now() / 1000;
    const { min, max } = this.#part();
    for (const { plot, lines } of this.#plots) {
      const series = lines.map(({ name, value }) => {
        const recording = this.#recordings.get(name);
        setText(value, this.#valueText(recording.at(this.#cursor ?? now)));
        const [times, values] = recording.between(min, Math.min(max, now));
        return { name, isBand: recording.isBand, times, values };
      });
      plot.draw(series, min, max);
    }
  }

  #valueText(value) {
    const when = this.#cursor === null ? "" : ` at ${clockText(this.#cursor * 1000)}`;
    if (value === undefined && when === "") return "";
    return `${(value ?? null) === null ? "not known" : typeof value === "number" ? Number(value.toPrecision(7)) : value}${when}`;
  }

  // The picture keeps still; values are recorded on.
  #togglePause() {
    this.#pausedAt = this.#pausedAt === null ? Date.now() / 1000 : null;
    setPressed(byId("watch-pause"), this.#pausedAt !== null, "Pause", "Go on");
  }

  #export() {
    if (this.#recordings.size === 0) {
      this.#say("Nothing is watched yet.");
      return;
    }
    saveAs(`watch-${timeStamp()}.csv`, "text/csv", [asCsv([...this.#recordings.values()])]);
  }
}

// The part around the same middle, as long as a part may be.
function fitted({ min, max }) {
  const middle = (min + max) / 2;
  const half = Math.min(Math.max(max - min, SHORTEST), LONGEST) / 2;
  return { min: middle - half, max: middle + half };
}
