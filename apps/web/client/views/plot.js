// A plot of values over time, drawn by uPlot: numbers as stepped lines over one scale, states as bands below them. The build
// puts the library beside the console; without it nothing is drawn.

import { element } from "../dom.js";
import { Fingers, NO_MARK } from "./fingers.js";

const NUMBERS_PX = 142;
const BAND_PX = 24;
const TOP_PX = 8;
const TIMES_PX = 28;
const LEFT_PX = 64;
const FONT = "12px system-ui";
const DASHES = [[], [6, 3], [2, 3], [8, 3, 2, 3]];
// A marked part that is shorter than this was a click.
const CLICK_PX = 4;
let loading = null;

export const COLOURS = 4;

// Loads the library once; resolves to whether it is there.
export function loadPlots() {
  loading ??= new Promise((resolve) => {
    const sheet = element("link", { rel: "stylesheet", href: "vendor/uPlot.min.css" });
    const onload = () => resolve(true);
    const script = element("script", { src: "vendor/uPlot.iife.min.js", onload, onerror: () => resolve(false) });
    document.head.append(sheet, script);
  });
  return loading;
}

// 14:03:07, and 14:03:07.5 between whole seconds.
function clock(time) {
  const part = Math.round((time % 1) * 100) / 100;
  return new Date(time * 1000).toLocaleTimeString("en-GB") + (part > 0 && part < 1 ? String(part).slice(1) : "");
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

// The times of all series, and for each series what it holds at each. uPlot draws no line from the last number to a gap at
// the end, so each number comes once more where a gap begins.
function joined(series) {
  const table = [[], ...series.map(() => [])];
  const push = (time, values) => [time, ...values].forEach((value, i) => table[i].push(value));
  const next = series.map(() => 0);
  let held = series.map(() => null);
  for (const time of [...new Set(series.flatMap(({ times }) => times))].sort((one, other) => one - other)) {
    const before = held;
    held = series.map(({ times, values }, i) => {
      while (times[next[i]] <= time) ++next[i];
      return values[next[i] - 1] ?? null;
    });
    if (held.some((value, i) => value === null && before[i] !== null)) push(time, before);
    push(time, held);
  }
  return table;
}

// Draws into `parent`. onZoom(min, max) is called when a part is marked with the mouse or a finger, and while two fingers
// zoom it; onReset at a double click, and onCursor(time) where the pointer is, null when it has left.
export class Plot {
  #parent;
  #calls;
  #plot = null;
  #part = { min: 0, max: 1 };
  #numbers = { min: 0, max: 1 };
  #bands = [];

  constructor(parent, calls) {
    this.#parent = parent;
    this.#calls = calls;
  }

  // The y range of the last drawing; the bands take a part below the numbers.
  get range() {
    return this.#plot.scales.y;
  }

  // Draws the series, a list of {name, isBand, times, values} with the same names each time, from the time `min` to `max`.
  // Draws nothing before the library is loaded.
  draw(series, min, max) {
    if (!globalThis.uPlot) return;
    const numbers = series.filter(({ isBand }) => !isBand);
    this.#part = { min, max };
    this.#numbers = rangeOf(numbers);
    this.#bands = series.filter(({ isBand }) => isBand);
    const size = this.#size(numbers.length > 0);
    this.#plot ??= this.#make(series, size);
    this.#plot.batch(() => {
      if (this.#plot.width !== size.width) this.#plot.setSize(size);
      this.#plot.setData(joined(numbers), false);
      this.#plot.setScale("x", { min, max });
    });
  }

  destroy() {
    this.#plot?.destroy();
  }

  #size(hasNumbers) {
    const height = TOP_PX + (hasNumbers ? NUMBERS_PX : 0) + this.#bands.length * BAND_PX + TIMES_PX;
    return { width: Math.max(this.#parent.clientWidth, LEFT_PX + 50), height };
  }

  #make(series, size) {
    const numbers = series.filter(({ isBand }) => !isBand);
    const plot = new globalThis.uPlot({
      ...size,
      padding: [TOP_PX, null, 0, 0],
      legend: { show: false },
      cursor: this.#pointer(),
      axes: this.#axes(numbers.length > 0),
      scales: { x: { range: () => [this.#part.min, this.#part.max] }, y: { range: () => this.#scale() } },
      series: [{}, ...series.flatMap(({ isBand }, i) => (isBand ? [] : [this.#line(i)]))],
      hooks: {
        setSelect: [(marked) => this.#endMark(marked)],
        setCursor: [({ cursor, posToVal }) => this.#calls.onCursor(cursor.left >= 0 ? posToVal(cursor.left, "x") : null)],
        draw: [({ ctx }) => this.#drawBands(ctx)],
      },
    }, joined(numbers), this.#parent);
    new Fingers(plot, this.#calls.onZoom);
    plot.ctx.canvas.setAttribute("role", "img");
    plot.ctx.canvas.setAttribute("aria-label", series.map(({ name }) => name).join(", "));
    return plot;
  }

  #pointer() {
    return {
      y: false,
      points: { show: false },
      drag: { x: true, y: false, setScale: false },
      // All plots show the pointer; only the plot that it marks calls onZoom.
      sync: { key: "watch", filters: { pub: (type) => !/up|down/.test(type) } },
      bind: { dblclick: () => () => this.#calls.onReset() },
    };
  }

  #axes(hasNumbers) {
    const axis = { stroke: () => this.#colour("--muted"), ticks: { show: false }, font: FONT };
    const grid = { stroke: () => this.#colour("--line"), width: 1 };
    const filter = (_, splits) => splits.map((value) => (hasNumbers && value >= this.#numbers.min ? value : null));
    return [
      { ...axis, grid, size: TIMES_PX, space: 90, values: (_, times) => times.map(clock) },
      { ...axis, grid: { ...grid, filter }, filter, size: LEFT_PX },
    ];
  }

  #line(i) {
    return {
      stroke: () => this.#colour(`--series-${i % COLOURS}`),
      dash: DASHES[i % DASHES.length],
      width: 1.5,
      points: { show: false },
      paths: globalThis.uPlot.paths.stepped({ align: 1 }),
    };
  }

  #scale() {
    const { min, max } = this.#numbers;
    return [min - ((max - min) * this.#bands.length * BAND_PX) / NUMBERS_PX, max];
  }

  #colour(name) {
    return getComputedStyle(this.#parent).getPropertyValue(name);
  }

  #drawBands(pen) {
    const { left, top, height } = this.#plot.bbox;
    const ratio = globalThis.devicePixelRatio;
    pen.save();
    pen.translate(left, top + height);
    pen.scale(ratio, ratio);
    pen.font = FONT;
    pen.textBaseline = "middle";
    this.#bands.forEach((band, i) => this.#drawBand(pen, band, (i - this.#bands.length) * BAND_PX));
    pen.restore();
  }

  // A state is a box with its name, as long as it holds. Off and false are empty.
  #drawBand(pen, { name, times, values }, top) {
    pen.textAlign = "right";
    pen.fillStyle = this.#colour("--muted");
    pen.fillText(shortened(pen, name.split(".").at(-1), LEFT_PX - 10), -8, top + BAND_PX / 2);
    pen.textAlign = "left";
    values.slice(0, -1).forEach((value, i) => {
      if (value === null) return;
      const [from, to] = [times[i], times[i + 1]].map((time) => this.#plot.valToPos(time, "x"));
      pen.fillStyle = this.#colour(/^(false|off|none)$/i.test(value) ? "--control" : "--band");
      pen.fillRect(from, top + 3, Math.max(to - from, 1), BAND_PX - 6);
      pen.fillStyle = this.#colour("--edge");
      pen.fillRect(from, top + 3, 1, BAND_PX - 6);
      if (pen.measureText(value).width + 8 > to - from) return;
      pen.fillStyle = this.#colour("--text");
      pen.fillText(value, from + 4, top + BAND_PX / 2);
    });
  }

  #endMark(plot) {
    const { left, width } = plot.select;
    if (width < CLICK_PX) return;
    this.#calls.onZoom(plot.posToVal(left, "x"), plot.posToVal(left + width, "x"));
    plot.setSelect(NO_MARK, false);
  }
}

function shortened(pen, text, width) {
  let cut = text;
  while (pen.measureText(cut).width > width) cut = `${cut.replace("…", "").slice(0, -1)}…`;
  return cut;
}
