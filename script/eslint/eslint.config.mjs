// The rules for the console and its tests. script/lint copies this file beside the packages that it imports.
import js from "@eslint/js";
import globals from "globals";

export default [
  js.configs.recommended,
  {
    linterOptions: { reportUnusedDisableDirectives: "error" },
    rules: {
      "array-callback-return": "error",
      camelcase: "error",
      curly: ["error", "multi-line"],
      eqeqeq: "error",
      "max-len": ["error", { code: 125, ignoreStrings: true, ignoreTemplateLiterals: true }],
      "no-duplicate-imports": "error",
      "no-else-return": "error",
      "no-implicit-coercion": "error",
      "no-shadow": "error",
      "no-unneeded-ternary": "error",
      "no-unused-expressions": ["error", { allowShortCircuit: true, allowTernary: true }],
      "no-use-before-define": ["error", { functions: false, classes: false, variables: false }],
      "no-useless-return": "error",
      "no-var": "error",
      "object-shorthand": "error",
      "prefer-const": "error",
      "prefer-template": "error",
      radix: "error",
    },
  },
  { files: ["**/*.js"], languageOptions: { globals: globals.browser } },
  // The tests run functions in the page, too.
  { files: ["**/*.mjs"], languageOptions: { globals: { ...globals.node, ...globals.browser } } },
];
