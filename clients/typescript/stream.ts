// Server-sent events from a response of fetch. Unlike EventSource it notices a connection on which nothing arrives, not
// even a heartbeat, and runs in Node.js as well.

/** One event of the stream: its lines "id:" and "data:". */
export interface StreamEvent {
    id: string;
    data: string;
}

/** The events of a response until it ends or nothing has arrived for `silenceMs`. */
export async function* eventsOf(response: Response, silenceMs: number): AsyncGenerator<StreamEvent> {
    let text = "";
    let event: StreamEvent = { id: "", data: "" };
    for await (const piece of piecesOf(response, silenceMs)) {
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

async function* piecesOf(response: Response, silenceMs: number): AsyncGenerator<string> {
    const reader = response.body!.pipeThrough(new TextDecoderStream()).getReader();
    try {
        while (true) {
            const { done, value } = await beforeSilence(reader.read(), silenceMs);
            if (done) return;
            yield value;
        }
    } finally {
        reader.cancel().catch(() => undefined);
    }
}

async function beforeSilence<Result>(result: Promise<Result>, silenceMs: number): Promise<Result> {
    let timer: ReturnType<typeof setTimeout> | undefined;
    const silence = new Promise<never>((_, reject) => {
        timer = setTimeout(() => reject(new TypeError("The connection is silent.")), silenceMs);
    });
    return Promise.race([result, silence]).finally(() => clearTimeout(timer));
}
