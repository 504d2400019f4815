// A field and the value that it was filled from. An untouched field follows the value; a touched one keeps what is entered.
export class Entry {
  #before;
  // The text that is on its way to the service.
  sent = null;

  constructor(field, value) {
    this.field = field;
    this.settle(field.text, value);
  }

  get isTouched() {
    return this.field.text !== this.#before;
  }

  // Whether it differs from the value, or from what is on its way to become it.
  get isUnsent() {
    return this.field.text !== (this.sent ?? this.#before);
  }

  // Shows the value in an untouched field. Returns false if a touched one is behind it.
  follow(value) {
    if (value === this.base) return true;
    if (this.isTouched) return false;
    this.field.show(value);
    this.settle(this.field.text, value);
    return true;
  }

  // The text has become the value.
  settle(text, value) {
    this.#before = text;
    this.base = value;
  }
  // Marks what is entered as refused, until it is changed.
  mark(isWrong) {
    const { node } = this.field;
    node.setAttribute("aria-invalid", isWrong);
    if (isWrong) node.addEventListener("input", () => this.mark(false), { once: true });
  }
}
