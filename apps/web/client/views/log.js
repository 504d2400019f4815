// The kernel log, live.

import { byId, element, setPressed, setText } from "../dom.js";
import { LogText } from "../model/logtext.js";

// While nobody reads further up, old lines make room. Who reads keeps the place: then more lines are kept.
const KEPT_LINES = 5000;
const KEPT_LINES_READING = 20000;
const AT_END_PX = 24;

export class LogView {
  #app;
  #output = byId("log-output");
  #text = new LogText();
  #state = "";
  #isPaused = false;
  #waiting = [];
  #place = 0;

  constructor(app) {
    this.#app = app;
    app.listen("log", (message) => this.#receive(message));
    app.listen("log-state", (message) => this.#receive(message));
    byId("log-filter").addEventListener("input", () => this.#filter());
    byId("log-follow").addEventListener("change", () => this.#follow());
    byId("log-pause").addEventListener("click", () => this.#togglePause());
    this.#output.addEventListener("scroll", () => this.#scrolled(), { passive: true });
  }

  show() {
    this.#app.need("log", true);
    this.#output.scrollTop = this.#place;
    this.#follow();
  }

  hide() {
    this.#place = this.#output.scrollTop;
    this.#app.need("log", false);
  }

  #receive(message) {
    if (message.type === "log-state") {
      this.#state = message.text;
      this.#count();
    } else if (this.#isPaused) {
      this.#waiting = message.reset ? [message] : [...this.#waiting, message];
    } else {
      this.#add(message);
    }
  }

  #add({ reset, text }) {
    if (reset) {
      this.#text = new LogText();
      this.#output.replaceChildren();
    }
    const words = this.#words();
    const lines = this.#text.take(text).slice(-KEPT_LINES);
    const fragment = document.createDocumentFragment();
    fragment.append(...lines.map((pieces) => lineNode(pieces, words)));
    this.#output.append(fragment);
    this.#makeRoom();
    this.#follow();
    this.#count();
  }

  #makeRoom() {
    const kept = byId("log-follow").checked ? KEPT_LINES : KEPT_LINES_READING;
    for (let surplus = this.#output.childElementCount - kept; surplus > 0; --surplus) {
      this.#output.firstChild.remove();
    }
  }

  #words() {
    return byId("log-filter").value.trim().toLowerCase();
  }

  #filter() {
    const words = this.#words();
    for (const line of this.#output.children) {
      line.hidden = !line.textContent.toLowerCase().includes(words);
    }
    this.#follow();
    this.#count();
  }

  #follow() {
    if (byId("log-follow").checked) this.#output.scrollTop = this.#output.scrollHeight;
  }

  // Who scrolls up reads; who comes back to the end follows again.
  #scrolled() {
    if (this.#output.clientHeight > 0) {
      const { scrollTop, scrollHeight, clientHeight } = this.#output;
      byId("log-follow").checked = scrollHeight - scrollTop - clientHeight < AT_END_PX;
    }
  }

  #togglePause() {
    this.#isPaused = !this.#isPaused;
    setPressed(byId("log-pause"), this.#isPaused, "Pause", "Go on");
    if (!this.#isPaused) this.#waiting.splice(0).forEach((message) => this.#add(message));
  }

  #count() {
    const all = this.#output.childElementCount;
    const shown = this.#words() === "" ? all : [...this.#output.children].filter((line) => !line.hidden).length;
    setText(byId("log-count"), this.#state || (shown === all ? `${all} lines` : `${shown} of ${all} lines`));
  }
}

function lineNode(pieces, words) {
  const spans = pieces.map(({ text, classes }) =>
    (classes.length === 0 ? text : element("span", { class: classes.join(" ") }, text)));
  const line = element("div", {}, ...spans);
  line.hidden = words !== "" && !line.textContent.toLowerCase().includes(words);
  return line;
}
