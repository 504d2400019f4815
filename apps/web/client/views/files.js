// The files of one kind on the device.

import { deleteFile, fileAddress, listFiles, putFile } from "../feed/api.js";
import { ask, element, setText } from "../dom.js";

// The card with the list, for one kind of the API ("lenstables"). onChange is called when the device's space may have
// changed.
export class FileList {
  #kind;
  #onChange;
  #list = element("ul");
  #state = element("p", { class: "note", role: "status" });
  #names = [];

  constructor(kind, title, onChange) {
    this.#kind = kind;
    this.#onChange = onChange;
    const input = element("input", { type: "file", multiple: true, class: "unseen" });
    input.addEventListener("change", async () => {
      await this.#upload([...input.files]);
      input.value = "";
    });
    this.node = element("section", { class: "card files-of", id: `file-list-${kind}` },
      element("h2", {}, title), this.#list, element("label", { class: "drop" }, input, `Drop files here, or choose some`), this.#state);
    this.#takeDrops();
  }

  async refresh() {
    try {
      this.#names = await listFiles(this.#kind);
      this.#list.replaceChildren(...this.#names.map((name) => this.#item(name)));
      if (this.#names.length === 0) this.#list.append(element("li", { class: "note" }, "No files"));
    } catch (error) {
      setText(this.#state, `Not listed: ${error.message}.`);
    }
  }

  #item(name) {
    const remove = element("button", { class: "delete", "aria-label": `Delete ${name}` }, "Delete");
    remove.addEventListener("click", () => this.#delete(name));
    return element("li", { "data-file": name },
      element("a", { href: fileAddress(this.#kind, name), download: name }, name), remove);
  }

  #takeDrops() {
    const mark = (isOver) => this.node.classList.toggle("over", isOver);
    this.node.addEventListener("dragover", (event) => {
      event.preventDefault();
      mark(true);
    });
    this.node.addEventListener("dragleave", () => mark(false));
    this.node.addEventListener("drop", (event) => {
      event.preventDefault();
      mark(false);
      this.#upload([...event.dataTransfer.files]);
    });
  }

  // One after the other: the service holds each whole.
  async #upload(files) {
    const said = [];
    for (const file of files) {
      setText(this.#state, `Uploading ${file.name} …`);
      said.push(await this.#uploadOne(file));
    }
    await this.refresh();
    setText(this.#state, said.filter(Boolean).join(" "));
    this.#onChange();
  }

  async #uploadOne(file) {
    if (this.#names.includes(file.name) && !await ask(`Replace ${file.name} on the device?`, "Replace")) return "";
    try {
      const result = await putFile(this.#kind, file.name, file);
      return result === "Success" ? `${file.name} is stored.` : `${file.name} is not stored: ${result}.`;
    } catch (error) {
      return `${file.name} is not stored: ${error.message}.`;
    }
  }

  async #delete(name) {
    if (!await ask(`Delete ${name} from the device?`, "Delete")) return;
    try {
      const result = await deleteFile(this.#kind, name);
      setText(this.#state, result === "Success" ? `${name} is deleted.` : `${name} is not deleted: ${result}.`);
    } catch (error) {
      setText(this.#state, `${name} is not deleted: ${error.message}.`);
    }
    await this.refresh();
    this.#onChange();
  }
}
