import { element } from "../dom.js";
import { bytesOf } from "../model/written.js";
import { typedField } from "./typed.js";

export function textField({ length }, value, attributes) {
  const node = element("input", { ...attributes, type: "text", value });
  const hint = () => (length ? `${bytesOf(node.value)} of ${length - 1} bytes` : "");
  return Object.assign(typedField(node), { hint });
}
