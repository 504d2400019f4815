// What the device is, its files, and its firmware.

import { deviceInfo } from "../feed/api.js";
import { byId, element, setText } from "../dom.js";
import { sizeText } from "../model/format.js";
import { FileList } from "./files.js";
import { FirmwareView } from "./firmware.js";

const REFRESH_MS = 10000;
// What the device information is made of and the tree reports.
const IDENTITY = ["MemPersistent.ProductName", "MemPersistent.ProductVersion", "MemExternalDevices.RBusDeviceList"];
const KINDS = { lenstables: "Lens tables", focusrings: "Focus rings", setups: "Setups" };

export class DeviceView {
  #timer = 0;
  #lists;
  #firmware;
  #shown = "";
  isReading = false;

  constructor(app) {
    this.#firmware = new FirmwareView(app, () => this.refresh());
    app.store.subscribe((changed) => {
      if (this.#timer !== 0 && [...changed].some(({ key }) => IDENTITY.includes(key))) this.refresh();
    });
    this.#lists = Object.entries(KINDS).map(([kind, title]) => new FileList(kind, title, () => this.refresh()));
    byId("device-files").append(...this.#lists.map((list) => list.node));
  }

  show() {
    const refreshAll = () => [this, ...this.#lists].forEach((part) => part.isReading || part.refresh());
    refreshAll();
    this.#timer ||= setInterval(refreshAll, REFRESH_MS);
  }

  hide() {
    clearInterval(this.#timer);
    this.#timer = 0;
  }

  async refresh() {
    this.isReading = true;
    try {
      const info = await deviceInfo();
      if (info.text !== this.#shown) {
        this.#shown = info.text;
        byId("device-identity").replaceChildren(...identity(info));
        this.#firmware.offer(info);
      }
    } catch (error) {
      this.#shown = "";
      setText(byId("device-identity"), `Not known: ${error.message}.`);
    }
    this.isReading = false;
  }
}

function identity(info) {
  if (info._id === undefined) {
    return [element("p", { class: "note" }, "The answer is not readable as it is; here is its text."),
      element("pre", {}, info.text)];
  }
  const facts = { Name: info.name, Id: info._id, "Serial number": info.serialnumber, Firmware: info.firmwareversion };
  const used = info.space_total - info.space_available;
  // The service counts with 32 bits.
  const space = used < 0 ? "not known" : `${sizeText(info.space_available)} of ${sizeText(info.space_total)} free`;
  return [
    element("dl", {}, ...Object.entries(facts).flatMap(([name, value]) =>
      [element("dt", {}, name), element("dd", {}, value)]),
    element("dt", {}, "Space"), element("dd", {}, space,
      element("meter", { min: 0, max: info.space_total, value: Math.max(used, 0), "aria-label": "Used space" }))),
    element("h3", {}, "Accessories"),
    info.devices.length === 0 ? element("p", { class: "note" }, "None is connected.") : accessories(info.devices),
  ];
}

function accessories(devices) {
  const titles = ["Name", "Serial number", "Firmware"];
  const rows = devices.map((device) => element("tr", {}, element("th", { scope: "row" }, device.name),
    element("td", {}, device.serialnumber), element("td", {}, device.firmwareversion)));
  return element("table", {},
    element("thead", {}, element("tr", {}, ...titles.map((title) => element("th", { scope: "col" }, title)))),
    element("tbody", {}, ...rows));
}
