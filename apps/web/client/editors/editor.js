// The forms that set a variable: one fitting field for each kind, and the outcome beside it.

import { scalarEditor } from "./scalar.js";
import { structureEditor } from "./structure.js";

// A form that sets the variable. `update()` of the result brings in what has changed meanwhile.
export function createEditor(app, variable) {
  const isScalar = variable.kind !== "structure" && variable.kind !== "list";
  return isScalar ? scalarEditor(app, variable) : structureEditor(app, variable);
}
