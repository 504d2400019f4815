import { element } from "../dom.js";

// A value that is not an entry of the enumeration is shown but cannot be chosen again.
export function enumerationField({ entries }, value, attributes) {
  const node = element("select", attributes, ...entries.map((entry) => element("option", {}, entry)));
  const show = (text) => {
    if (!entries.includes(text)) node.prepend(element("option", { disabled: true }, text));
    node.value = text;
  };
  show(value);
  return { node, get text() { return node.value; }, show };
}
