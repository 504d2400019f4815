// The kernel log, live.

import { byId, element, saveAs, setPressed, setText } from "../dom.js";
import { readAll, readBefore } from "../feed/logfeed.js";
import { LogText, PlainText } from "../model/logtext.js";
import { sizeText, timeStamp } from "../model/format.js";
import { LogFilter } from "./logfilter.js";

// Lines that are kept; more while the user reads further up, so that the lines in view stay.
const KEPT_LINES = 5000;
const KEPT_LINES_READING = 20000;
const EARLIER_BYTES = 1_000_000;
const AT_END_PX = 24;

export class LogView {
  #app;
  #output = byId("log-output");
  #text = new LogText();
  #state = "";
  #isShown = false;
  #isPaused = false;
  #start = 0;
  #placed = 0;
  #anchor = null;
  #saving = null;
  #filter;

  constructor(app) {
    this.#app = app;
    // The service logs that the tree is read.
    this.#filter = new LogFilter(this.#output, () => this.#choose(), () => app.readBack());
    app.listen("log", (message) => this.#add(message));
    app.listen("log-state", ({ text }) => this.#say(text));
    byId("log-save").addEventListener("click", () => this.#save());
    byId("log-follow").addEventListener("change", () => this.#keepPlace());
    byId("log-pause").addEventListener("click", () => this.#togglePause());
    byId("log-earlier").addEventListener("click", () => this.#readEarlier());
    this.#output.addEventListener("scroll", () => this.#scrolled(), { passive: true });
    // Its height changes with the controls above it, the keyboard of a phone, and when a phone is turned.
    new ResizeObserver(() => this.#keepPlace()).observe(this.#output);
  }

  show() {
    this.#isShown = true;
    this.#need();
    this.#keepPlace();
  }

  hide() {
    this.#isShown = false;
    this.#need();
  }

  // A paused log is not read: the feed sends what has come meanwhile when it is wanted again.
  #need() {
    this.#app.need("log", this.#isShown && !this.#isPaused);
  }

  #add({ reset, text, start }) {
    if (reset) {
      this.#text = new LogText();
      this.#output.replaceChildren();
      this.#start = start;
    }
    const lines = this.#text.take(text);
    if (lines.length > KEPT_LINES) this.#start = null;
    const nodes = lines.slice(-KEPT_LINES).map(lineNode);
    this.#output.append(...nodes);
    this.#filter.take(nodes, reset ? "instead" : "behind");
    this.#makeRoom();
    if (reset) this.#findAnchor();
    if (this.#filter.isActive) this.#filter.apply();
    this.#keepPlace();
    this.#count();
  }

  #makeRoom() {
    const kept = byId("log-follow").checked ? KEPT_LINES : KEPT_LINES_READING;
    for (let surplus = this.#output.childElementCount - kept; surplus > 0; --surplus) {
      this.#output.firstChild.remove();
      this.#start = null; // no longer known
    }
  }

  // Puts lines in front, as many as fit into one request's share.
  async #readEarlier() {
    const button = byId("log-earlier");
    byId("log-follow").checked = false;
    this.#remember();
    button.disabled = true;
    const until = this.#start;
    try {
      const { text, start } = await readBefore(until, EARLIER_BYTES, (share) =>
        setText(button, `Earlier lines, ${Math.round(share * 100)} %`), AbortSignal.timeout(60_000));
      if (this.#start === until) this.#addBefore(text, start);
    } catch {
      this.#say("Earlier lines could not be read.");
    }
    button.disabled = false;
    this.#count();
  }

  #addBefore(text, start) {
    const lines = new LogText().take(text);
    const nodes = lines.slice(-KEPT_LINES_READING + this.#output.childElementCount).map(lineNode);
    this.#output.prepend(...nodes);
    this.#filter.take(nodes, "before");
    this.#filter.apply();
    this.#start = start;
    this.#keepPlace();
  }

  #choose() {
    this.#filter.apply();
    this.#keepPlace();
    this.#count();
  }

  // All of the log, also what is not shown, without its colours. A second press stops. Each part becomes a Blob, which the
  // browser keeps outside of the page's memory.
  async #save() {
    if (this.#saving) {
      this.#saving.abort();
      return;
    }
    const button = byId("log-save");
    this.#saving = new AbortController();
    try {
      const text = new PlainText();
      const parts = [];
      await readAll((bytes, share) => {
        parts.push(new Blob([text.take(bytes)]));
        setText(button, `Stop saving, ${Math.round(share * 100)} %`);
      }, this.#saving.signal);
      saveAs(`log-${timeStamp()}.txt`, "text/plain", [...parts, text.end()]);
    } catch {
      this.#say(this.#saving.signal.aborted ? "Nothing is saved." : "The log could not be read: nothing is saved.");
    }
    this.#saving = null;
    setText(button, "Save all");
  }

  // Shows the end, or the line that was last scrolled to: hidden by the filter, the next one that is not.
  #keepPlace() {
    if (byId("log-follow").checked) {
      this.#output.scrollTop = this.#output.scrollHeight;
    } else if (this.#anchor?.line.isConnected) {
      let { line } = this.#anchor;
      while (line?.hidden) line = line.nextElementSibling;
      if (line) this.#output.scrollTop = line.offsetTop - this.#output.offsetTop + this.#anchor.offset;
    }
    this.#placed = this.#output.scrollTop;
  }

  // The user scrolls up to read and down to follow. Scrolling by the view itself changes neither.
  #scrolled() {
    const { scrollTop, scrollHeight, clientHeight } = this.#output;
    if (clientHeight === 0 || scrollTop === this.#placed) return;
    byId("log-follow").checked = scrollHeight - scrollTop - clientHeight < AT_END_PX;
    this.#remember();
  }

  #remember() {
    const { scrollTop, offsetTop } = this.#output;
    const lines = [...this.#output.children].filter((each) => !each.hidden);
    let low = 0;
    for (let high = lines.length; low < high;) {
      const middle = (low + high) >> 1;
      if (lines[middle].offsetTop + lines[middle].offsetHeight - offsetTop <= scrollTop) low = middle + 1;
      else high = middle;
    }
    const line = lines[low];
    this.#anchor = line ? { line, offset: scrollTop - (line.offsetTop - offsetTop) } : null;
  }

  // The line in a log that has come once more.
  #findAnchor() {
    const text = this.#anchor?.line.textContent;
    const line = [...this.#output.children].findLast((each) => each.textContent === text);
    if (line) this.#anchor.line = line;
  }

  #togglePause() {
    this.#isPaused = !this.#isPaused;
    setPressed(byId("log-pause"), this.#isPaused, "Pause", "Go on");
    this.#need();
  }

  #say(text) {
    this.#state = text;
    this.#count();
  }

  #count() {
    const all = this.#output.childElementCount;
    const shown = this.#filter.isActive ? this.#output.querySelectorAll(":scope > :not([hidden], .around)").length : all;
    setText(byId("log-count"), this.#state || (shown === all ? `${all} lines` : `${shown} of ${all} lines`));
    const earlier = byId("log-earlier");
    earlier.hidden = !this.#start;
    if (!earlier.disabled) setText(earlier, `Earlier lines (${sizeText(this.#start ?? 0)} before)`);
  }
}

function lineNode(pieces) {
  return element("div", {}, ...pieces.map(({ text, classes }) =>
    (classes.length === 0 ? text : element("span", { class: classes.join(" ") }, text))));
}
