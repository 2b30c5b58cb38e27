// Connection: the WebSocket to the server, which comes back by itself.
//
// The server says something every second; 3 s without a word, and the connection counts as lost.

import { token, tokenProtocol } from "./token.js";
import { parseBatch } from "./batch.js";

const cLookMs = 200;
const cSilentLooks = 13; // looks, not time: a page that was held up itself finds nothing missing
const cRetriesMs = [250, 500, 1000, 2000];

/**
 * @typedef {object} Listener
 * @property {(batch: import("./types.js").Batch) => void} batch
 * @property {(message: { type: string, [key: string]: any }) => void} message
 * @property {() => void} opened
 * @property {(code: number) => void} lost
 */

export class Connection {
    /** @param {Listener} listener */
    constructor(listener) {
        this.listener = listener;
        /** @type {WebSocket | null} */
        this.socket = null;
        this.isOpen = false;
        this.tries = 0;
        this.looks = 0; // since the last message
        this.retry = 0;
        setInterval(() => this.lookForSilence(), cLookMs);
        addEventListener("online", () => this.connect());
    }

    connect() {
        clearTimeout(this.retry);
        this.socket?.close();
        const address = new URL("/api/v1/live", location.href);
        address.protocol = address.protocol.replace("http", "ws");
        const protocols = token() ? ["kestova.v1", tokenProtocol()] : ["kestova.v1"];
        const socket = new WebSocket(address, protocols);
        socket.binaryType = "arraybuffer";
        this.socket = socket;
        this.looks = 0;
        socket.onmessage = event => socket === this.socket && this.take(event.data);
        socket.onclose = event => socket === this.socket && this.end(event.code);
    }

    /** Does not come back before connect() is called again. */
    stop() {
        clearTimeout(this.retry);
        const { socket } = this;
        this.socket = null;
        this.isOpen = false;
        socket?.close();
    }

    /** @param {ArrayBuffer | string} data */
    take(data) {
        this.looks = 0;
        if (!this.isOpen) {
            this.isOpen = true;
            this.tries = 0;
            this.listener.opened();
        }
        if (typeof data !== "string") {
            const batch = parseBatch(data);
            if (batch) this.listener.batch(batch);
            return;
        }
        const message = JSON.parse(data);
        if (typeof message?.type === "string") this.listener.message(message);
    }

    /** @param {number} code */
    end(code) {
        const wasOpen = this.isOpen;
        this.isOpen = false;
        this.socket = null;
        if (wasOpen || this.tries === 0) this.listener.lost(code);
        const wait = cRetriesMs[Math.min(this.tries++, cRetriesMs.length - 1)];
        clearTimeout(this.retry);
        this.retry = window.setTimeout(() => this.connect(), wait);
    }

    lookForSilence() {
        if (!this.socket || ++this.looks < cSilentLooks) return;
        const { socket } = this;
        this.end(1006);
        socket.close();
    }

    /** @param {{ type: string, [key: string]: any }} message */
    send(message) {
        if (this.isOpen && this.socket?.readyState === WebSocket.OPEN) this.socket.send(JSON.stringify(message));
    }
}
