// All feeds and their receivers.

import { LogFeed } from "./logfeed.js";
import { Recorder } from "./recorder.js";
import { ScreenFeed } from "./screenfeed.js";
import { TreeFeed } from "./treefeed.js";

export class Feeds {
  #needs = new Map();
  #tree = new TreeFeed((message) => this.#send("tree", message));
  #log = new LogFeed((message) => this.#send("log", message));
  #screen = new ScreenFeed((message) => this.#send("screen", message));
  #recorder = new Recorder();
  #toRecorder = (message) => this.#recorder.take(message);

  // What `receive` wants from now on, {tree, log, screen}. It gets the feeds' messages, and first what they have.
  need(receive, wanted) {
    const before = this.#needs.get(receive) ?? {};
    const begins = (name) => wanted[name] && !before[name];
    this.#needs.set(receive, wanted);
    if (begins("tree")) {
      receive(this.#tree.state);
      this.#tree.start() || this.#tree.reread();
    }
    if (begins("log")) {
      receive(this.#log.whole);
      this.#log.start();
    }
    if (begins("screen")) {
      this.#screen.latest.forEach(receive);
      this.#screen.start();
    }
    this.#stopUnwanted();
    if (!Object.values(wanted).some(Boolean)) this.#needs.delete(receive);
  }

  // Records the names from now on, also while no page shows them. Answers {type: "recorded"} when all before is written.
  async record(receive, names) {
    await this.#recorder.write();
    const isNew = this.#recorder.watch(names);
    if (isNew && this.#needs.has(this.#toRecorder)) this.#tree.reread();
    this.need(this.#toRecorder, { tree: this.#recorder.isWanted });
    receive({ type: "recorded" });
  }

  // Reads the tree anew; ends with the message {type: "reread", number, came}.
  async reread(receive, number) {
    receive({ type: "reread", number, came: await this.#tree.reread() });
  }

  // Pictures as fast as they come, for a while.
  hurry() {
    this.#screen.hurry();
  }

  #stopUnwanted() {
    for (const [name, feed] of Object.entries({ tree: this.#tree, log: this.#log, screen: this.#screen })) {
      if (![...this.#needs.values()].some((each) => each[name])) feed.stop();
    }
  }

  #send(name, message) {
    for (const [receive, wanted] of this.#needs) {
      if (wanted[name]) receive(message);
    }
  }
}
