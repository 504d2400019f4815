// A slow link in front of a server on this machine, for everything that a browser sends and receives.

import { once } from "node:events";
import { connect, createServer } from "node:net";

const PIECE = 1460;
// Bytes that are on the way at most before the sender waits.
const WINDOW = 128_000;

// One direction. Each piece leaves when those before it are sent, and arrives `delayMs` later, in order.
class Line {
    #isFreeAt = 0;
    #onTheWay = [];

    constructor(bytesPerMs, delayMs) {
        Object.assign(this, { bytesPerMs, delayMs });
    }

    // Calls arrive() when the bytes are there.
    carry(bytes, arrive) {
        this.#isFreeAt = Math.max(this.#isFreeAt, performance.now()) + bytes / this.bytesPerMs;
        this.#onTheWay.push({ at: this.#isFreeAt + this.delayMs, arrive });
        if (this.#onTheWay.length === 1) this.#wait();
    }

    #wait() {
        setTimeout(() => this.#deliver(), this.#onTheWay[0].at - performance.now());
    }

    #deliver() {
        while (this.#onTheWay[0]?.at <= performance.now()) this.#onTheWay.shift().arrive();
        if (this.#onTheWay.length > 0) this.#wait();
    }
}

function pass(from, to, line) {
    let onTheWay = 0;
    const deliver = (piece) => {
        onTheWay -= piece.length;
        if (onTheWay < WINDOW) from.resume();
        if (to.writable) to.write(piece);
    };
    from.on("data", (bytes) => {
        for (let at = 0; at < bytes.length; at += PIECE) {
            const piece = bytes.subarray(at, at + PIECE);
            line.carry(piece.length, () => deliver(piece));
        }
        onTheWay += bytes.length;
        if (onTheWay >= WINDOW) from.pause();
    });
    from.on("end", () => line.carry(0, () => to.end()));
    from.on("error", () => to.destroy());
    to.on("close", () => from.destroy());
}

// Starts a proxy before the address, whose connections share the rate in both directions. A new connection costs a round
// trip before its first byte, as with TCP; TCP's slow start is left out. Resolves to {url, sent(), stop()}, where sent() is
// the count of bytes to the browser.
export async function slowLink(address, { bitsPerSecond, roundTripMs }) {
    const { hostname, port } = new URL(address);
    const [up, down] = [0, 1].map(() => new Line(bitsPerSecond / 8000, roundTripMs / 2));
    let sent = 0;
    const server = createServer({ noDelay: true, pauseOnConnect: true }, (browser) => {
        const upstream = connect({ host: hostname, port, noDelay: true });
        upstream.on("data", (bytes) => { sent += bytes.length; });
        pass(upstream, browser, down);
        up.carry(0, () => down.carry(0, () => {
            pass(browser, upstream, up);
            browser.resume();
        }));
    });
    server.listen(0, "127.0.0.1");
    await once(server, "listening");
    return {
        url: `http://127.0.0.1:${server.address().port}`,
        sent: () => sent,
        stop: () => server.close(),
    };
}
