// A plot of values over time on a canvas: numbers as stepped lines over one scale, states as bands below them.

import { element } from "../dom.js";

const NUMBERS_PX = 150;
const BAND_PX = 24;
const AXIS_PX = 26;
const LEFT_PX = 64;
const FONT = "12px system-ui";
const LABEL_PX = 90;
const DASHES = [[], [6, 3], [2, 3], [8, 3, 2, 3]];
const X_STEPS = [0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 1800];
// A marked part that is shorter than this was a click.
const CLICK_PX = 4;

export const COLOURS = 4;

// 14:03:07, and 14:03:07.5 between whole seconds.
function clock(time) {
  const part = Math.round((time % 1) * 100) / 100;
  return new Date(time * 1000).toLocaleTimeString("en-GB") + (part > 0 && part < 1 ? String(part).slice(1) : "");
}

// Whole multiples of a round step that divides the span into at most so many parts.
function ticks(min, max, most, steps) {
  const span = (max - min) / most;
  const power = 10 ** Math.floor(Math.log10(span));
  const round = steps ?? [1, 2, 5, 10].map((each) => each * power);
  const step = round.find((each) => each >= span) ?? round.at(-1);
  const first = Math.ceil(min / step);
  const count = Math.max(Math.floor(max / step) - first + 1, 0);
  return Array.from({ length: Math.min(count, 50) }, (_, i) => Number(((first + i) * step).toPrecision(12)));
}

// The least and the greatest number of the series, with room around; two apart where they are equal.
function rangeOf(series) {
  let [min, max] = [Infinity, -Infinity];
  for (const { values } of series) {
    for (const value of values) {
      if (value === null) continue;
      min = Math.min(min, value);
      max = Math.max(max, value);
    }
  }
  if (min > max) return { min: 0, max: 1 };
  const room = (max - min) * 0.08 || Math.abs(max) * 0.1 || 1;
  return { min: min - room, max: max + room };
}

// Draws into `parent`. onZoom(min, max) is called when a part is marked with the pointer, onReset at a double click, and
// onCursor(time) where the pointer is, null when it has left. `range` is the y range of the last drawing.
export class Plot {
  range = { min: 0, max: 1 };
  #canvas = element("canvas", { role: "img" });
  #pen = this.#canvas.getContext("2d");
  #parent;
  #part = { min: 0, max: 1 };
  #mark = null;

