import { element } from "../dom.js";

// A value that is not an entry of the enumeration is shown but cannot be chosen again.
export function enumerationField({ entries }, value, attributes) {
  const options = entries.map((entry) => element("option", { selected: entry === value }, entry));
  const unknown = entries.includes(value) ? [] : [element("option", { selected: true, disabled: true }, value)];
  const node = element("select", attributes, ...unknown, ...options);
  return {
    node,
    get text() { return node.value; },
    problem: () => "",
  };
}
