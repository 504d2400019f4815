// Chooses a firmware file and its target, and shows the update.

import { byId, element, setText } from "../dom.js";
import { FirmwareUpdate } from "../model/firmware.js";

const STEPS = ["upload", "check", "copy", "end"];

export class FirmwareView {
  #form = byId("firmware-form");
  #update = new FirmwareUpdate((state) => this.#show(state));

  // onEnd() is called when an update has ended.
  constructor(onEnd) {
    this.onEnd = onEnd;
    this.#form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.#run();
    });
  }

  // Offers the device and its accessories to choose from, and keeps the choice.
  offer(info) {
    const select = this.#form.elements.deviceid;
    const chosen = select.value;
    const own = info._id === undefined ? [] : [[info._id, `${info.name} (this device)`]];
    const all = [...own, ...info.devices.map((device) => [device._id, `${device.name} ${device.serialnumber}`])];
    select.replaceChildren(...all.map(([id, text]) => element("option", { value: id, selected: id === chosen }, text)));
  }

  async #run() {
    const { deviceid, file } = this.#form.elements;
    const submit = this.#form.querySelector("button");
    submit.disabled = true;
    await this.#update.run(deviceid.value, file.files[0]);
    submit.disabled = false;
    this.onEnd();
  }

  // Marks the step that is at work, or the one that it ended in. Unknown progress is a bar that moves.
  #show({ step, percent, text, ok }) {
    const reached = STEPS.indexOf(step);
    document.querySelectorAll("#firmware-steps li").forEach((item, i) => {
      item.dataset.state = i < reached || ok ? "done" : i > reached ? "" : ok === false ? "failed" : "active";
    });
    const bar = byId("firmware-progress");
    if (ok === undefined && percent === 0 && step !== "upload") {
      bar.removeAttribute("value");
    } else {
      bar.value = percent;
    }
    setText(byId("firmware-state"), text);
    byId("firmware-state").dataset.ok = ok ?? "";
  }
}
