// What fingers do on a plot: one marks a part, two zoom it and move it. uPlot follows the mouse only. One finger that moves
// up or down scrolls the page, which cancels the mark.

export const NO_MARK = { left: 0, width: 0, top: 0, height: 0 };
// Fingers that are nearer than this say nothing about the length of a part.
const LEAST_PX = 10;

export class Fingers {
  #plot;
  #onZoom;
  // By finger: where it is, and the time that was there when there were two.
  #places = new Map();
  #from = null;

  // onZoom(min, max) is called while two fingers move. A mark of one finger is uPlot's selection.
  constructor(plot, onZoom) {
    this.#plot = plot;
    this.#onZoom = onZoom;
    const on = (type, act) => plot.over.addEventListener(type, (event) => event.pointerType === "mouse" || act(event));
    on("pointerdown", (event) => this.#down(event));
    on("pointermove", (event) => this.#move(event));
    on("pointerup", (event) => this.#up(event, true));
    on("pointercancel", (event) => this.#up(event, false));
    const keepPage = (event) => event.touches.length > 1 && event.preventDefault();
    plot.over.addEventListener("touchmove", keepPage, { passive: false });
  }

  #placeOf({ clientX }) {
    const { left, width } = this.#plot.over.getBoundingClientRect();
    return Math.min(Math.max(clientX - left, 0), width);
  }

  #down(event) {
    if (event.isPrimary) this.#places.clear();
    this.#places.set(event.pointerId, { x: this.#placeOf(event) });
    this.#from = this.#places.size === 1 ? this.#placeOf(event) : null;
    if (this.#places.size < 2) return;
    this.#plot.setSelect(NO_MARK, false);
    this.#places.forEach((place) => { place.time = this.#plot.posToVal(place.x, "x"); });
  }

  #move(event) {
    const place = this.#places.get(event.pointerId);
    if (!place) return;
    place.x = this.#placeOf(event);
    if (this.#from !== null) this.#mark(place.x, false);
    if (this.#places.size === 2) this.#zoom([...this.#places.values()]);
  }

  // The times stay under the fingers.
  #zoom([one, other]) {
    const perPixel = (other.time - one.time) / (other.x - one.x);
    if (Math.abs(other.x - one.x) < LEAST_PX || !(perPixel > 0)) return;
    const min = one.time - one.x * perPixel;
    this.#onZoom(min, min + this.#plot.over.clientWidth * perPixel);
  }

  #up(event, isMeant) {
    if (this.#from !== null && isMeant) this.#mark(this.#placeOf(event), true);
    else this.#plot.setSelect(NO_MARK, false);
    this.#from = null;
    this.#places.delete(event.pointerId);
  }

  #mark(x, isEnd) {
    const { height } = this.#plot.over.getBoundingClientRect();
    this.#plot.setSelect({ left: Math.min(this.#from, x), width: Math.abs(this.#from - x), top: 0, height }, isEnd);
  }
}
