// One number's plot. The plotting library is put beside the console when it is built; without it there are no plots.

import { element } from "../dom.js";

const HEIGHT = 150;
let loading = null;

// Loads the library once; resolves to whether it is there.
export function loadPlots() {
  loading ??= new Promise((resolve) => {
    const sheet = element("link", { rel: "stylesheet", href: "vendor/uPlot.min.css" });
    const script = element("script", { src: "vendor/uPlot.iife.min.js" });
    script.addEventListener("load", () => resolve(true));
    script.addEventListener("error", () => resolve(false));
    document.head.append(sheet, script);
  });
  return loading;
}

// 14:03:07, and 14:03:07.5 between whole seconds.
function clock(time) {
  const date = new Date(time * 1000);
  const part = date.getMilliseconds() === 0 ? "" : (date.getMilliseconds() / 1000).toString().slice(1, 4);
  return date.toLocaleTimeString("en-GB") + part;
}

// Draws into `parent`. onZoom(min, max) tells a part that was marked with the pointer, onReset a double click,
// onCursor(time) where the pointer is, null when it has left.
export class Plot {
  #plot;
  #resize;

  constructor(parent, { onZoom, onReset, onCursor }) {
    const colour = (name) => getComputedStyle(parent).getPropertyValue(name);
    const axis = { stroke: colour("--muted"), grid: { stroke: colour("--line"), width: 1 }, ticks: { show: false },
      font: "12px system-ui" };
    const paths = globalThis.uPlot.paths.stepped({ align: 1 });
    this.#plot = new globalThis.uPlot({
      width: parent.clientWidth || 300,
      height: HEIGHT,
      legend: { show: false },
      cursor: {
        y: false,
        drag: { x: true, y: false, setScale: false },
        // Pointers are shown in all plots; what one marks, it alone tells.
        sync: { key: "watch", filters: { pub: (type) => !/up|down/.test(type) } },
        bind: { dblclick: () => () => onReset() },
      },
      axes: [{ ...axis, size: 28, space: 90, values: (_, times) => times.map(clock) }, { ...axis, size: 64 }],
      scales: { x: { time: true, auto: false } },
      series: [{}, { stroke: colour("--accent"), width: 1.5, points: { show: false }, paths }],
      hooks: {
        setSelect: [(plot) => this.#selected(plot, onZoom)],
        setCursor: [(plot) => onCursor(plot.cursor.left >= 0 ? plot.posToVal(plot.cursor.left, "x") : null)],
      },
    }, [[], []], parent);
    this.#resize = new ResizeObserver(() => {
      if (parent.clientWidth > 0) this.#plot.setSize({ width: parent.clientWidth, height: HEIGHT });
    });
    this.#resize.observe(parent);
  }

  draw(data, min, max) {
    this.#plot.batch(() => {
      this.#plot.setData(data, false);
      this.#plot.setScale("x", { min, max });
    });
  }

  destroy() {
    this.#resize.disconnect();
    this.#plot.destroy();
  }

  #selected(plot, onZoom) {
    const { left, width } = plot.select;
    if (width > 3) {
      onZoom(plot.posToVal(left, "x"), plot.posToVal(left + width, "x"));
      plot.setSelect({ left: 0, width: 0, top: 0, height: 0 }, false);
    }
  }
}
