// Numbers over time, several at once.

import { byId, element, saveAs, setPressed, setText } from "../dom.js";
import { timeStamp } from "../model/format.js";
import { loadPlots, Plot } from "./plot.js";
import { asCsv, numbersOf, Recording } from "../model/recording.js";
import { Kept } from "../model/remember.js";

const DRAW_MS = 100;
// Seconds that a part has at least.
const SHORTEST = 0.1;

export class WatchView {
  #app;
  #watched = new Map();
  #numbers = [];
  #pausedAt = null;
  #zoom = null;
  #timer = 0;
  #hasPlots = false;
  #kept = new Kept("console.watched", []);

  constructor(app) {
    this.#app = app;
    byId("watch-form").addEventListener("submit", (event) => {
      event.preventDefault();
      this.#addTyped();
    });
    byId("watch-pause").addEventListener("click", () => this.#togglePause());
    byId("watch-reset").addEventListener("click", () => this.#setZoom(null));
    byId("watch-span").addEventListener("change", () => this.#setZoom(null));
    byId("watch-export").addEventListener("click", () => this.#export());
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.#redress());
    byId("watch-zoom").addEventListener("click", (event) => this.#step(event.target.dataset));
    app.store.subscribe((changed, isNew) => this.#take(changed, isNew));
    app.connection.subscribe(() => this.#markGap());
    this.#kept.subscribe(() => this.#restore());
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
    return this.#watched.size > 0 && this.#pausedAt === null;
  }

  async #load() {
    this.#hasPlots = await loadPlots();
    if (!this.#hasPlots) {
      setText(byId("watch-note"), "Plots are not available: the plotting library was not there when the console "
        + "was built. Values are recorded and can be exported.");
    }
    this.#redress();
  }

  // What can be watched is known with the first tree.
  #learn() {
    this.#numbers = numbersOf(this.#app.store);
    byId("watch-numbers").replaceChildren(...this.#numbers.map((name) => element("option", { value: name })));
    this.#restore();
  }

  // Shows what this or another page has chosen.
  #restore() {
    const names = this.#kept.value;
    [...this.#watched.keys()].filter((name) => !names.includes(name)).forEach((name) => this.#close(name));
    names.filter((name) => this.#numbers.includes(name) && !this.#watched.has(name)).forEach((name) => this.#show(name));
  }

  // While the values may be old, nothing is known.
  #markGap() {
    for (const { recording } of this.#watched.values()) {
      this.#app.connection.isStale ? recording.addGap() : recording.add(this.#app.store);
    }
  }

  #take(changed, isNew) {
    if (isNew) this.#learn();
    for (const { recording } of this.#watched.values()) {
      if (changed.has(this.#app.store.variables.get(recording.key))) recording.add(this.#app.store);
    }
  }

  // The whole name, or an end of it that only one number has.
  #addTyped() {
    const input = byId("watch-add");
    const typed = input.value.trim().toLowerCase();
    const fits = this.#numbers.filter((name) => `.${name.toLowerCase()}`.endsWith(`.${typed}`));
    if (typed !== "" && fits.length === 1) {
      this.#add(fits[0]);
      input.value = "";
      this.#say("");
    } else if (typed !== "") {
      this.#say(fits.length === 0 ? "No number has this name." : `${fits.length} numbers fit this name: type more of it.`);
    }
  }

  #say(text) {
    if (this.#hasPlots) setText(byId("watch-note"), text);
  }

  #add(name) {
    this.#kept.change((names) => [...names.filter((each) => each !== name), name]);
  }

  #remove(name) {
    this.#kept.change((names) => names.filter((each) => each !== name));
    byId("watch-add").focus();
  }

  #show(name) {
    const value = element("span", { class: "now" });
    const chart = element("div", { class: "chart" });
    const remove = element("button", { "aria-label": `Remove ${name}` }, "Remove");
    remove.addEventListener("click", () => this.#remove(name));
    const node = element("figure", { class: "plot", "data-watch": name },
      element("figcaption", {}, element("span", { class: "name" }, name), value, remove), chart);
    byId("watch-plots").append(node);
    this.#watched.set(name, { recording: new Recording(this.#app.store, name), node, chart, value, plot: null });
    this.#dress(this.#watched.get(name));
  }

  #close(name) {
    const { plot, node } = this.#watched.get(name);
    plot?.destroy();
    node.remove();
    this.#watched.delete(name);
  }

  #dress(watched) {
    watched.plot?.destroy();
    watched.chart.replaceChildren();
    watched.plot = !this.#hasPlots ? null : new Plot(watched.chart, {
      onZoom: (min, max) => this.#setZoom({ min, max }),
      onReset: () => this.#setZoom(null),
      onCursor: (time) => { watched.cursor = time; },
    });
  }

  #redress() {
    this.#watched.forEach((watched) => this.#dress(watched));
    this.#draw();
  }

  #setZoom(zoom) {
    this.#zoom = zoom;
    byId("watch-reset").disabled = zoom === null;
    this.#draw();
  }

  // Makes the part that is shown `by` times as long around its middle, or moves it by a share of its length.
  #step({ by, move }) {
    if (!by && !move) return;
    const { min, max } = this.#part();
    const middle = (min + max) / 2 + (max - min) * Number(move ?? 0);
    const half = Math.max((max - min) * Number(by ?? 1), SHORTEST) / 2;
    this.#setZoom({ min: middle - half, max: middle + half });
  }

  #part() {
    const now = this.#pausedAt ?? Date.now() / 1000;
    return this.#zoom ?? { min: now - Number(byId("watch-span").value), max: now };
  }

  #draw() {
    if (this.#timer === 0 || document.hidden) return;
    const now = this.#pausedAt ?? Date.now() / 1000;
    const { min, max } = this.#part();
    for (const { recording, plot, value, cursor } of this.#watched.values()) {
      const shown = recording.at(cursor ?? now);
      const when = cursor ? ` at ${new Date(cursor * 1000).toLocaleTimeString()}` : "";
      setText(value, shown === undefined ? "" : shown === null ? `not known${when}` : `${Number(shown.toPrecision(7))}${when}`);
      plot?.draw(recording.between(min, Math.min(max, now)), min, max);
    }
  }

  // The picture stands still; values are recorded on.
  #togglePause() {
    this.#pausedAt = this.#pausedAt === null ? Date.now() / 1000 : null;
    setPressed(byId("watch-pause"), this.#pausedAt !== null, "Pause", "Go on");
  }

  #export() {
    const recordings = [...this.#watched.values()].map(({ recording }) => recording);
    if (recordings.length === 0) {
      this.#say("Nothing is watched yet.");
      return;
    }
    saveAs(`watch-${timeStamp()}.csv`, "text/csv", [asCsv(recordings)]);
  }
}
