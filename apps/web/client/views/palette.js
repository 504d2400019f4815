// One field that leads everywhere: views, actions and variables, best first.

import { element, setText } from "../dom.js";
import { pause } from "../feed/api.js";
import { typeText, valueText } from "../model/format.js";
import { SearchIndex } from "../model/search.js";

const SHOWN = 12;
// What an action needs may be on its way: the first picture, for example.
const WAITS = 50;
const WAIT_MS = 100;

export class Palette {
  #app;
  #index;
  #hits = [];
  #at = 0;
  #list = element("ul", { id: "palette-list", role: "listbox", "aria-label": "What fits" });
  #input = element("input", { type: "text", role: "combobox", "aria-label": "Find a variable, a view or an action",
    "aria-controls": "palette-list", "aria-expanded": "true", "aria-autocomplete": "list", autocomplete: "off",
    placeholder: "Find a variable, a view or an action" });
  #none = element("p", { class: "note", role: "status" });
  #dialog = element("dialog", { class: "palette", "aria-label": "Find" }, this.#input, this.#list, this.#none);

  constructor(app) {
    this.#app = app;
    this.#index = new SearchIndex(app.catalogue.structures);
    document.body.append(this.#dialog);
    this.#input.addEventListener("input", () => this.#show());
    this.#dialog.addEventListener("keydown", (event) => this.#press(event));
    this.#dialog.addEventListener("click", (event) => {
      const option = event.target.closest("[role=option]");
      if (option) this.#run(this.#hits[[...this.#list.children].indexOf(option)]);
      if (event.target === this.#dialog) this.#dialog.close();
    });
  }

  open() {
    if (document.querySelector("dialog[open]")) return;
    this.#input.value = "";
    this.#dialog.showModal();
    this.#show();
  }

  #show() {
    const found = this.#index.find(this.#input.value, [...commands(), ...this.#app.store.variables.values()]);
    this.#hits = found.slice(0, SHOWN);
    this.#list.replaceChildren(...this.#hits.map((hit, i) =>
      element("li", { role: "option", id: `palette-${i}`, "data-hit": hit.key }, element("span", { class: "name" }, hit.name),
        element("span", { class: "note" }, hit.run ? hit.type : `${hit.memory}, ${typeText(hit)}`),
        element("span", { class: "value" }, hit.run ? "" : valueText(hit)))));
    setText(this.#none, found.length === 0 ? `Nothing fits “${this.#input.value.trim()}”.` : "");
    this.#choose(0);
  }

  #choose(at) {
    this.#at = this.#hits.length === 0 ? 0 : (at + this.#hits.length) % this.#hits.length;
    [...this.#list.children].forEach((option, i) => option.setAttribute("aria-selected", i === this.#at));
    const chosen = this.#list.children[this.#at];
    chosen?.scrollIntoView({ block: "nearest" });
    this.#input.setAttribute("aria-activedescendant", chosen?.id ?? "");
  }

  #press(event) {
    const steps = { ArrowDown: 1, ArrowUp: -1 };
    if (event.key in steps) {
      this.#choose(this.#at + steps[event.key]);
    } else if (event.key === "Enter" && this.#hits.length > 0) {
      this.#run(this.#hits[this.#at]);
    } else {
      return;
    }
    event.preventDefault();
  }

  async #run(hit) {
    this.#dialog.close();
    if (hit.run) {
      await hit.run(this.#app);
    } else {
      await this.#app.go("variables", { search: hit.key });
      document.querySelector(`[data-variable="${hit.key}"] .edit`)?.focus();
    }
  }
}

// The views, by the links to them, and the actions, by the attribute "data-action" of what does them.
function commands() {
  const views = [...document.querySelectorAll("nav a")].map((link) =>
    command(link.textContent, "View", async (app) => {
      await app.go(link.hash.slice(1));
      document.querySelector("main").focus();
    }));
  const actions = [...document.querySelectorAll("[data-action]")].map((control) =>
    command(control.dataset.action, "Action", async (app) => {
      await app.go(control.closest("[data-view]").dataset.view);
      for (let waits = 0; control.disabled && waits < WAITS; ++waits) await pause(WAIT_MS);
      control.focus();
      if (control.matches("button, summary, [type=checkbox], [type=file]")) control.click();
    }));
  return [...views, ...actions];
}

const command = (name, type, run) => ({ key: `${type} ${name}`, name, memory: "", type, raw: "", value: "", run });
