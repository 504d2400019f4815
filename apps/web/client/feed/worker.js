// The feeds for all pages of a browser. A page sends {call, argument}: "need", "record", "reread" or "hurry"; see feeds.js.

import { Feeds } from "./feeds.js";

const feeds = new Feeds();

globalThis.onconnect = ({ ports: [port] }) => {
  const receive = (message) => port.postMessage(message);
  port.onmessage = ({ data: { call, argument } }) => feeds[call](receive, argument);
};
