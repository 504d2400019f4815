// Notices when the service may have had nobody to tell a change to. It reports the changes of 100 ms to the requests that
// wait then, so a poll that reaches it later than that after the answer before may miss some.

// Milliseconds after which a poll may be too late; the rest of the period is for what cannot be measured.
const LATE_MS = 80;
// The way to the service and back is the least of so many measurements.
const TRIPS = 3;

export class Gaps {
  #polls;
  #onGap;
  #trips = [];
  #sentAt = 0;
  #answeredAt = null;
  #answeredBefore = null;

  // `polls` and `others` are the addresses of polls and of requests that are answered at once; onGap() is called for each
  // gap. The browser's own times are taken, because they include what held up this thread or waited for a connection.
  constructor(polls, others, onGap) {
    this.#polls = polls;
    this.#onGap = onGap;
    new PerformanceObserver((list) => {
      for (const entry of list.getEntries()) {
        const { pathname } = new URL(entry.name);
        if (pathname === this.#polls) this.#takePoll(entry);
        if (others.includes(pathname)) this.#takeTrip(entry);
      }
    }).observe({ type: "resource" });
  }

  // The next poll follows no other: the tree is read anyway.
  restart() {
    this.#answeredAt = this.#answeredBefore = null;
  }

  // The next poll is sent at this moment.
  sent() {
    this.#sentAt = performance.now();
    this.#compare();
  }

  #takeTrip({ requestStart, responseStart }) {
    this.#trips = [...this.#trips, responseStart - requestStart].slice(-TRIPS);
  }

  #takePoll({ requestStart, responseStart }) {
    if (this.#answeredBefore !== null) this.#look(requestStart - this.#answeredBefore);
    this.#answeredBefore = this.#answeredAt = responseStart;
    this.#compare();
  }

  // The answer is known here before the next poll is sent, or after it.
  #compare() {
    if (this.#answeredAt === null || this.#sentAt < this.#answeredAt) return;
    this.#look(this.#sentAt - this.#answeredAt);
    this.#answeredAt = null;
  }

  #look(ms) {
    if (ms + Math.min(...this.#trips, LATE_MS) > LATE_MS) this.#onGap();
  }
}
