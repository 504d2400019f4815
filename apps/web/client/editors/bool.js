import { element } from "../dom.js";

export function boolField(form, value, attributes) {
  const isOn = String(value) === "true";
  const node = element("input", { ...attributes, type: "checkbox", role: "switch", checked: isOn });
  return {
    node,
    get text() { return String(node.checked); },
    show: (text) => { node.checked = String(text) === "true"; },
  };
}
