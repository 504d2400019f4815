// The log's text as lines of pieces. The service escapes nothing: of all that looks like HTML only the spans count that
// it writes for colours, exactly as it writes them. Everything else is text.

const SPAN = /<span style='(?:(color|background-color): #([0-9A-F]{6}))?'>|<\/span>/g;

// Keeps an incomplete line until its rest arrives. A colour ends with its line, because its reset may be lost.
export class LogText {
  #rest = "";

  // Takes the next text and returns the lines that are whole, each a list of {text, classes}.
  take(text) {
    const lines = (this.#rest + text).split("\n");
    this.#rest = lines.pop();
    return lines.map((line) => this.#pieces(line.replace(/\r$/, "")));
  }

  #pieces(line) {
    const pieces = [];
    const open = [];
    let from = 0;
    for (const match of line.matchAll(SPAN)) {
      add(pieces, line.slice(from, match.index), open);
      from = match.index + match[0].length;
      if (match[0] === "</span>") open.pop();
      else open.push(match[1] ? colourClass(match[1], match[2]) : "");
    }
    add(pieces, line.slice(from), open);
    return pieces;
  }
}

// The log's bytes as text without colours. A span may be in two chunks, so a line waits until it is whole.
export class PlainText {
  #rest = "";
  #decoder = new TextDecoder();

  // Takes the next bytes and returns the lines that are whole.
  take(bytes) {
    const text = this.#rest + this.#decoder.decode(bytes, { stream: true });
    const end = text.lastIndexOf("\n") + 1;
    this.#rest = text.slice(end);
    return plain(text.slice(0, end));
  }

  // What is left of an incomplete line.
  end() {
    return plain(this.#rest + this.#decoder.decode());
  }
}

const plain = (text) => text.replace(SPAN, "").replaceAll("\r\n", "\n");

function add(pieces, text, open) {
  if (text !== "") pieces.push({ text, classes: open.filter(Boolean) });
}

// Red, green and blue are bits 0 to 2, on as AA or FF. The bright colours have 55 or FF in them.
function colourClass(property, digits) {
  const bits = [0, 2, 4].map((at, bit) => ("AF".includes(digits[at]) ? 1 << bit : 0));
  const number = bits.reduce((sum, bit) => sum + bit);
  return `${property === "color" ? "fg" : "bg"}-${number}${/[5F]/.test(digits) ? " bright" : ""}`;
}
