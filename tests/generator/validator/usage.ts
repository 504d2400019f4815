// What a program gets from the types that openapi-typescript makes of the description.
import type { components } from "./openapi";

type Schemas = components["schemas"];

export function brightness(tree: Schemas["Tree"]): string {
    return tree.MemPersistent.DisplayBrightness.value;
}

export function changedBrightness(changes: Schemas["Changes"]): string | undefined {
    return changes.MemPersistent?.DisplayBrightness?.value;
}

export const assignment: Schemas["Assignment"] = { MemPersistent: { DisplayBrightness: 7 } };

// @ts-expect-error There is no such variable.
export const wrongName: Schemas["Assignment"] = { MemPersistent: { DisplayBrightnes: 7 } };

// @ts-expect-error The value is a number.
export const wrongType: Schemas["Assignment"] = { MemPersistent: { DisplayBrightness: "bright" } };
