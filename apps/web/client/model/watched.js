// What is watched, on all pages of the browser.

import { KeptEach, takeFormer } from "./remember.js";

// Each name is kept with its plot and its place there, both numbers that grow with the time: {plot, at}.
export class Watched {
  #kept = new KeptEach("console.watch.");
  #last = 0;

  constructor() {
    const former = takeFormer("console.watched", []).map((plot) => [plot].flat());
    if (former.length > 0) this.show(former);
  }

  // The names by plot: [["MemDynamic.LensActFocus", "MemDynamic.LensActIris"], ["MemDynamic.BattVoltage"]].
  get layout() {
    const order = ([, one], [, other]) => one.plot - other.plot || one.at - other.at;
    const plots = new Map();
    for (const [name, { plot }] of [...this.#kept.values].sort(order)) plots.set(plot, [...plots.get(plot) ?? [], name]);
    return [...plots.values()];
  }

  // Whether all of it survives this page.
  get isKept() {
    return this.#kept.isKept;
  }

  // Adds a name to the plot that has the name `beside`, or to a plot of its own. A name is in one plot only.
  add(name, beside) {
    const at = this.#next();
    this.#kept.change([[name, { plot: this.#kept.values.get(beside)?.plot ?? at, at }]]);
  }

  remove(name) {
    this.#kept.change([[name, undefined]]);
  }

  // Replaces all by a layout.
  show(layout) {
    const old = [...this.#kept.values.keys()].map((name) => [name, undefined]);
    const pairs = layout.flatMap((names) => {
      const plot = this.#next();
      return names.map((name) => [name, { plot, at: this.#next() }]);
    });
    this.#kept.change([...old, ...pairs]);
  }

  // listener() is called after each change, also of another page.
  subscribe(listener) {
    this.#kept.subscribe(listener);
  }

  // Later than those before. Those of two pages differ, also at the same moment.
  #next() {
    this.#last = Math.max(Date.now() + Math.random(), this.#last + 1);
    return this.#last;
  }
}
