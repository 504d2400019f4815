// A firmware update: upload, check, copy, end. A request for the status starts the update once the file is found valid, so
// the status is requested only after an upload.

import { pause, updateStatus, uploadFirmware } from "../feed/api.js";

const POLL_MS = 250;
// How long the state of the last update may still be there when the next begins.
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

// Calls tell({step, percent, text, ok}) for each change; `ok` is there at the end.
export class FirmwareUpdate {
  #tell;

  constructor(tell) {
    this.#tell = (step, percent, text, ok) => tell({ step, percent, text, ok });
  }

  // Uploads the file and follows the update to its end.
  async run(deviceId, file) {
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
}
