// The one dialog of the page: asks for something, or for a confirmation.

import { element, make } from "./dom.js";

/**
 * @typedef {object} Field
 * @property {string} name
 * @property {string} label
 * @property {"text" | "password" | "select"} kind
 * @property {string} [value]
 * @property {[string, string][]} [options] value and text
 * @property {string} [hint]
 */

/** @param {Field} field */
function inputOf(field) {
    if (field.kind !== "select")
        return make("input", {
            type: field.kind,
            name: field.name,
            value: field.value ?? "",
            placeholder: field.hint,
            autocomplete: "off",
            maxlength: "1000",
        });
    const options = (field.options ?? []).map(([value, text]) => make("option", { value, text }));
    return make("select", { name: field.name }, options);
}

/**
 * Returns what was given, by the names of the fields; null if it was cancelled.
 * @param {{ title: string, text?: string, fields?: Field[], confirm: string }} question
 * @returns {Promise<Record<string, string> | null>}
 */
export function ask({ title, text = "", fields = [], confirm }) {
    const dialog = /** @type {HTMLDialogElement} */ (element("dialog"));
    const form = /** @type {HTMLFormElement} */ (element("dialog-form"));
    element("dialog-title").textContent = title;
    element("dialog-confirm").textContent = confirm;
    const rows = fields.map(field => make("label", { text: field.label }, [inputOf(field)]));
    element("dialog-body").replaceChildren(...(text ? [make("p", { text })] : []), ...rows);
    return new Promise(resolve => {
        const end = (/** @type {Record<string, string> | null} */ answer) => {
            form.onsubmit = dialog.onclose = null;
            dialog.close();
            resolve(answer);
        };
        form.onsubmit = event => {
            event.preventDefault();
            const given = [...new FormData(form)].map(([name, value]) => [name, String(value)]);
            end(Object.fromEntries(given));
        };
        element("dialog-cancel").onclick = () => end(null);
        dialog.onclose = () => end(null);
        dialog.showModal();
    });
}
