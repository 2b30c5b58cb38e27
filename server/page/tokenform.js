// The field for the token, where the server wants one and the address had none.

import { element, make } from "./dom.js";
import { setToken } from "./token.js";

/** Whether the page waits for a token; until then it asks the server for nothing, which counts wrong ones. */
export function isWaitingForToken() {
    return !element("loading").hidden && element("loading").querySelector("form") !== null;
}

/** @param {() => void} goOn is called with a token */
export function askForToken(goOn) {
    const loading = element("loading");
    if (isWaitingForToken()) return;
    const field = make("input", {
        type: "password",
        "aria-label": "Token",
        autocomplete: "off",
    });
    const form = make("form", {}, [
        make("span", { text: "This server wants a token." }),
        field,
        make("button", { type: "submit", text: "Go on" }),
    ]);
    form.addEventListener("submit", event => {
        event.preventDefault();
        setToken(field.value.trim());
        loading.textContent = "Connecting to the recorder …";
        goOn();
    });
    loading.replaceChildren(form);
    loading.hidden = false;
    field.focus();
}
