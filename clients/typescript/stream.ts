// Server-sent events from a response of fetch. Unlike EventSource it notices a connection on which nothing arrives, not
// even a heartbeat, and runs in Node.js as well.

/** One event of the stream: its lines "id:" and "data:". */
export interface StreamEvent {
    id: string;
    data: string;
}

/** Sends the request and resolves to its response. The signal ends the connection. */
export type Connect = (signal: AbortSignal) => Promise<Response>;

/** The events of a response until it ends. Throws when `end` is aborted, or when nothing has arrived for `silenceMs`. */
export async function* eventsOf(connect: Connect, end: AbortSignal, silenceMs: number): AsyncGenerator<StreamEvent> {
    let text = "";
    let event: StreamEvent = { id: "", data: "" };
    for await (const piece of piecesOf(connect, end, silenceMs)) {
        const lines = (text + piece).split("\n");
        text = lines.pop() ?? "";
        for (const line of lines) {
            if (line === "") {
                if (event.data !== "") yield event;
                event = { id: "", data: "" };
            } else if (line.startsWith("data: ")) {
                event.data += line.slice("data: ".length);
            } else if (line.startsWith("id: ")) {
                event.id = line.slice("id: ".length);
            }
        }
    }
}

async function* piecesOf(connect: Connect, end: AbortSignal, silenceMs: number): AsyncGenerator<string> {
    const connection = new AbortController();
    const close = () => connection.abort();
    end.addEventListener("abort", close);
    let timer = setTimeout(close, silenceMs);
    try {
        const response = await connect(connection.signal);
        const reader = response.body!.pipeThrough(new TextDecoderStream()).getReader();
        while (true) {
            const { done, value } = await reader.read();
            clearTimeout(timer);
            if (done) return;
            yield value;
            timer = setTimeout(close, silenceMs);
        }
    } finally {
        clearTimeout(timer);
        end.removeEventListener("abort", close);
        close();
    }
}
