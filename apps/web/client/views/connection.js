// Says how the page stands with the service, and greys what may be old.

import { byId, setText } from "../dom.js";

export class Connection {
  #state = "reconnecting";
  #hasTree = false;

  // Takes the feeds' messages of the types "state" and "tree".
  take(message) {
    if (message.type === "tree") {
      this.#hasTree = true;
    } else {
      this.#state = message.state;
      this.#hasTree &&= message.state === "live";
      byId("connection").dataset.state = message.state;
      setText(byId("connection"), message.text);
    }
    document.body.toggleAttribute("data-stale", this.#state !== "live" || !this.#hasTree);
  }
}
