// Polls for all pages of a browser. A page sends what it needs, {tree, log}, or {reread: number}, and gets the
// feeds' messages and {type: "reread", number, came}.

import { LogFeed } from "./logfeed.js";
import { TreeFeed } from "./treefeed.js";

const needs = new Map();
const tree = new TreeFeed((message) => tell("tree", message));
const log = new LogFeed((message) => tell("log", message));

function tell(need, message) {
  for (const [port, wanted] of needs) {
    if (wanted[need]) port.postMessage(message);
  }
}

function change(port, wanted) {
  const before = needs.get(port) ?? {};
  needs.set(port, wanted);
  const isAny = (need) => [...needs.values()].some((each) => each[need]);
  if (wanted.tree && !before.tree) {
    port.postMessage(tree.state);
    tree.start() || tree.reread();
  } else if (!isAny("tree")) {
    tree.stop();
  }
  if (wanted.log && !before.log) {
    port.postMessage(log.whole);
    log.start();
  } else if (!isAny("log")) {
    log.stop();
  }
  if (!wanted.tree && !wanted.log) needs.delete(port);
}

async function reread(port, number) {
  port.postMessage({ type: "reread", number, came: await tree.reread() });
}

globalThis.onconnect = ({ ports: [port] }) => {
  port.onmessage = ({ data }) => ("reread" in data ? reread(port, data.reread) : change(port, data));
};
