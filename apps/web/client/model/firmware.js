// Firmware updates. The tree shows which update runs, so every page shows the same. The browser keeps its upload in local
// storage, so each of its pages continues it, also after a reload: it starts the update once the file is valid, and compares
// the versions at the end. A status request starts a valid update; it is sent for uploads of this browser only.

import { set, updateStatus } from "../feed/api.js";
import { claim } from "./claim.js";
import { Kept, TAB, recall, remember } from "./remember.js";
import { Upload } from "./upload.js";

const CLAIMING = "console.claiming";
const TICK_MS = 500;
const START_MS = 3000;
const BEAT_MS = 15000;
const SILENT_MS = 300000;
// After that the state of the update before this one is taken for its own.
const STALE_MS = 30000;

const STATES = {
  NoFileSelected: { step: "check", text: "Waiting for the updater" },
  CheckingFile: { step: "check", text: "Checking the file" },
  FileValid: { step: "check", text: "The file is valid" },
  InProgress: { step: "copy", text: "Updating" },
  CopyingFile: { step: "copy", text: "Copying" },
  Rebooting: { step: "copy", text: "Starting again with the update" },
  Success: { step: "end", ok: true, text: "Updated" },
  FileNotFound: { step: "check", ok: false, text: "the updater found no file" },
  FileCorrupt: { step: "check", ok: false, text: "the file is corrupt" },
  FileNotCompatible: { step: "check", ok: false, text: "the file is for another device" },
  CopyingFailed: { step: "copy", ok: false, text: "copying failed" },
  RebootFailed: { step: "copy", ok: false, text: "the device did not start again" },
  Failed: { step: "copy", ok: false, text: "the update failed" },
  DeviceNotFound: { step: "copy", ok: false, text: "the device does not answer" },
};
const RUNNING = ["CheckingFile", "FileValid", "InProgress", "CopyingFile", "Rebooting"];

// The variables of an update: of the controller, and of an accessory.
const HOST = {
  start: "MemMedia.HostUpdateStart",
  read: (value) => ({ state: value("MemMedia.HostUpdateFileState"), name: value("MemPersistent.ProductName"),
    file: value("MemMedia.HostUpdateFileName"), percent: 0 }),
};
const ACCESSORY = {
  start: "MemExternalDevices.RBusUpdateStart",
  read: (value) => {
    const [percent, index, count] = ["Progress", "Index", "Count"].map((name) => Number(value(`MemExternalDevices.RBusUpdate${name}`)));
    return { state: value("MemExternalDevices.RBusUpdateState"), name: value("MemExternalDevices.RBusUpdateDeviceName"),
      serial: value("MemExternalDevices.RBusUpdateDeviceSerial"), file: value("MemExternalDevices.RBusUpdateFileName"),
      percent: count > 0 ? Math.trunc((percent + 100 * index) / count) : 0 };
  },
};

export class Firmware {
  #app;
  #kept = new Kept("console.update", null);
  #listeners = new Set();
  #upload = null;
  #isSending = false;
  #isAsking = false;
  #shown = "";

