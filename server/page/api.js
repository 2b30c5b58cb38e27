// Requests to the server, and what it answers when it refuses.

import { token } from "./token.js";

const cRoot = "/api/v1";

export class Refusal extends Error {
    /**
     * @param {number} status 0: the server was not reached
     * @param {string} code
     * @param {string} message
     */
    constructor(status, code, message) {
        super(message);
        this.status = status;
        this.code = code;
    }
}

/** @param {Response} response */
async function refusalOf(response) {
    const body = await response.json().catch(() => null);
    const error = body?.error ?? {};
    const message = error.message ?? `the server answered ${response.status}`;
    return new Refusal(response.status, error.code ?? "", error.hint ? `${message}: ${error.hint}` : message);
}

/**
 * @param {string} path
 * @param {RequestInit} options
 */
async function request(path, options) {
    const headers = new Headers(options.headers);
    if (token()) headers.set("Authorization", `Bearer ${token()}`);
    let response;
    try {
        response = await fetch(cRoot + path, { ...options, headers });
    } catch (error) {
        if (error instanceof DOMException && error.name === "AbortError") throw error;
        throw new Refusal(0, "unreachable", "The server does not answer: is kestova serve running?");
    }
    if (!response.ok) throw await refusalOf(response);
    return response;
}

/**
 * @param {string} path
 * @param {Record<string, string | number | boolean | undefined>} [query]
 */
export function withQuery(path, query = {}) {
    const parts = new URLSearchParams();
    for (const [key, value] of Object.entries(query)) if (value !== undefined) parts.set(key, String(value));
    return `${parts}` !== "" ? `${path}?${parts}` : path;
}

/**
 * @param {string} path
 * @param {Record<string, string | number | boolean | undefined>} [query]
 * @param {AbortSignal} [signal]
 */
export async function get(path, query, signal) {
    return (await request(withQuery(path, query), { signal })).json();
}

/**
 * @param {string} path
 * @param {Record<string, string | number | boolean | undefined>} [query]
 */
export async function getBlob(path, query) {
    return (await request(withQuery(path, query), {})).blob();
}

/**
 * @param {string} path
 * @param {object} body
 */
export async function post(path, body = {}) {
    const headers = { "X-Kestova": "1", "Content-Type": "application/json" };
    return (await request(path, { method: "POST", headers, body: JSON.stringify(body) })).json();
}

/**
 * Lets the browser save what a path gives; with a token by a ticket that is good once.
 * @param {string} path
 */
export async function download(path) {
    const whole = cRoot + path;
    let address = whole;
    if (token()) {
        const { ticket } = await post("/tickets", { path: whole });
        address += `${whole.includes("?") ? "&" : "?"}ticket=${encodeURIComponent(ticket)}`;
    }
    const link = document.createElement("a");
    link.href = address;
    link.download = "";
    link.hidden = true;
    document.body.append(link);
    link.click();
    link.remove();
}
