// Named layouts of the Watch view: save, open, delete, export and import.

import { ask, byId, element, saveAs, setText } from "../dom.js";
import { timeStamp } from "../model/format.js";
import { layoutsText, readLayouts } from "../model/layouts.js";
import { FULL, KeptEach, takeFormer } from "../model/remember.js";

const LOST = `it ends with this page unless it is exported: ${FULL}`;

export class Layouts {
  #kept = new KeptEach("console.layout.");
  #get;
  #set;

  // get() returns the present layout; set(layout) shows another one.
  constructor(get, set) {
    this.#get = get;
    this.#set = set;
    this.#kept.change(Object.entries(takeFormer("console.layouts", {})));
    byId("layout-form").addEventListener("submit", (event) => {
      event.preventDefault();
      this.#save(byId("layout-name").value.trim());
    });
    byId("layout-export").addEventListener("click", () =>
      saveAs(`layouts-${timeStamp()}.json`, "application/json", [layoutsText(Object.fromEntries(this.#kept.values))]));
    byId("layout-import").addEventListener("change", () => this.#import());
    this.#kept.subscribe(() => this.#list());
    this.#list();
  }

  #list() {
    const items = [...this.#kept.values].sort().map(([name, layout]) => {
      const open = element("button", { onclick: () => this.#set(layout) }, `Open ${name}`);
      const remove = element("button", { class: "delete", onclick: () => this.#delete(name) }, `Delete ${name}`);
      return element("li", { "data-layout": name }, open, remove);
    });
    byId("layout-list").replaceChildren(...items);
    byId("layout-export").disabled = items.length === 0;
  }

  async #save(name) {
    if (name === "") return this.#say("A layout needs a name.");
    if (!await this.#mayReplace([name])) return undefined;
    const isKept = this.#kept.change([[name, this.#get()]]);
    byId("layout-name").value = "";
    return this.#say(isKept ? `${name} is saved in this browser.` : `${name}: ${LOST}.`);
  }

  async #mayReplace(names) {
    const known = names.filter((name) => this.#kept.values.has(name));
    return known.length === 0 || ask(`Replace ${known.join(", ")}?`, "Replace");
  }

  async #delete(name) {
    if (!await ask(`Delete the layout ${name}?`, "Delete")) return;
    this.#kept.change([[name, undefined]]);
    byId("watch-layouts").querySelector("summary").focus(); // its button is gone
    this.#say(`${name} is deleted.`);
  }

  async #import() {
    const [file] = byId("layout-import").files;
    if (!file) return;
    try {
      const layouts = readLayouts(await file.text());
      if (!await this.#mayReplace(Object.keys(layouts))) return;
      const isKept = this.#kept.change(Object.entries(layouts));
      this.#say(`Imported: ${Object.keys(layouts).join(", ")}${isKept ? "" : `; ${LOST}`}.`);
    } catch (error) {
      this.#say(`${file.name} is not imported: ${error.message}.`);
    } finally {
      byId("layout-import").value = "";
    }
  }

  #say(text) {
    setText(byId("layout-note"), text);
  }
}
