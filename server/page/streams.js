// The table of streams: rate, last heard, jitter, losses; a click shows the last messages of one.

import { get } from "./api.js";
import { element, make } from "./dom.js";
import { countText, durationText, timeText } from "./format.js";

const cLast = 5;
const cSilentMs = 5000;

/** @typedef {import("./types.js").StreamRow} StreamRow */
/** @typedef {{ id: string, placeMs: number }} Where a recording, empty for none, and the place in it */

export class Streams {
    /** @param {() => Where} where */
    constructor(where) {
        this.where = where;
        this.body = element("streams");
        /** @type {Map<string, { row: HTMLTableRowElement, detail: HTMLTableRowElement | null, stream: string }>} */
        this.rows = new Map();
    }

    /** @param {StreamRow[]} streams @param {number} nowMs */
    show(streams, nowMs) {
        const keys = new Set();
        for (const one of streams) {
            const key = `${one.stream} ${one.address}`;
            keys.add(key);
            const { row } = this.rows.get(key) ?? this.makeRow(key, one);
            const silence = silenceOf(one, nowMs);
            const isSilent = silence !== null && silence > cSilentMs && !(one.records_per_second ?? 0);
            row.dataset.state = isSilent ? "silent" : "heard";
            const texts = [
                one.stream,
                (one.records_per_second ?? 0).toFixed((one.records_per_second ?? 0) < 100 ? 1 : 0),
                silence === null ? "never" : silence < 1000 ? "now" : durationText(silence),
                one.jitter_p99_ms === null || one.jitter_p99_ms === undefined
                    ? "–"
                    : `${one.jitter_p99_ms.toFixed(1)} ms`,
                lossText(one),
            ];
            texts.forEach((text, i) => row.cells[i].textContent !== text && (row.cells[i].textContent = text));
        }
        for (const [key, { row, detail }] of this.rows)
            if (!keys.has(key)) {
                row.remove();
                detail?.remove();
                this.rows.delete(key);
            }
    }

    /** @param {string} key @param {StreamRow} one */
    makeRow(key, one) {
        const row = make("tr", {
            "aria-label": one.stream,
            "aria-expanded": "false",
            tabindex: "0",
        });
        for (let i = 0; i < 5; ++i) row.append(make("td"));
        this.body.append(row);
        const made = {
            row,
            detail: /** @type {HTMLTableRowElement | null} */ (null),
            stream: one.stream,
        };
        row.addEventListener("click", () => this.toggle(made));
        row.addEventListener("keydown", event => event.key === "Enter" && this.toggle(made));
        this.rows.set(key, made);
        return made;
    }

    /** @param {{ row: HTMLTableRowElement, detail: HTMLTableRowElement | null, stream: string }} one */
    async toggle(one) {
        one.row.setAttribute("aria-expanded", String(one.detail === null));
        if (one.detail) {
            one.detail.remove();
            one.detail = null;
            return;
        }
        const cell = make("td", { class: "last", colspan: "5", text: "…" });
        one.detail = make("tr", {}, [cell]);
        one.row.after(one.detail);
        cell.textContent = await this.lastOf(one.stream);
    }

    /** @param {string} stream */
    async lastOf(stream) {
        const { id, placeMs } = this.where();
        if (!id) return "Nothing is being recorded: messages are shown of recordings.";
        try {
            const at = placeMs > 0 ? Math.round(placeMs) : undefined;
            const answer = await get(`/recordings/${id}/records`, {
                at_ms: at,
                stream,
                limit: cLast,
            });
            const records = answer.records ?? answer.rows ?? [];
            return records.map(messageText).join("\n") || "No message of this stream up to here.";
        } catch (error) {
            return error instanceof Error ? error.message : String(error);
        }
    }
}

/** A message as text if it is a sentence, else its first bytes. @param {{ [key: string]: any }} record */
function messageText(record) {
    const bytes = String(record.payload ?? "").match(/../g) ?? [];
    const characters = bytes
        .map(byte => String.fromCharCode(parseInt(byte, 16)))
        .join("")
        .replace(/\0+$/, "");
    const isText = /^[$!][\x20-\x7e\r\n]+$/.test(characters);
    const time = timeText(record.time_ms).slice(11);
    const hex = `${bytes.slice(0, 48).join(" ")}${(record.length ?? bytes.length) > 48 ? " …" : ""}`;
    return `${time}  ${isText ? characters.trim() : `${record.length} bytes  ${hex}`}`;
}

/** How long nothing came of a stream; null: never. @param {StreamRow} one @param {number} nowMs */
function silenceOf({ silent_ms, last_ms }, nowMs) {
    if (silent_ms !== undefined && silent_ms !== null) return silent_ms;
    return last_ms === undefined || last_ms === null ? null : Math.max(nowMs - last_ms, 0);
}

/** @param {StreamRow} one */
function lossText({ lost, missing_on_wire }) {
    const known = [lost, missing_on_wire].filter(count => count !== undefined && count !== null);
    return known.length > 0 ? countText(known.reduce((sum, count) => sum + count, 0)) : "–";
}
