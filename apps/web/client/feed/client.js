// The page's end of the feeds: through the shared worker, or in the page where the browser has none.

// Begins when this module is there, before the page knows what to do with the tree: the messages wait at the port.
const isAlone = typeof SharedWorker === "undefined" || new URLSearchParams(location.search).has("alone");
const workerAddress = new URL("worker.js", import.meta.url);
const worker = isAlone ? null : new SharedWorker(workerAddress, { type: "module", name: "feed" });
const here = isAlone ? import("./worker.js") : null;
worker?.port.postMessage({ call: "need", argument: { tree: true } });

// receive() gets the feeds' messages. The result's need({tree, log, screen}) says what is wanted from now on; reread(number)
// reads the tree anew and ends with the message {type: "reread", number, came}; hurry() asks for pictures without a rest;
// record(names) records them for all pages and ends with {type: "recorded", isKept}.
export function connect(receive) {
  const call = isAlone ? inPage(receive) : throughWorker(receive);
  return Object.fromEntries(["need", "record", "reread", "hurry"].map((name) => [name, (argument) => call(name, argument)]));
}

function throughWorker(receive) {
  const { port } = worker;
  port.onmessage = ({ data }) => receive(data);
  return (call, argument) => port.postMessage({ call, argument });
}

function inPage(receive) {
  return async (call, argument) => (await here).feeds[call](receive, argument);
}
