// node lint.mjs <document>: the linter's recommended rules, without any exception. Prints what breaks a rule.
import { formatProblems, lint, loadConfig } from "@redocly/openapi-core";

const problems = await lint({ ref: process.argv[2], config: await loadConfig({ customExtends: ["recommended"] }) });
formatProblems(problems, { format: "codeframe", totals: { errors: 0, warnings: problems.length, ignored: 0 } });
process.exitCode = problems.length > 0 ? 1 : 0;