  constructor(parent, { onZoom, onReset, onCursor }) {
    this.#parent = parent;
    parent.append(this.#canvas);
    const on = (name, act) => this.#canvas.addEventListener(name, act);
    on("pointermove", (event) => {
      if (this.#mark) this.#mark.to = event.offsetX;
      onCursor(this.#timeAt(event.offsetX));
    });
    on("pointerleave", () => onCursor(null));
    on("pointerdown", (event) => {
      this.#canvas.setPointerCapture(event.pointerId);
      this.#mark = { from: event.offsetX, to: event.offsetX };
    });
    on("pointerup", () => this.#endMark(onZoom));
    on("pointercancel", () => { this.#mark = null; });
    on("dblclick", onReset);
  }

  // Draws the series, a list of {name, isBand, times, values}, from the time `min` to `max`, and a line at the time
  // `cursor`, if it is not null.
  draw(series, min, max, cursor) {
    const numbers = series.filter(({ isBand }) => !isBand);
    const bands = series.filter(({ isBand }) => isBand);
    this.#part = { min, max };
    this.range = rangeOf(numbers);
    const top = numbers.length > 0 ? NUMBERS_PX : 8;
    this.#size(top + bands.length * BAND_PX + AXIS_PX);
    this.#canvas.setAttribute("aria-label", series.map(({ name }) => name).join(", "));
    if (numbers.length > 0) this.#drawNumbers(numbers, top);
    bands.forEach((band, i) => this.#drawBand(band, top + i * BAND_PX));
    this.#drawTimes(top + bands.length * BAND_PX);
    this.#drawMark(cursor, top + bands.length * BAND_PX);
  }

  #width() {
    return Math.max(this.#parent.clientWidth, LEFT_PX + 50);
  }

  #size(height) {
    const ratio = globalThis.devicePixelRatio || 1;
    const [width, tall] = [Math.round(this.#width() * ratio), Math.round(height * ratio)];
    if (this.#canvas.width !== width || this.#canvas.height !== tall) {
      Object.assign(this.#canvas, { width, height: tall });
      Object.assign(this.#canvas.style, { width: `${this.#width()}px`, height: `${height}px` });
    }
    this.#pen.setTransform(ratio, 0, 0, ratio, 0, 0);
    this.#pen.clearRect(0, 0, this.#width(), height);
    this.#pen.font = FONT;
  }

  #colour(name) {
    return getComputedStyle(this.#parent).getPropertyValue(name);
  }

  #x(time) {
    const { min, max } = this.#part;
    return LEFT_PX + ((time - min) / (max - min)) * (this.#width() - LEFT_PX);
  }

  #timeAt(x) {
    const { min, max } = this.#part;
    return x < LEFT_PX ? null : min + ((x - LEFT_PX) / (this.#width() - LEFT_PX)) * (max - min);
  }

  #drawNumbers(series, height) {
    const pen = this.#pen;
    const { min, max } = this.range;
    const y = (value) => height - 4 - ((value - min) / (max - min)) * (height - 12);
    pen.textAlign = "right";
    pen.textBaseline = "middle";
    for (const tick of ticks(min, max, 6)) {
      this.#line(LEFT_PX, y(tick), this.#width(), y(tick), "--line");
      pen.fillStyle = this.#colour("--muted");
      pen.fillText(String(Number(tick.toPrecision(6))), LEFT_PX - 8, y(tick));
    }
    series.forEach((each, i) => {
      pen.strokeStyle = this.#colour(`--series-${i % COLOURS}`);
      pen.setLineDash(DASHES[i % DASHES.length]);
      pen.lineWidth = 1.5;
      pen.stroke(this.#steps(each, y));
    });
    pen.setLineDash([]);
  }

  // Each value holds until the next one; null is a gap.
  #steps({ times, values }, y) {
    const path = new Path2D();
    let last = null;
    values.forEach((value, i) => {
      const x = this.#x(times[i]);
      if (value !== null && last === null) path.moveTo(x, y(value));
      if (last !== null) path.lineTo(x, y(last));
      if (value !== null && last !== null && value !== last) path.lineTo(x, y(value));
      last = value;
    });
    return path;
  }

  // A state is a box with its name, as long as it holds. Off and false are empty.
  #drawBand({ name, times, values }, top) {
    const pen = this.#pen;
    pen.textBaseline = "middle";
    pen.textAlign = "right";
    pen.fillStyle = this.#colour("--muted");
    pen.fillText(this.#shortened(name.split(".").at(-1), LEFT_PX - 10), LEFT_PX - 8, top + BAND_PX / 2);
    pen.textAlign = "left";
    values.slice(0, -1).forEach((value, i) => {
      if (value === null) return;
      const from = this.#x(times[i]);
      const width = this.#x(times[i + 1]) - from;
      pen.fillStyle = this.#colour(/^(false|off|none)$/i.test(value) ? "--control" : "--band");
      pen.fillRect(from, top + 3, Math.max(width, 1), BAND_PX - 6);
      this.#line(from, top + 3, from, top + BAND_PX - 3, "--edge");
      if (pen.measureText(value).width + 8 > width) return;
      pen.fillStyle = this.#colour("--text");
      pen.fillText(value, from + 4, top + BAND_PX / 2);
    });
  }

  #shortened(text, width) {
    let cut = text;
    while (this.#pen.measureText(cut).width > width) cut = `${cut.replace("…", "").slice(0, -1)}…`;
    return cut;
  }

  #drawTimes(top) {
    const pen = this.#pen;
    const { min, max } = this.#part;
    pen.textAlign = "center";
    pen.textBaseline = "top";
    for (const tick of ticks(min, max, (this.#width() - LEFT_PX) / LABEL_PX, X_STEPS)) {
      this.#line(this.#x(tick), 4, this.#x(tick), top, "--line");
      pen.fillStyle = this.#colour("--muted");
      if (this.#x(tick) < this.#width() - LABEL_PX / 3) pen.fillText(clock(tick), this.#x(tick), top + 6);
    }
  }

  #drawMark(cursor, bottom) {
    if (cursor !== null) this.#line(this.#x(cursor), 0, this.#x(cursor), bottom, "--muted");
    if (this.#mark === null) return;
    this.#pen.fillStyle = this.#colour("--mark");
    this.#pen.fillRect(this.#mark.from, 0, this.#mark.to - this.#mark.from, bottom);
  }

  #line(fromX, fromY, toX, toY, colour) {
    const pen = this.#pen;
    pen.strokeStyle = this.#colour(colour);
    pen.lineWidth = 1;
    pen.beginPath();
    pen.moveTo(fromX, fromY);
    pen.lineTo(toX, toY);
    pen.stroke();
  }

  #endMark(onZoom) {
    const [from, to] = [this.#mark?.from ?? 0, this.#mark?.to ?? 0].sort((one, other) => one - other);
    this.#mark = null;
    if (to - from >= CLICK_PX) onZoom(this.#timeAt(Math.max(from, LEFT_PX)), this.#timeAt(to));
  }
}
