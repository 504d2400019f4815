// What a line of the log says about itself: "[ 2019.995498]  webservice  LogLight  main.cpp:  30 text". Lines of the kernel
// have a time only.

export const LEVELS = ["DebugAll", "DebugMost", "DebugLight", "LogAll", "LogMost", "LogLight", "Warn", "Error"];

// Lines of several processors may be out of order by less than this.
const BACK_S = 1;
const LINE = new RegExp(`^\\[\\s*(\\d+\\.\\d+)\\]\\s*(?:(\\S+)\\s+(${LEVELS.join("|")})\\s)?`);

// {seconds since the device's start, process, level (its index)}; undefined what it does not have.
export function readLine(text) {
  const [, seconds, process, level] = LINE.exec(text) ?? [];
  return { seconds: seconds && Number(seconds), process, level: level && LEVELS.indexOf(level), lower: text.toLowerCase() };
}

// When the device was started, seconds since 1970, from lines as they arrive. A line comes some time after it was written,
// so the earliest start that any line tells is the nearest.
export class StartTime {
  seconds = undefined;
  #last = 0;

  // Takes the time of the log's last line. A device that has been started again counts from 0, and its start is unknown.
  follow(written) {
    if (written < this.#last - BACK_S) this.seconds = undefined;
    this.#last = written;
  }

  // Returns whether the start is another one now.
  learn(written, now = Date.now() / 1000) {
    const start = now - written;
    if (this.seconds !== undefined && start > this.seconds - 0.05) return false;
    this.seconds = start;
    return true;
  }
}
