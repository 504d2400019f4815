// The feeds of a shared worker, for all pages of a browser, or of one page alone. The build puts this module and all that it
// imports into one file: a browser asks for a worker's modules only when the worker runs.

import { Feeds } from "./feeds.js";

export const feeds = new Feeds();

// In a worker: a page sends {call, argument}: "need", "record", "reread" or "hurry"; see feeds.js.
globalThis.onconnect = ({ ports: [port] }) => {
  const receive = (message) => port.postMessage(message);
  port.onmessage = ({ data: { call, argument } }) => feeds[call](receive, argument);
};
