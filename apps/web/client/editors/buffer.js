import { element } from "../dom.js";

export function bufferField({ length }, value, attributes) {
  const node = element("textarea", { ...attributes, rows: length > 16 ? 4 : 1, maxlength: length * 2 }, value);
  return {
    node,
    get text() { return node.value; },
    problem: () => (/^([0-9a-f]{2})*$/i.test(node.value) ? "" : "pairs of hexadecimal digits are needed"),
  };
}
