// The controller's variables over version 2 of its web API.
import type { Changes, Name, Named, Present } from "./changes.js";
import { eventsOf } from "./stream.js";
import type { Values } from "./variables.js";

export type { Changes, Name, Named, Present } from "./changes.js";
export type * from "./variables.js";

/** Why one of the values of `set` is refused. */
export interface Refusal {
    variable: string;
    code: "unknown-variable" | "not-an-index" | "wrong-type" | "out-of-bounds" | "too-long" | "not-an-entry";
    given: unknown;
    min?: number;
    max?: number;
    entries?: string[];
    message: string;
}

/** The controller answered a request with an error. */
export class Refused extends Error {
    constructor(
        readonly status: number,
        message: string,
        /** One for each value that `set` cannot store. */
        readonly refusals: readonly Refusal[] = [],
    ) {
        super(message);
    }
}

declare const versionBrand: unique symbol;

/** A moment in the history of some variables: what `read`, `set` and `Changed` give and `set` takes. */
export type Version = string & { readonly [versionBrand]: true };

export interface Reading<Some> {
    readonly values: Some;
    readonly version: Version;
}

/** Variables have changed since the version that `set` got. Nothing is stored. */
export class Changed extends Refused {
    /** The names of `set` whose variables have changed, with the present values. */
    readonly values: Present;
    /** The version of these values, for another `set`. */
    readonly version: Version;

    constructor(message: string, changes: readonly { variable: string; version: number; value: unknown }[]) {
        super(412, message);
        this.values = Object.fromEntries(changes.map(({ variable, value }) => [variable, value])) as Present;
        this.version = `"${Math.max(...changes.map(({ version }) => version))}"` as Version;
    }
}

export interface Watch {
    /** Ends the watching; the callback is not called again. */
    end(): void;
    /** Resolves after end(); rejects with Refused if the controller does not accept the request. */
    readonly ended: Promise<void>;
}

type Known<Pattern extends string> = [Named<Pattern>] extends [never] ? never : Pattern;

const API = "/api/v2";
const RETRY_MS = 1000;
const SILENCE_MS = 75000; // the controller sends something every 30 s
const ADDRESS = /^https?:\/\/[^/@?#]+(\/[^/?#]+)*\/*$/;

/** Without a connection the methods reject with the TypeError of fetch, without an answer for 75 s with a TimeoutError. */
export class Controller {
    private readonly address: string;

    /**
     * @param address "http://192.168.1.20", or with a path that is in front of /api/v2; empty for the page's own controller.
     * Another form throws TypeError.
     * @param headers of every request, for example Authorization
     */
    constructor(
        address = "",
        private readonly headers: Record<string, string> = {},
    ) {
        const isPage = address === "" && typeof location !== "undefined";
        if (!isPage && !ADDRESS.test(address))
            throw new TypeError(`"${address}" is not an address such as "http://192.168.1.20"`);
        this.address = address.replace(/\/+$/, "");
    }

    /** The present values of the variables that the patterns name, of all without a pattern. */
    async values(): Promise<Values>;
    async values<Pattern extends string>(...patterns: Known<Pattern>[]): Promise<Pick<Values, Named<Pattern>>>;
    async values(...patterns: string[]): Promise<object> {
        return (await this.ask(`/values${query(patterns)}`)).json();
    }

    /** The same with their version. */
    async read(): Promise<Reading<Values>>;
    async read<Pattern extends string>(...patterns: Known<Pattern>[]): Promise<Reading<Pick<Values, Named<Pattern>>>>;
    async read(...patterns: string[]): Promise<Reading<object>> {
        const response = await this.ask(`/values${query(patterns)}`);
        return { values: await response.json(), version: versionOf(response) };
    }

    /**
     * Stores all values, or none and throws Refused. Resolves to their version.
     *
     * @param unchangedSince stores only if none of the variables has changed since, else throws Changed
     */
    async set(changes: Changes, unchangedSince?: Version): Promise<Version> {
        const condition: Record<string, string> = unchangedSince === undefined ? {} : { "If-Match": unchangedSince };
        const response = await this.ask("/values", {
            method: "PATCH",
            body: JSON.stringify(changes),
            headers: { "Content-Type": "application/json", ...condition },
        });
        return versionOf(response);
    }

    /**
     * Calls back with the present values of the variables that the patterns name, then with those that change.
     * Connects again when the connection is lost, and then gets what has changed meanwhile.
     *
     * @param periodMs at most one call in this time
     */
    watch<Pattern extends string>(
        patterns: readonly Known<Pattern>[],
        callback: (changed: Partial<Pick<Values, Named<Pattern>>>) => void,
        periodMs = 0,
    ): Watch {
        const abort = new AbortController();
        const path = `/events?vars=${list(patterns)}&period=${periodMs}`;
        const follow = async () => {
            for await (const changed of this.changes(path, abort.signal)) callback(changed);
        };
        return { end: () => abort.abort(), ended: follow() };
    }

    private async *changes(path: string, signal: AbortSignal): AsyncGenerator<object> {
        let last: Record<string, string> = {};
        while (!signal.aborted) {
            try {
                const connect = (signal: AbortSignal) => this.ask(path, { signal, headers: last, cache: "no-store" });
                for await (const event of eventsOf(connect, signal, SILENCE_MS)) {
                    if (signal.aborted) return;
                    last = { "Last-Event-ID": event.id };
                    yield JSON.parse(event.data);
                }
            } catch (error) {
                if (!signal.aborted && !isTemporary(error)) throw error;
            }
            await pause(RETRY_MS, signal);
        }
    }

    private async ask(path: string, init: RequestInit = {}): Promise<Response> {
        const headers = { ...this.headers, ...(init.headers as Record<string, string>) };
        const signal = init.signal ?? AbortSignal.timeout(SILENCE_MS);
        const response = await fetch(this.address + API + path, { ...init, signal, headers });
        if (response.ok) return response;
        const problem = await response.json().catch(() => ({}));
        if (response.status === 412 && problem.errors) throw new Changed(problem.detail, problem.errors);
        throw new Refused(response.status, problem.detail ?? response.statusText, problem.errors);
    }
}

function versionOf(response: Response): Version {
    return response.headers.get("ETag") as Version;
}

function query(patterns: readonly string[]): string {
    return patterns.length > 0 ? `?vars=${list(patterns)}` : "";
}

function list(patterns: readonly string[]): string {
    return patterns.map(encodeURIComponent).join(",");
}

/** Whether the same request can succeed later: no connection, silence, or a web server without the service or at its limits. */
function isTemporary(error: unknown): boolean {
    if (error instanceof Refused) return error.status >= 500 || error.status === 429;
    return error instanceof TypeError || (error instanceof DOMException && error.name === "AbortError");
}

function pause(ms: number, signal: AbortSignal): Promise<void> {
    return new Promise((resolve) => {
        if (signal.aborted) return resolve();
        const timer = setTimeout(resolve, ms);
        signal.addEventListener("abort", () => (clearTimeout(timer), resolve()), { once: true });
    });
}
