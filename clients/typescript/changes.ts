// The types of what can be set and watched, derived from the types of the variables.
import type { Elements, Invalid, Values } from "./variables.js";

export type Name = keyof Values;

/** A new value: of a structure some members, of a number no null, of an enumeration one of its entries. */
export type New<Value> = Value extends Elements<infer Element, infer Length>
    ? Elements<New<Element>, Length>
    : Value extends object
      ? { readonly [Member in keyof Value]?: New<Value[Member]> }
      : Exclude<Value, null | Invalid>;

type ArrayName = { [N in Name]: Values[N] extends readonly unknown[] ? N : never }[Name];
type StructureName = Exclude<{ [N in Name]: Values[N] extends object ? N : never }[Name], ArrayName>;
type Element<N extends ArrayName> = Values[N][number];

type Intersection<Union> = (Union extends unknown ? (item: Union) => void : never) extends (all: infer All) => void
    ? All
    : never;

/** A value to set, or one that the controller delivers. */
type Form = "new" | "present";
type In<F extends Form, Value> = F extends "new" ? New<Value> : Value;

/** Whole variables: "MemPersistent.DisplayBrightness". */
type Variables<F extends Form> = { readonly [N in Name]?: In<F, Values[N]> };
/** Elements of an array: "MemLens.LensFileList[2]". */
type ElementsOf<F extends Form, N extends ArrayName> = { readonly [E in `${N}[${number}]`]?: In<F, Element<N>> };
/** Members: "MemLens.LensFileList[2].LensFileName" and "MemMotors.FocusMotor.MotorName". */
type MembersOf<F extends Form, Path extends string, Structure> = {
    readonly [Member in keyof Structure & string as `${Path}.${Member}`]?: In<F, Structure[Member]>;
};

type OfArrays<F extends Form> = {
    [N in ArrayName]: ElementsOf<F, N> & MembersOf<F, `${N}[${number}]`, Element<N>>;
}[ArrayName];
type OfStructures<F extends Form> = { [N in StructureName]: MembersOf<F, N, Values[N]> }[StructureName];
type Paths<F extends Form> = Variables<F> & Intersection<OfArrays<F>> & Intersection<OfStructures<F>>;

/** What `set` takes. */
export type Changes = Paths<"new">;
/** Present values by the names that `set` takes. */
export type Present = Paths<"present">;

/** A pattern as a template: "MemMotors.*" names every variable whose name begins with "MemMotors.". */
type Template<Pattern extends string> = Pattern extends `${infer Head}${"*" | "?"}${infer Tail}`
    ? `${Head}${string}${Template<Tail>}`
    : Pattern;
type FullName<Pattern extends string> = Pattern extends `${string}.${string}` ? Pattern : `${string}.${Pattern}`;

/** The variables that a pattern names; never if there is none. */
export type Named<Pattern extends string> = Extract<Name, Template<FullName<Pattern>>>;
