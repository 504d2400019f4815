import { element } from "../dom.js";

export function numberField({ kind, min, max }, value, attributes) {
  const isInt = kind === "int";
  const node = element("input", { ...attributes, type: "number", value, min, max, step: isInt ? 1 : "any",
    inputmode: isInt ? "numeric" : "decimal" });
  return {
    node,
    get text() { return node.value; },
    problem: () => (node.value === "" ? "a number is needed" : ""),
  };
}
