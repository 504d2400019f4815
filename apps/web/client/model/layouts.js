// Named layouts of the Watch view, the names of what is watched by plot, as a file: { "layouts": { name: layout } }

// `layouts` is an object of layouts by name.
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
