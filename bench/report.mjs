// What the programs that measure the console print: Markdown, and on standard error how far they are.

import os from "node:os";

// The head of a section: date, machine, versions and command.
export function printConditions(title, program, browser) {
    const date = new Date().toISOString().slice(0, 10);
    const command = [program, ...process.argv.slice(2)].join(" ");
    const processor = `${os.cpus().length} x ${os.cpus()[0].model.trim()}`;
    const versions = `Linux ${os.release()}, Chromium ${browser.version()}`;
    console.log(`## ${title}\n\n${date}, ${processor}, ${versions}, load at start ${os.loadavg()[0].toFixed(1)}, ` +
        `\`${command}\`\n`);
}

export function printTable(header, rows) {
    for (const cells of [header, header.map(() => "---"), ...rows]) console.log(`| ${cells.join(" | ")} |`);
    console.log();
}

export const progress = (text) => process.stderr.write(`${text}\n`);
