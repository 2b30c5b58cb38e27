import js from "@eslint/js";
import globals from "globals";

export default [
    { ignores: ["node_modules/**"] },
    {
        ...js.configs.recommended,
        files: ["**/*.js", "../../server/page/*.js"],
        languageOptions: { ecmaVersion: 2022, sourceType: "module", globals: { ...globals.node, ...globals.browser } },
        rules: {
            ...js.configs.recommended.rules,
            eqeqeq: "error",
            "no-var": "error",
            "prefer-const": "error",
            "no-eval": "error",
            "max-lines-per-function": ["error", { max: 60, skipBlankLines: true, skipComments: true }],
            "max-lines": ["error", 400],
        },
    },
];
