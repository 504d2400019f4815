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

/** Whole variables: "MemPersistent.DisplayBrightness". */
type Variables = { readonly [N in Name]?: New<Values[N]> };
/** Elements of an array: "MemLens.LensFileList[2]". */
type ElementsOf<N extends ArrayName> = { readonly [E in `${N}[${number}]`]?: New<Element<N>> };
/** Members: "MemLens.LensFileList[2].LensFileName" and "MemMotors.FocusMotor.MotorName". */
type MembersOf<Path extends string, Structure> = {
    readonly [Member in keyof Structure & string as `${Path}.${Member}`]?: New<Structure[Member]>;
};

type OfArrays = { [N in ArrayName]: ElementsOf<N> & MembersOf<`${N}[${number}]`, Element<N>> }[ArrayName];
type OfStructures = { [N in StructureName]: MembersOf<N, Values[N]> }[StructureName];

/** What `set` takes. */
export type Changes = Variables & Intersection<OfArrays> & Intersection<OfStructures>;

/** A pattern as a template: "MemMotors.*" names every variable whose name begins with "MemMotors.". */
type Template<Pattern extends string> = Pattern extends `${infer Head}${"*" | "?"}${infer Tail}`
    ? `${Head}${string}${Template<Tail>}`
    : Pattern;
type FullName<Pattern extends string> = Pattern extends `${string}.${string}` ? Pattern : `${string}.${Pattern}`;

/** The variables that a pattern names; never if there is none. */
export type Named<Pattern extends string> = Extract<Name, Template<FullName<Pattern>>>;
