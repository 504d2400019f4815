// The requests that are answered at once.

const API = "/api/v1";
const TYPED_API = "/api/v2";
const APP = "/qorapp/v1";

const WORDS = {
  0: "no answer",
  403: "the web server refuses this",
  404: "the web server does not let this name through",
  413: "larger than the web server lets through",
  429: "too many requests",
  502: "the service does not run",
  503: "too many clients are connected",
  504: "the service does not answer",
};

// Answers of the web server that never come after the service has got the request.
const REFUSALS = [403, 404, 413, 429, 503];
// Answers to a request of version 2 that the process for it does not get: it is not installed, or it does not run.
const AWAY = [404, 405, 502];

// What went wrong with a request: `status` is the web server's, 0 when there was no `answer` at all. Without `isRefusal` the
// service may have got the request.
export class RequestError extends Error {
  constructor(status, answer) {
    super(WORDS[status] ?? `status ${status}`);
    Object.assign(this, { status, answer });
    this.isRefusal = REFUSALS.includes(status);
  }
}

// fetch() whose every failure is a RequestError.
export async function request(url, options = {}) {
  const answer = await fetch(url, { cache: "no-store", ...options }).catch((error) => {
    throw error.name === "AbortError" ? error : new RequestError(0);
  });
  if (!answer.ok) throw new RequestError(answer.status, answer);
  return answer;
}

export const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

const textOf = async (url, options) => (await request(url, options)).text();

// Sends the body of a set; resolves to {result, error}.
export async function set(body) {
  return JSON.parse(await textOf(`${API}/set.cgi`, { method: "POST", body }));
}

// Sets the value of a name by version 2: resolves to {stored}, what it holds then, or to {errors}, why nothing is stored,
// each {variable, code, given, min, max, entries, message}; to null where version 2 is not there.
export async function patch(name, value) {
  try {
    const answer = await request(`${TYPED_API}/values`, { method: "PATCH", body: JSON.stringify({ [name]: value }) });
    return { stored: (await answer.json())[name] };
  } catch (error) {
    if (AWAY.includes(error.status)) return null;
    if (error.status === 422) return { errors: (await error.answer.json()).errors };
    throw error;
  }
}

// The picture of the display as a Blob of PNG.
export async function capture(signal) {
  return (await request(`${API}/screen.cgi`, { signal })).blob();
}

// Identity, space and accessories. The service escapes nothing here, and writes one value a line. Where it is no JSON even
// so, `text` is all there is.
export async function deviceInfo() {
  const text = await textOf(`${APP}/device/info`);
  try {
    const escaped = text.replace(/^(\s*"\w+": )"(.*)"/gm, (_, name, value) => name + JSON.stringify(value));
    return { ...JSON.parse(escaped), text };
  } catch {
    return { text, devices: [] };
  }
}

// State and progress of an update. Asking starts it once the file is found valid: ask only after an upload.
export async function updateStatus() {
  return JSON.parse(await textOf(`${APP}/device/status`));
}

// Names of the files of a kind, sorted. One name a line, in quotes and not escaped.
export async function listFiles(kind) {
  const lines = (await textOf(`${APP}/${kind}/list`)).split("\r\n");
  const names = lines.map((line) => /^"(.*)",?$/.exec(line)?.[1]).filter((name) => name !== undefined);
  return names.sort((a, b) => a.localeCompare(b));
}

export const fileAddress = (kind, name) => `${APP}/${kind}/file/${encodeURIComponent(name)}`;

// Resolves to "Success" or what the service says instead.
export async function putFile(kind, name, content) {
  return JSON.parse(await textOf(fileAddress(kind, name), { method: "PUT", body: content })).result;
}

export async function deleteFile(kind, name) {
  return JSON.parse(await textOf(fileAddress(kind, name), { method: "DELETE" })).result;
}

// Uploads firmware and reports the share that has left, 0 to 1, which fetch() cannot. Resolves to the service's answer.
export function uploadFirmware(deviceId, file, progress, signal) {
  const form = new FormData();
  form.append("deviceid", deviceId);
  form.append("file", file, "firmware");
  return new Promise((resolve, reject) => {
    const sending = new XMLHttpRequest();
    sending.open("POST", `${APP}/device/update`);
    sending.responseType = "json";
    sending.upload.onprogress = (event) => event.lengthComputable && progress(event.loaded / event.total);
    sending.onerror = () => reject(new RequestError(0));
    sending.onabort = () => reject(new DOMException("cancelled", "AbortError"));
    sending.onload = () => (sending.response ? resolve(sending.response) : reject(new RequestError(sending.status)));
    signal.addEventListener("abort", () => sending.abort());
    sending.send(form);
  });
}
