// Puts the console together: what is known, the feeds and the views that are opened by the address's fragment.

import { Connection } from "./views/connection.js";
import { addressOf, readAddress } from "./address.js";
import { byId, loaded, setText } from "./dom.js";
import { connect } from "./feed/client.js";
import { keptNames, recall } from "./model/remember.js";
import { Store } from "./model/store.js";

// Each is loaded when it is opened first.
const VIEWS = {
  variables: async () => (await import("./views/variables.js")).VariablesView,
  watch: async () => (await import("./views/watch.js")).WatchView,
  log: async () => (await import("./views/log.js")).LogView,
  screen: async () => (await import("./views/screen.js")).ScreenView,
  snapshot: async () => (await import("./views/snapshot.js")).SnapshotView,
  device: async () => (await import("./views/device.js")).DeviceView,
};
const loadPalette = () => import("./views/palette.js");
const PALETTE_MS = 2000;
const HIDDEN_FOR_MS = 20000;
const READ_BACK_MS = 15000;
const RETRY_MS = 2000;

// What the views share.
class App {
  #views = {};
  #open = null;
  #opening;
  #wanted = { tree: false, log: false };
  connection = new Connection();
  #rereads = 0;
  #asked = new Map();
  #listeners = new Map();
  #palette = null;
  #firmware = null;

  constructor(catalogue) {
    this.catalogue = catalogue;
    this.store = new Store(catalogue);
    this.listen("reread", ({ number, came }) => {
      this.#asked.get(number)?.(came);
      this.#asked.delete(number);
    });
    this.feed = connect((message) => this.#receive(message));
  }

  start() {
    const need = () => this.#need(!document.hidden);
    let timer;
    document.addEventListener("visibilitychange", () => {
      clearTimeout(timer);
      timer = setTimeout(need, document.hidden ? HIDDEN_FOR_MS : 0);
      this.#views[this.#open]?.[document.hidden ? "hide" : "show"]();
    });
    addEventListener("pagehide", () => this.feed.need({ tree: false, log: false }));
    addEventListener("pageshow", (event) => event.persisted && this.feed.need(this.#wanted));
    addEventListener("hashchange", () => this.#route());
    addEventListener("keydown", (event) => this.#listenForPalette(event));
    byId("find").addEventListener("click", () => this.#openPalette());
    // The address is that of a view: the link does not change it.
    document.querySelector(".skip").addEventListener("click", (event) => {
      event.preventDefault();
      byId("main").focus();
    });
    this.store.subscribe(() => this.#showProduct());
    new ResizeObserver(([{ target }]) =>
      document.documentElement.style.setProperty("--header", `${target.offsetHeight}px`)).observe(document.querySelector("header"));
    this.#route();
    this.#need(true);
    if (recall("console.update", null)) this.firmware();
    const watched = keptNames("console.watch.");
    if (watched.length > 0) this.feed.record(watched);
    // So that it is there for the first key that is typed into it.
    setTimeout(() => this.#makePalette(loadPalette).catch(() => {}), PALETTE_MS);
  }

  // The updates of this browser, which go on in each of its pages.
  async firmware() {
    const load = () => import("./model/firmware.js").catch(() =>
      new Promise((resolve) => setTimeout(resolve, RETRY_MS)).then(load));
    const { Firmware } = await load();
    return this.#firmware ??= new Firmware(this);
  }

  // Whether a feed, "log" or "screen", is wanted: only while it is looked at.
  need(feed, isWanted) {
    this.#wanted[feed] = isWanted;
    this.feed.need({ ...this.#wanted });
  }

  // listener() gets the messages of a feed that have this type.
  listen(type, listener) {
    this.#listeners.set(type, listener);
  }

  // Reads the tree anew; resolves to whether it came.
  readBack() {
    const number = ++this.#rereads;
    this.feed.reread(number);
    return new Promise((resolve) => {
      this.#asked.set(number, resolve);
      setTimeout(resolve, READ_BACK_MS, false);
    });
  }

  // Opens a view; resolves when it is there.
  async go(view, params = {}) {
    location.hash = addressOf(view, params);
    await this.#route();
  }

  // Also "/", unless it is typed into something.
  #listenForPalette(event) {
    const isTyping = event.target.closest?.("input:not([type=checkbox]), textarea, select, dialog");
    const isAsked = event.key.toLowerCase() === "k" && (event.ctrlKey || event.metaKey) || event.key === "/" && !isTyping;
    if (!isAsked) return;
    event.preventDefault();
    this.#openPalette();
  }

  // At once where it is there: the next key is typed into it.
  async #openPalette() {
    if (!this.#palette) await this.#makePalette(() => loaded(loadPalette, "The search over views, actions and variables"));
    this.#palette?.open();
  }

  async #makePalette(load) {
    const module = await load();
    if (module) this.#palette ??= new module.Palette(this);
  }

  // A hidden page reads nothing, unless it records or follows an update.
  #need(isSeen) {
    this.#wanted.tree = isSeen || Boolean(this.#views.watch?.isRecording() || this.#firmware?.isActive);
    this.feed.need({ ...this.#wanted });
  }

  #receive(message) {
    this.#listeners.get(message.type)?.(message);
    if (message.type === "tree" || message.type === "update") this.#apply(message);
    if (message.type === "tree" || message.type === "state") this.connection.take(message);
  }

  #apply({ type, text }) {
    try {
      this.store.apply(text, type === "tree");
    } catch (error) {
      console.warn(error);
      this.feed.reread(0);
    }
  }

  #route() {
    const asked = readAddress().view;
    const name = Object.hasOwn(VIEWS, asked) ? asked : "variables";
    if (name === this.#open) {
      this.#views[name]?.takeAddress?.();
      return this.#opening;
    }
    this.#views[this.#open]?.hide();
    this.#open = name;
    document.querySelectorAll("nav a").forEach((link) => {
      link.hash === `#${name}` ? link.setAttribute("aria-current", "page") : link.removeAttribute("aria-current");
    });
    this.#showTitle();
    this.#opening = this.#show(name);
    return this.#opening;
  }

  // Nothing of a view is seen before its module is there. A view that comes when another is open already is not shown.
  async #show(name) {
    const see = (seen, words = "") => {
      document.querySelectorAll("[data-view]").forEach((section) => { section.hidden = section.dataset.view !== seen; });
      setText(byId("loading"), words);
    };
    if (!this.#views[name]) see(null, "Loading");
    try {
      const View = await VIEWS[name]();
      if (this.#open !== name) return;
      this.#views[name] ??= new View(this);
      see(name);
      this.#views[name].show();
    } catch (error) {
      console.warn(error);
      if (this.#open === name) see(null, "This view could not be loaded. Trying again.");
      setTimeout(() => this.#open === name && this.#show(name), RETRY_MS);
    }
  }

  #showTitle() {
    const view = document.querySelector("nav [aria-current]").textContent;
    document.title = `${view} – ${byId("product").textContent} console`;
  }

  #showProduct() {
    const name = this.store.variables.get("MemPersistent.ProductName")?.value;
    if (name) {
      setText(byId("product"), name);
    }
    this.#showTitle();
  }
}

// Without the catalogue the console still works; it then does not know capacities and structures.
async function readCatalogue() {
  try {
    return await (await fetch("catalogue.json")).json();
  } catch {
    return { variables: {}, structures: {}, enumerations: {} };
  }
}

new App(await readCatalogue()).start();
