// The display, refreshed as fast as answers come: the next picture is asked for when the last one is drawn.

import { capture, pause } from "../feed/api.js";
import { byId, saveAs, setPressed, setText } from "../dom.js";
import { timeStamp } from "../model/format.js";

const RETRY_MS = 1000;

export class ScreenView {
  #canvas = byId("screen-image");
  #abort = null;
  #isShown = false;
  #isPaused = false;
  #picture = null;
  #drawnAt = 0;
  #everyMs = 100;

  constructor() {
    byId("screen-pause").addEventListener("click", () => this.#togglePause());
    byId("screen-save").addEventListener("click", () => {
      saveAs(`screen-${timeStamp()}.png`, "image/png", [this.#picture]);
    });
  }

  show() {
    this.#isShown = true;
    this.#run();
  }

  hide() {
    this.#isShown = false;
    this.#abort?.abort();
    this.#abort = null;
  }

  async #run() {
    if (this.#abort || this.#isPaused) return;
    const { signal } = this.#abort = new AbortController();
    this.#drawnAt = performance.now();
    while (!signal.aborted) {
      try {
        await this.#draw(await capture(signal));
      } catch (error) {
        if (!signal.aborted) {
          setText(byId("screen-note"), `No picture: ${error.message}. Trying again.`);
          await pause(RETRY_MS);
        }
      }
    }
  }

  async #draw(picture) {
    const image = await createImageBitmap(picture, { colorSpaceConversion: "none" });
    if (this.#canvas.width !== image.width || this.#canvas.height !== image.height) {
      Object.assign(this.#canvas, { width: image.width, height: image.height });
    }
    this.#canvas.getContext("2d", { alpha: false }).drawImage(image, 0, 0);
    image.close();
    this.#picture = picture;
    byId("screen-save").disabled = false;
    this.#tellRate();
  }

  #tellRate() {
    const now = performance.now();
    this.#everyMs += 0.2 * (now - this.#drawnAt - this.#everyMs);
    this.#drawnAt = now;
    const rate = (1000 / this.#everyMs).toFixed(1);
    setText(byId("screen-note"), `${this.#canvas.width} × ${this.#canvas.height} pixels, ${rate} pictures a second`);
  }

  #togglePause() {
    this.#isPaused = !this.#isPaused;
    setPressed(byId("screen-pause"), this.#isPaused, "Pause", "Go on");
    if (this.#isPaused) {
      this.#abort?.abort();
      this.#abort = null;
    } else if (this.#isShown) {
      this.#run();
    }
  }
}
