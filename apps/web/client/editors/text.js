import { element } from "../dom.js";
import { whyUnsendable } from "../model/assign.js";

export function textField({ length }, value, attributes) {
  const node = element("input", { ...attributes, type: "text", value, maxlength: length ? length - 1 : false });
  return {
    node,
    get text() { return node.value; },
    problem: () => whyUnsendable(node.value),
  };
}
