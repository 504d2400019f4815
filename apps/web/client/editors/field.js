// The field that fits a kind of value.

import { boolField } from "./bool.js";
import { bufferField } from "./buffer.js";
import { enumerationField } from "./enumeration.js";
import { numberField } from "./number.js";
import { textField } from "./text.js";

const FIELDS = { bool: boolField, buffer: bufferField, enum: enumerationField, float: numberField, int: numberField };

// A field for a value; `form` is a variable or a member with its kind, bounds, entries and length. Has
//
//   node         the input
//   text         what is entered, as text
//   show(value)  enters a value
//   hint()       what a person should know of the text that is entered, or ""; where there is such a thing
export function createField(form, value, attributes) {
  return (FIELDS[form.kind] ?? textField)(form, value, attributes);
}
