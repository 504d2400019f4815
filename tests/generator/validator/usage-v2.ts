// What a program gets from the types that openapi-typescript makes of the description of version 2.
import type { components } from "./openapi-v2";

type Schemas = components["schemas"];

export function brightness(values: Schemas["Values"]): number {
    return values["MemPersistent.DisplayBrightness"];
}

export const changes: Schemas["Changes"] = { "MemPersistent.DisplayBrightness": 7, "MemPersistent.KnobAssignment": "Iris" };

// @ts-expect-error There is no such variable.
export const wrongName: Schemas["Changes"] = { "MemPersistent.DisplayBrightnes": 7 };

// @ts-expect-error The value is an entry of the enumeration.
export const wrongType: Schemas["Changes"] = { "MemPersistent.KnobAssignment": "Knob" };
