// A firmware update: upload, check, copy, end. The service starts the update when it is asked for its status and has
// found the file valid, so it is asked only behind an upload.

import { pause, updateStatus, uploadFirmware } from "../api.js";
import { byId, element, setText } from "../dom.js";

const POLL_MS = 250;
const STEPS = ["upload", "check", "copy", "end"];
// What the state of the last update may still be when the next begins.
const STALE_MS = 4000;
const SILENT_MS = 120000;

const STATES = {
  NoFileSelected: { step: "check", text: "Waiting for the updater" },
  CheckingFile: { step: "check", text: "Checking the file" },
  FileValid: { step: "check", text: "Checked and valid, the update starts" },
  InProgress: { step: "copy", text: "The update runs" },
  CopyingFile: { step: "copy", text: "Copying" },
  Rebooting: { step: "copy", text: "The device takes the update and starts again" },
  Success: { step: "end", ok: true, text: "Updated" },
  FileNotFound: { step: "check", ok: false, text: "the updater found no file" },
  FileCorrupt: { step: "check", ok: false, text: "the file is corrupt" },
  FileNotCompatible: { step: "check", ok: false, text: "the file is for another device" },
  CopyingFailed: { step: "copy", ok: false, text: "copying failed" },
  RebootFailed: { step: "copy", ok: false, text: "the device did not start again" },
  Failed: { step: "copy", ok: false, text: "the update failed" },
  DeviceNotFound: { step: "copy", ok: false, text: "the device does not answer" },
};

export class Firmware {
  #form = byId("firmware-form");

  // onEnd() is called when an update has ended.
  constructor(onEnd) {
    this.onEnd = onEnd;
    this.#form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.#run(this.#form.elements.deviceid.value, this.#form.elements.file.files[0]);
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

  async #run(deviceId, file) {
    const submit = this.#form.querySelector("button");
    submit.disabled = true;
    this.#tell("upload", 0, `Uploading ${file.name}`);
    try {
      const answer = await uploadFirmware(deviceId, file, (share) =>
        this.#tell("upload", share * 100, `Uploading ${file.name}, ${Math.round(share * 100)} %`));
      if (answer.taskid === undefined) {
        this.#tell("upload", 0, `Not accepted: ${answer.result}`, false);
      } else {
        await this.#follow();
      }
    } catch (error) {
      this.#tell("upload", 0, `Not uploaded: ${error.message}`, false);
    }
    submit.disabled = false;
    this.onEnd();
  }

  // Asks until the update has ended. While the device starts again there are no answers.
  async #follow() {
    const begun = Date.now();
    let heard = begun;
    let last = null;
    let hasMoved = false;
    while (Date.now() - heard < SILENT_MS) {
      const status = await updateStatus().catch(() => null);
      if (status) {
        heard = Date.now();
        hasMoved ||= last !== null && status.status !== last;
        last = status.status;
        const isCurrent = hasMoved || Date.now() - begun > STALE_MS;
        if (this.#show(status, isCurrent)) return;
      }
      await pause(POLL_MS);
    }
    this.#tell("copy", 0, "Ended: nothing was heard for two minutes", false);
  }

  // Returns whether the update is over.
  #show({ status, progress }, isCurrent) {
    const state = STATES[status] ?? { step: "copy", text: status };
    if (state.ok !== undefined && !isCurrent) {
      this.#tell("check", 0, "Waiting for the updater");
      return false;
    }
    const percent = state.step === "copy" && progress > 0 ? `, ${progress} %` : "";
    const end = state.ok === false ? "Ended: " : "";
    this.#tell(state.step, state.ok ? 100 : progress, `${end}${state.text}${percent}`, state.ok);
    return state.ok !== undefined;
  }

  // Marks the step that is at work, or the one that it ended in. Unknown progress is a bar that moves.
  #tell(step, percent, text, ok) {
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
