import { element } from "../dom.js";
import { typedField } from "./typed.js";

// No input of the type "number": it drops the comma of a decimal number.
export function numberField({ kind }, value, attributes) {
  const inputmode = kind === "int" ? "numeric" : "decimal";
  return typedField(element("input", { ...attributes, type: "text", value, inputmode }));
}
