// What the Watch view shows, by plot: [["MemDynamic.LensActFocus", "MemDynamic.LensActIris"], ["MemDynamic.BattVoltage"]].

// With the name in the plot of that number, or in a plot of its own. A name is in one plot only.
export function withName(layout, name, plot = layout.length) {
  const plots = layout.map((names) => names.filter((each) => each !== name));
  plots[plot] = [...plots[plot] ?? [], name];
  return plots.filter((names) => names.length > 0);
}

export const withoutName = (layout, name) =>
  layout.map((names) => names.filter((each) => each !== name)).filter((names) => names.length > 0);

// Lists of names, as the console kept them before there were plots with several numbers, are one plot each.
export const plotsOf = (kept) => kept.map((plot) => [plot].flat());

export const layoutsText = (layouts) => `${JSON.stringify({ layouts }, null, 1)}\n`;

// Reads such a text. Throws an Error with the reason in words.
export function readLayouts(text) {
  let layouts;
  try {
    ({ layouts } = JSON.parse(text));
  } catch {
    throw new Error("it is not JSON");
  }
  const isNames = (names) => Array.isArray(names) && names.every((name) => typeof name === "string");
  const isLayout = (layout) => Array.isArray(layout) && layout.every(isNames);
  const isObject = layouts !== null && typeof layouts === "object" && !Array.isArray(layouts);
  if (!isObject || !Object.values(layouts).every(isLayout)) throw new Error("it has no layouts");
  return layouts;
}
