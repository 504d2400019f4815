import { element } from "../dom.js";
import { typedField } from "./typed.js";

export function bufferField({ length }, value, attributes) {
  return typedField(element("textarea", { ...attributes, rows: length > 16 ? 4 : 1 }, value));
}
