// All feeds and their receivers.

import { readVariables } from "./documents.js";
import { LogFeed } from "./logfeed.js";
import { Recorder } from "./recorder.js";
import { ScreenFeed } from "./screenfeed.js";
import { TreeFeed } from "./treefeed.js";

// Wants the tree for the recorder.
const RECORDING = () => {};

export class Feeds {
  #needs = new Map();
  // The text of each variable's value; empty while nothing is known.
  #values = new Map();
  #recorder = new Recorder(this.#values, () => this.#send("tree", this.#recorded));
  #feeds = {
    tree: new TreeFeed((message) => this.#takeTree(message), this.#values),
    log: new LogFeed((message) => this.#send("log", message)),
    screen: new ScreenFeed((message) => this.#send("screen", message)),
  };

  // What `receive` wants from now on, {tree, log, screen}. It gets the feeds' messages, and first what they have.
  need(receive, wanted) {
    const before = this.#needs.get(receive) ?? {};
    this.#needs.set(receive, wanted);
    for (const [name, feed] of Object.entries(this.#feeds)) {
      if (!wanted[name] || before[name]) continue;
      feed.latest.forEach(receive);
      feed.start() || feed.reread?.();
    }
    this.#stopUnwanted();
    if (!Object.values(wanted).some(Boolean)) this.#needs.delete(receive);
  }

  // Records the names from now on, also while no page shows them. Answers {type: "recorded", isKept} when all before is
  // written, and sends it again when the browser begins or ends to keep what is recorded.
  async record(receive, names) {
    await this.#recorder.write();
    this.#recorder.watch(names);
    this.#needs.set(RECORDING, { tree: this.#recorder.isWanted });
    if (this.#recorder.isWanted) this.#feeds.tree.start();
    this.#stopUnwanted();
    receive(this.#recorded);
  }

  get #recorded() {
    return { type: "recorded", isKept: this.#recorder.isKept };
  }

  // Reads the tree anew; ends with the message {type: "reread", number, came}.
  async reread(receive, number) {
    receive({ type: "reread", number, came: await this.#feeds.tree.reread() });
  }

  // Pictures as fast as they come, for a while.
  hurry() {
    this.#feeds.screen.hurry();
  }

  // Pages come first. Updates before the tree are left out: they come once more behind it.
  #takeTree(message) {
    this.#send("tree", message);
    if (message.type === "state" && message.state !== "live") this.#values.clear();
    if (message.type === "tree" || message.type === "update" && this.#values.size > 0) this.#keep(message.text);
    this.#recorder.take();
  }

  #keep(text) {
    try {
      readVariables(text, (memory, variable, raw) => this.#values.set(`${memory}.${variable}`, raw));
    } catch {
      // Not whole: each page asks for the tree again, and so it comes here, too.
    }
  }

  #stopUnwanted() {
    for (const [name, feed] of Object.entries(this.#feeds)) {
      if (![...this.#needs.values()].some((each) => each[name])) feed.stop();
    }
  }

  #send(name, message) {
    for (const [receive, wanted] of this.#needs) {
      if (wanted[name]) receive(message);
    }
  }
}
