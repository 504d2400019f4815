// The display.

import { byId, saveAs, setPressed, setText } from "../dom.js";
import { timeStamp } from "../model/format.js";

export class ScreenView {
  #app;
  #canvas = byId("screen-image");
  #isShown = false;
  #isPaused = false;
  #picture = null;
  #timer = 0;

  constructor(app) {
    this.#app = app;
    app.listen("screen", (message) => this.#draw(message));
    app.listen("screen-state", ({ text }) => setText(byId("screen-note"), text));
    app.listen("screen-fast", ({ until }) => this.#showFast(until));
    byId("screen-pause").addEventListener("click", () => this.#togglePause());
    byId("screen-fast").addEventListener("click", () => app.feed.hurry());
    byId("screen-save").addEventListener("click", () => {
      saveAs(`screen-${timeStamp()}.png`, "image/png", [this.#picture]);
    });
  }

  show() {
    this.#isShown = true;
    this.#need();
  }

  hide() {
    this.#isShown = false;
    this.#need();
  }

  #need() {
    this.#app.need("screen", this.#isShown && !this.#isPaused);
  }

  async #draw({ picture, rate }) {
    const image = await createImageBitmap(picture, { colorSpaceConversion: "none" });
    if (this.#canvas.width !== image.width || this.#canvas.height !== image.height) {
      Object.assign(this.#canvas, { width: image.width, height: image.height });
    }
    this.#canvas.getContext("2d", { alpha: false }).drawImage(image, 0, 0);
    image.close();
    this.#picture = picture;
    byId("screen-save").disabled = false;
    if (!this.#isPaused) setText(byId("screen-note"), `${this.#canvas.width} × ${this.#canvas.height} pixels, ${rate.toFixed(1)} pictures a second`);
  }

  #showFast(until) {
    clearTimeout(this.#timer);
    const isFast = until > Date.now();
    setPressed(byId("screen-fast"), isFast, "Fast for 30 s", "Fast");
    if (isFast) this.#timer = setTimeout(() => this.#showFast(until), until - Date.now() + 1);
  }

  #togglePause() {
    this.#isPaused = !this.#isPaused;
    setPressed(byId("screen-pause"), this.#isPaused, "Pause", "Go on");
    setText(byId("screen-note"), this.#isPaused ? "Paused: this picture stays." : "");
    this.#need();
  }
}
