// Chooses the lines of the log: by words, level and process, with the lines around the hits; and tells their wall time.

import { byId, element } from "../dom.js";
import { LEVELS, readLine, StartTime } from "../model/logline.js";

export class LogFilter {
  #lines;
  #known = new WeakMap();
  #processes = new Set();
  #start = new StartTime();

  // For the children of `lines`. change() is called when others are wanted, needLine() when the wall time needs a new line.
  constructor(lines, change, needLine) {
    this.#lines = lines;
    byId("log-level").append(...LEVELS.slice(1).map((level, i) => element("option", { value: i + 1 }, `${level} and above`)));
    for (const id of ["log-filter", "log-level", "log-process", "log-around"]) byId(id).addEventListener("input", change);
    byId("log-wall").addEventListener("change", () => {
      if (byId("log-wall").checked && this.#start.seconds === undefined) needLine();
      this.#showTimes([...lines.children]);
    });
  }

  // Whether lines may be left out.
  get isActive() {
    return ["log-filter", "log-level", "log-process"].some((id) => byId(id).value.trim() !== "");
  }

  // Takes lines that are new at a place: "before" the others, "instead" of them, or "behind" them, just written: of these
  // the wall time is learnt.
  take(lines, place) {
    for (const line of lines) {
      const facts = readLine(line.textContent);
      this.#known.set(line, facts);
      if (facts.process && !this.#processes.has(facts.process)) this.#offer(facts.process);
    }
    const last = place !== "before" && this.#known.get(lines.at(-1))?.seconds;
    if (last) this.#start.follow(last);
    const isOther = last && place === "behind" && this.#start.learn(last);
    if (byId("log-wall").checked) this.#showTimes(isOther ? [...this.#lines.children] : lines);
  }

  // Hides what does not fit, and marks hits among the lines around them.
  apply() {
    const around = Number(byId("log-around").value);
    const lines = [...this.#lines.children];
    const isActive = this.isActive;
    const hits = lines.map((line) => !isActive || this.#isHit(this.#known.get(line)));
    const near = new Set(hits.flatMap((isHit, i) => (isHit && isActive && around > 0
      ? Array.from({ length: 2 * around + 1 }, (_, step) => i - around + step) : [])));
    lines.forEach((line, i) => {
      line.hidden = !hits[i] && !near.has(i);
      line.classList.toggle("around", !hits[i]);
      line.classList.toggle("hit", hits[i] && near.size > 0);
    });
    return hits.filter(Boolean).length;
  }

  // A line without a level passes the choice of levels.
  #isHit({ lower, level, process }) {
    const least = Number(byId("log-level").value);
    const wanted = byId("log-process").value;
    return lower.includes(byId("log-filter").value.trim().toLowerCase()) && (level === undefined || level >= least)
      && (wanted === "" || process === wanted || wanted === "kernel" && process === undefined);
  }

  #offer(process) {
    this.#processes.add(process);
    byId("log-process").append(element("option", {}, process));
  }

  #showTimes(lines) {
    const isWanted = byId("log-wall").checked;
    for (const line of lines) {
      const { seconds } = this.#known.get(line);
      if (isWanted && seconds !== undefined) line.dataset.time = this.#timeText(seconds);
      else delete line.dataset.time;
    }
  }

  #timeText(seconds) {
    if (this.#start.seconds === undefined) return "known with the next line";
    const time = new Date((this.#start.seconds + seconds) * 1000);
    return `${time.toLocaleTimeString("en-GB")}.${Math.floor(time.getMilliseconds() / 100)}`;
  }
}