  constructor(app) {
    this.#app = app;
    this.#endClaim();
    app.store.subscribe(() => this.#look());
    this.#kept.subscribe(() => this.#look());
    addEventListener("pagehide", () => this.#isSending && this.#keep({ phase: "left" }));
    addEventListener("beforeunload", (event) => (this.#isSending || this.isActive && !this.isKept) && event.preventDefault());
    setInterval(() => this.#look(), TICK_MS);
  }

  // listener() is called when `state` has changed.
  subscribe(listener) {
    this.#listeners.add(listener);
  }

  // {step, percent, text, ok, isRunning, canCancel}: `ok` is there at the end; without a step there has been no update.
  get state() {
    const own = this.#kept.value;
    if (own?.phase === "uploading") return this.#uploading(own);
    const running = this.#running();
    if (own && own.phase !== "ended") return this.#following(own);
    const none = this.#app.connection.isStale ? "It is not known yet whether an update runs." : "No update is running.";
    return running ?? (own ? { ...own.end, isRunning: false } : { text: none });
  }

  // Whether this browser has an update to follow.
  get isActive() {
    return this.#kept.value !== null && this.#kept.value.phase !== "ended";
  }

  // Whether it is followed when this page is left.
  get isKept() {
    return this.#kept.isKept;
  }

  // Uploads the file for a target {id, name, serial, isHost} and starts the update. Resolves to false where another runs.
  // What is kept from the first moment survives a reload. Of pages that start at the same moment one gets the claim.
  async start(target, file) {
    if (this.state.isRunning) return false;
    const former = this.#kept.value?.id;
    const own = { id: Math.random(), target, file: file.name, phase: "uploading", percent: 0, beat: Date.now(), seen: [],
      from: this.#version(target), before: this.#signature(target.isHost ? HOST : ACCESSORY) };
    remember(CLAIMING, own, TAB);
    const isFree = await claim(own.id, former);
    if (isFree) this.#kept.change(() => own);
    remember(CLAIMING, undefined, TAB);
    if (!isFree) return false;
    this.#isSending = true;
    await this.#send(own, file);
    this.#isSending = false;
    return true;
  }

  // Where this page was left before it had its claim, nothing has been sent.
  #endClaim() {
    const own = recall(CLAIMING, null, TAB);
    remember(CLAIMING, undefined, TAB);
    if (own === null || own.id === this.#kept.value?.id || this.isActive) return;
    this.#kept.change(() => own);
    this.#end("upload", false, `Not updated: the page was left before the upload, ${own.target.name} has got nothing`);
  }

  // Ends an upload. What has been sent whole cannot be taken back.
  cancel() {
    this.#upload?.cancel();
  }

  async #send(own, file) {
    const keep = (change) => this.#kept.change(() => ({ ...own, ...change }));
    this.#upload = new Upload(own.target.id, file);
    const beat = () => this.#upload && keep({ beat: Date.now(), ...this.#upload.state });
    this.#upload.onprogress = beat;
    const timer = setInterval(beat, TICK_MS);
    const answer = await this.#upload.done;
    clearInterval(timer);
    this.#upload = null;
    if (answer.taskid !== undefined) keep({ phase: "sent", since: Date.now() });
    else this.#end("upload", false, answer.unknown ? `Unknown: ${answer.unknown}` : `Not updated: ${answer.result}`);
  }

  #value(key) {
    return this.#app.store.variables.get(key)?.value ?? "";
  }

  #read(place) {
    return place.read((key) => this.#value(key));
  }

  #signature(place) {
    const { state, name, serial, file } = this.#read(place);
    return [state, name, serial, file].join("\n");
  }

  #keep(change) {
    this.#kept.change((own) => ({ ...own, ...change }));
  }

  #end(step, ok, text) {
    this.#keep({ phase: "ended", end: { step, ok, text, percent: ok ? 100 : 0 } });
  }

  // The version of a target as the tree has it; undefined while an accessory is not there.
  #version({ isHost, name, serial }) {
    if (isHost) return this.#value("MemPersistent.ProductVersion");
    const list = this.#app.store.variables.get("MemExternalDevices.RBusDeviceList")?.data ?? [];
    const device = list.find(({ RBusDeviceConnected, RBusDeviceName, RBusSerNumber }) =>
      RBusDeviceConnected && RBusDeviceName === name && RBusSerNumber === serial);
    return device?.RBusMainSwVersion;
  }

  #uploading({ target, file, percent, note, beat }) {
    const about = `Uploading ${file} for ${target.name}, ${Math.round(percent)} %`;
    const isLost = !this.#upload && Date.now() - beat > BEAT_MS;
    const text = isLost ? `${about}. Nothing is heard from the page that uploads` : note ? `${about}. ${note}` : about;
    return { step: "upload", percent, text, isRunning: true, canCancel: this.#upload !== null && percent < 100 };
  }

  // What the tree says of any update that runs.
  #running() {
    const part = this.#value("MemDeviceState.DeviceUpdateStart");
    for (const place of [HOST, ACCESSORY]) {
      const now = this.#read(place);
      if (RUNNING.includes(now.state)) return { ...this.#described(now), isRunning: true };
    }
    return part !== "" && part !== "None" ? { step: "copy", percent: 0, text: `An update of ${part} runs`, isRunning: true } : null;
  }

