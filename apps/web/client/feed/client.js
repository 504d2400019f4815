// The page's end of the feeds: through the shared worker, or in the page where the browser has none.

import { LogFeed } from "./logfeed.js";
import { TreeFeed } from "./treefeed.js";

// receive() gets the feeds' messages. The result's need({tree, log}) tells what is wanted from now on; reread(number)
// reads the tree anew and ends with the message {type: "reread", number, came}.
export function connect(receive) {
  const isAlone = typeof SharedWorker === "undefined" || new URLSearchParams(location.search).has("alone");
  return isAlone ? inPage(receive) : throughWorker(receive);
}

function throughWorker(receive) {
  const { port } = new SharedWorker(new URL("worker.js", import.meta.url), { type: "module", name: "feed" });
  port.onmessage = ({ data }) => receive(data);
  return { need: (wanted) => port.postMessage(wanted), reread: (number) => port.postMessage({ reread: number }) };
}

function inPage(receive) {
  const tree = new TreeFeed(receive);
  const log = new LogFeed(receive);
  return {
    need: (wanted) => {
      wanted.tree ? tree.start() : tree.stop();
      wanted.log ? log.start() : log.stop();
    },
    reread: async (number) => receive({ type: "reread", number, came: await tree.reread() }),
  };
}
