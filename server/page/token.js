// The token of the server: from the address, from where it is taken away at once, or from the field of the page.

const cKey = "kestova-token";

/** Takes `token=` out of the address; it never stays in a link. */
export function takeTokenFromAddress() {
    const parts = new URLSearchParams(location.hash.slice(1));
    const token = parts.get("token");
    if (token === null) return;
    sessionStorage.setItem(cKey, token);
    parts.delete("token");
    history.replaceState(null, "", `${location.pathname}${location.search}#${parts}`);
}

export function token() {
    return sessionStorage.getItem(cKey) ?? "";
}

/** @param {string} given */
export function setToken(given) {
    sessionStorage.setItem(cKey, given);
}

/** The token as a name of a WebSocket's protocol may be written. */
export function tokenProtocol() {
    const bytes = new TextEncoder().encode(token());
    const text = btoa(String.fromCharCode(...bytes));
    return `bearer.${text.replaceAll("+", "-").replaceAll("/", "_").replaceAll("=", "")}`;
}