  #described({ state, name, percent }) {
    const { step, text } = STATES[state] ?? { step: "copy", text: state };
    const share = step === "copy" && percent > 0 ? `, ${percent} %` : "";
    return { step, percent: step === "copy" ? percent : 0, text: `${name}: ${text}${share}` };
  }

  #following({ target, phase }) {
    const now = this.#read(target.isHost ? HOST : ACCESSORY);
    if (phase === "left" || STATES[now.state]?.ok !== undefined) {
      return { step: "check", percent: 0, text: `${target.name}: Waiting for the updater`, isRunning: true };
    }
    return { ...this.#described({ ...now, name: target.name }), isRunning: true };
  }

  // Continues this browser's update, and calls the listeners if the state has changed.
  #look() {
    const own = this.#kept.value;
    if (own && this.#app.store.variables.size > 0 && !this.#upload) this.#follow(own);
    const shown = JSON.stringify(this.state);
    if (shown === this.#shown) return;
    this.#shown = shown;
    this.#listeners.forEach((listener) => listener());
  }

  #follow(own) {
    const place = own.target.isHost ? HOST : ACCESSORY;
    if (own.phase === "left") this.#resume(own, place);
    if (own.phase === "uploading" && Date.now() - own.beat > 4 * BEAT_MS) this.#keep({ phase: "left" });
    if (own.phase === "sent") this.#advance(own, place);
  }

  // The page was left during the upload, which arrives whole or not at all.
  #resume(own, place) {
    if (this.#signature(place) !== own.before) this.#keep({ phase: "sent", since: Date.now() });
    else this.#end("upload", false, `Not updated: the page was left during the upload, ${own.target.name} has got nothing`);
  }

  #advance(own, place) {
    const now = this.#read(place);
    const mark = `${now.state} ${now.percent}`;
    const isOwn = own.seen.length > 0 || this.#signature(place) !== own.before || Date.now() - own.since > STALE_MS;
    if (isOwn && mark !== own.mark) {
      this.#keep({ mark, since: Date.now(), seen: [...new Set([...own.seen, now.state])] });
    } else if (isOwn && !own.target.isHost && (now.name !== own.target.name || Number(now.serial) !== own.target.serial)) {
      this.#end("check", false, `Not followed: an update of ${now.name} has taken the place of this one`);
    } else if (isOwn && this.#isOver(own, now.state)) {
      this.#finish(own, now.state);
    } else if (Date.now() - own.since > SILENT_MS) {
      this.#end("copy", false, `Unknown: nothing has changed for five minutes, ${this.#described(now).text}`);
    } else if (isOwn && now.state === "FileValid") {
      this.#start(own, place);
    }
  }

  #isOver(own, state) {
    return STATES[state]?.ok !== undefined || (state === "NoFileSelected" && own.seen.includes("Rebooting"));
  }

  // After the service has been started again it no longer knows of an upload for itself: then the flag is set directly.
  async #start(own, place) {
    if (this.#isAsking || this.#value(place.start) === "true") return;
    this.#isAsking = true;
    const [memory, name] = place.start.split(".");
    const isLate = Date.now() - own.since > START_MS;
    const asked = isLate ? set(`{"${memory}": {"${name}": true}}`) : updateStatus();
    await asked.catch(() => {});
    this.#isAsking = false;
  }

  #finish(own, state) {
    const { step, ok, text } = STATES[state] ?? { step: "copy", ok: false, text: state };
    const version = this.#version(own.target);
    const change = version === own.from ? `version ${version}, as before` : `version ${own.from} → ${version}`;
    const hasRestarted = state === "NoFileSelected" && own.seen.includes("Rebooting");
    if (ok && version === undefined) return; // until the accessory is back
    if (ok || (hasRestarted && version !== own.from)) {
      this.#end("end", true, `Updated: ${own.target.name}, ${change}`);
    } else {
      const reason = hasRestarted ? "the device has started again with the version as before" : text;
      this.#end(step, false, `Not updated: ${own.target.name}, ${reason}`);
    }
  }
}
