// Chooses a firmware file and its target, and shows the update.

import { ask, byId, element, setText } from "../dom.js";
import { sizeText } from "../model/format.js";
import { FULL } from "../model/remember.js";

const STEPS = ["upload", "check", "copy", "end"];

export class FirmwareView {
  #form = byId("firmware-form");
  #targets = new Map();
  #firmware = null;
  #note = "";

  // onEnd() is called when an update has ended.
  constructor(app, onEnd) {
    this.onEnd = onEnd;
    this.#form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.#start();
    });
    byId("firmware-cancel").addEventListener("click", () => this.#firmware.cancel());
    this.#open(app);
  }

  async #open(app) {
    this.#firmware = await app.firmware();
    this.#firmware.subscribe(() => this.#show(this.#firmware.state));
    this.#show(this.#firmware.state);
  }

  // Offers the device and its accessories. The choice is the user's: one that is not there now stays chosen.
  offer(info) {
    const own = info._id === undefined ? [] : [{ ...info, isHost: true }];
    const targets = [...own, ...info.devices].map(({ _id, name, serialnumber, firmwareversion, isHost = false }) =>
      [_id, { id: _id, name, serial: isHost ? serialnumber : Number(serialnumber), version: firmwareversion, isHost }]);
    const select = this.#form.elements.deviceid;
    const chosen = this.#targets.get(select.value);
    this.#targets = new Map(targets);
    const label = ({ name, serial, isHost }) => (isHost ? `${name} (this device)` : `${name} ${serial}`);
    const options = targets.map(([value, target]) => element("option", { value }, label(target)));
    if (chosen && !this.#targets.has(chosen.id)) {
      this.#targets.set(chosen.id, { ...chosen, isAway: true });
      options.push(element("option", { value: chosen.id }, `${label(chosen)} (not connected)`));
    }
    select.replaceChildren(select.options[0], ...options);
    select.value = chosen?.id ?? "";
  }

  async #start() {
    const { deviceid, file: { files: [file] } } = this.#form.elements;
    const { name, serial, version } = this.#targets.get(deviceid.value);
    const isThere = () => {
      const { isAway } = this.#targets.get(deviceid.value);
      if (isAway) this.#show({ text: `Not updated: ${name} ${serial} is not connected.`, ok: false });
      return !isAway;
    };
    this.#note = "";
    const question = `Update ${name} ${serial}, version ${version}, with the file ${file.name} (${sizeText(file.size)})?`;
    if (!isThere() || !await ask(question, "Update") || !isThere()) return;
    if (await this.#firmware.start(this.#targets.get(deviceid.value), file)) return;
    this.#note = ` ${file.name} for ${name} is not sent: another update runs.`;
    this.#show(this.#firmware.state);
  }

  // Marks the step that is at work, or the one that it ended in. A progress of 0 is a bar that moves.
  #show({ step, percent = 0, text, ok, isRunning = false, canCancel = false }) {
    const reached = STEPS.indexOf(step);
    document.querySelectorAll("#firmware-steps li").forEach((item, i) => {
      item.dataset.state = i < reached || ok ? "done" : i > reached ? "" : ok === false ? "failed" : "active";
    });
    const bar = byId("firmware-progress");
    if (isRunning && percent === 0 && step !== "upload") bar.removeAttribute("value");
    else bar.value = percent;
    const stay = this.#firmware?.isActive && !this.#firmware.isKept ? `. Keep this page open until it has ended: ${FULL}.` : "";
    setText(byId("firmware-state"), `${text}${stay}${this.#note}`);
    byId("firmware-state").dataset.ok = ok ?? "";
    byId("firmware-cancel").hidden = !canCancel;
    if (this.#form.querySelector("[type=submit]").disabled && !isRunning) this.onEnd();
    this.#form.querySelector("[type=submit]").disabled = isRunning;
  }
}
