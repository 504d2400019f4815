// The feeds for all pages of a browser. A page sends {call, argument}: "need", "record", "reread" or "hurry"; see feeds.js.

// All modules are named here, so that the browser asks for them at once.
import "./api.js";
import "./documents.js";
import { Feeds } from "./feeds.js";
import "./history.js";
import "./logfeed.js";
import "./loop.js";
import "./recorder.js";
import "./screenfeed.js";
import "./treefeed.js";

const feeds = new Feeds();

globalThis.onconnect = ({ ports: [port] }) => {
  const receive = (message) => port.postMessage(message);
  port.onmessage = ({ data: { call, argument } }) => feeds[call](receive, argument);
};
