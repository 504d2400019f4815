// Shows the state of the connection, and greys values that may be old.

import { byId, setText } from "../dom.js";

export class Connection {
  #state = "reconnecting";
  #hasTree = false;
  #listeners = new Set();
  isStale = true;
  // Whether the controller has version 2 of the API.
  isTyped = false;

  // listener() is called when `isStale`, whether values may be old, has changed.
  subscribe(listener) {
    this.#listeners.add(listener);
  }

  // Takes the feeds' messages of the types "state" and "tree".
  take(message) {
    if (message.type === "tree") {
      this.#hasTree = true;
    } else {
      this.#state = message.state;
      this.isTyped = message.isTyped;
      this.#hasTree &&= message.state === "live";
      byId("connection").dataset.state = message.state;
      setText(byId("connection"), message.text);
    }
    const isStale = this.#state !== "live" || !this.#hasTree;
    if (isStale === this.isStale) return;
    this.isStale = isStale;
    document.body.toggleAttribute("data-stale", isStale);
    this.#listeners.forEach((listener) => listener());
  }
}
