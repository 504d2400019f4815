// The files of one kind on the device.

import { deleteFile, fileAddress, listFiles, putFile } from "../feed/api.js";
import { ask, element, setText } from "../dom.js";
import { apart } from "../model/format.js";

// The card with the list, for one kind of the API ("lenstables"). onChange is called when the device's space may have
// changed.
export class FileList {
  #kind;
  #onChange;
  #list = element("ul");
  #state = element("p", { class: "note", role: "status" });
  #names = null;
  #isProblem = false;
  #isUploading = false;
  isReading = false;

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
    addEventListener("beforeunload", (event) => this.#isUploading && event.preventDefault());
    this.#takeDrops();
  }

  // Reads the list; returns whether that worked.
  async refresh() {
    this.isReading = true;
    try {
      const names = await listFiles(this.#kind);
      if (String(names) !== String(this.#names)) this.#show(names);
      if (this.#isProblem) this.#say("");
      return true;
    } catch (error) {
      this.#say(`Not listed: ${error.message}.`);
      this.#isProblem = true;
      return false;
    } finally {
      this.isReading = false;
    }
  }

  #show(names) {
    this.#names = names;
    this.#list.replaceChildren(...names.map((name) => this.#item(name)));
    if (names.length === 0) this.#list.append(element("li", { class: "note" }, "No files"));
  }

  #say(text) {
    this.#isProblem = false;
    setText(this.#state, text);
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
    this.#isUploading = true;
    for (const file of files) {
      this.#say(`Uploading ${apart(file.name)} …`);
      said.push(await this.#uploadOne(file));
    }
    this.#isUploading = false;
    await this.refresh();
    this.#say(said.filter(Boolean).join(" "));
    this.#onChange();
  }

  // The list is read before: another client may have stored a file of this name.
  async #uploadOne(file) {
    if (!await this.refresh()) return `${apart(file.name)} is not stored: the files cannot be listed.`;
    if (this.#names.includes(file.name) && !await ask(`Replace ${apart(file.name)} on the device?`, "Replace")) return "";
    try {
      const result = await putFile(this.#kind, file.name, file);
      return result === "Success" ? `${apart(file.name)} is stored.` : `${apart(file.name)} is not stored: ${result}.`;
    } catch (error) {
      return failure(file.name, "stored", error);
    }
  }

  async #delete(name) {
    if (!await ask(`Delete ${apart(name)} from the device?`, "Delete")) return;
    try {
      const result = await deleteFile(this.#kind, name);
      this.#say(result === "Success" ? `${apart(name)} is deleted.` : `${apart(name)} is not deleted: ${result}.`);
    } catch (error) {
      this.#say(failure(name, "deleted", error));
    }
    await this.refresh();
    if (document.activeElement === document.body) this.node.querySelector("input").focus(); // its button is gone
    this.#onChange();
  }
}

const failure = (name, done, error) => (error.isRefusal ? `${apart(name)} is not ${done}: ${error.message}.`
  : `It is unknown whether ${apart(name)} is ${done}: ${error.message}.`);
