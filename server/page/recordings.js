// The list of recordings: newest first, searched by the server, each with a small picture of its end.

import { get, getBlob } from "./api.js";
import { element, make, onClick } from "./dom.js";
import { countText, dayText, clockText, durationText, sizeText } from "./format.js";
import { isWaitingForToken } from "./tokenform.js";
import { onView, view } from "./view.js";

const cPage = 40;
const cThumb = 128;
const cRefreshMs = 5000;

/** @typedef {import("./types.js").Recording} Recording */
/** @typedef {{ item: HTMLLIElement, button: HTMLButtonElement, text: string }} Row */

export class Recordings {
    asked = cPage; // how many are listed

    /** @param {(recording: Recording) => void} onOpen */
    constructor(onOpen) {
        this.onOpen = onOpen;
        this.onChange = () => {};
        /** @type {Recording[]} */
        this.all = [];
        /** @type {Map<string, Recording>} all that were ever listed */
        this.known = new Map();
        /** @type {Map<string, Row>} */
        this.rows = new Map();
        /** @type {Map<string, string>} */
        this.thumbs = new Map();
        /** @type {string[]} */
        this.waiting = [];
        this.isLoading = false;
        this.next = "";
        this.list = element("recordings");
        this.search = /** @type {HTMLInputElement} */ (element("search"));
        this.seen = new IntersectionObserver(entries => this.showThumbs(entries));
        let typing = 0;
        this.search.addEventListener("input", () => {
            clearTimeout(typing);
            typing = window.setTimeout(() => this.refresh(), 200);
        });
        onClick("more-recordings", () => this.more());
        setInterval(() => document.hidden || this.refresh(), cRefreshMs);
        onView(changed => (changed.has("id") || changed.has("utc")) && this.draw());
    }

    /** @param {string} id */
    find(id) {
        return this.known.get(id);
    }

    /** The recording that has a time, the one of the radar first. @param {number} timeMs @param {string} serial */
    at(timeMs, serial) {
        const having = this.all.filter(one => one.first_ms <= timeMs && timeMs <= one.last_ms);
        return having.find(one => one.radar === serial) ?? having[0];
    }

    async refresh() {
        if (isWaitingForToken()) return;
        try {
            const q = this.search.value.trim() || undefined;
            const limit = this.asked;
            const { recordings, next } = await get("/recordings", { q, limit });
            if ((this.search.value.trim() || undefined) !== q) return;
            this.all = recordings;
            this.next = next ?? "";
            for (const one of recordings) this.known.set(one.id, one);
            this.draw();
            this.onChange();
            await this.lookFor(view.id);
        } catch {
            // The list stays; the page says itself that the server is gone.
        }
    }

    /** What is shown need not be in the list. @param {string} id */
    async lookFor(id) {
        if (id === "live" || this.all.some(one => one.id === id)) return;
        const one = await get(`/recordings/${encodeURIComponent(id)}`);
        this.known.set(id, one);
    }

    more() {
        this.asked = this.all.length + cPage;
        return this.refresh();
    }

    draw() {
        const ids = new Set(this.all.map(one => one.id));
        for (const [id, row] of this.rows)
            if (!ids.has(id)) {
                row.item.remove();
                this.rows.delete(id);
            }
        this.all.forEach((one, i) => {
            const row = this.rows.get(one.id) ?? this.makeRow(one);
            this.fill(row, one);
            if (this.list.children[i] !== row.item) this.list.insertBefore(row.item, this.list.children[i] ?? null);
        });
        element("more-recordings").hidden = this.next === "" || this.next === null;
    }

    /** @param {Recording} recording @returns {Row} */
    makeRow(recording) {
        const button = make("button", { type: "button" });
        const item = make("li", { "data-id": recording.id }, [button]);
        button.addEventListener("click", () => {
            const now = this.find(recording.id);
            if (now) this.onOpen(now);
        });
        const row = { item, button, text: "" };
        this.rows.set(recording.id, row);
        this.seen.observe(item);
        return row;
    }

    /** @param {Row} row @param {Recording} one */
    fill(row, one) {
        row.button.setAttribute("aria-current", String(one.id === view.id));
        const text = JSON.stringify([one, view.utc, this.thumbs.get(one.id)]);
        if (text === row.text) return;
        row.text = text;
        const thumb = this.thumbOf(one.id);
        const when = one.records > 0 ? `${dayText(one.first_ms)} ${clockText(one.first_ms)}` : "no records";
        const long = one.records > 0 ? durationText(one.last_ms - one.first_ms) : "–";
        const more = make("span", { class: "more" });
        for (const [state, words] of statesOf(one)) {
            if (more.childNodes.length > 0) more.append(" · ");
            more.append(make("span", { "data-state": state, text: words }));
        }
        row.button.replaceChildren(
            thumb,
            make("span", { class: "when", text: when }),
            make("span", {
                class: "what",
                text: `${long} · ${sizeText(one.size_bytes)} · ${one.radar || "groups"}`,
            }),
            more,
        );
        row.button.setAttribute("aria-label", `${when}, ${long}, ${one.name}, ${more.textContent}`);
    }

    /** @param {string} id */
    thumbOf(id) {
        const src = this.thumbs.get(id);
        return src ? make("img", { class: "thumb", alt: "", src }) : make("span", { class: "thumb" });
    }

    /** @param {IntersectionObserverEntry[]} entries */
    showThumbs(entries) {
        for (const { isIntersecting, target } of entries) {
            const id = /** @type {HTMLElement} */ (target).dataset.id ?? "";
            if (!isIntersecting || this.thumbs.has(id)) continue;
            this.thumbs.set(id, "");
            this.waiting.push(id);
        }
        this.loadThumbs();
    }

    async loadThumbs() {
        if (this.isLoading) return;
        this.isLoading = true;
        for (let id = this.waiting.shift(); id !== undefined; id = this.waiting.shift()) {
            const recording = this.find(id);
            if (!recording || recording.records === 0) continue;
            try {
                const blob = await getBlob(`/recordings/${id}/picture.png`, {
                    at_ms: recording.last_ms,
                    size: cThumb,
                });
                this.thumbs.set(id, URL.createObjectURL(blob));
                this.draw();
            } catch {
                // Recordings without spokes have no picture.
            }
        }
        this.isLoading = false;
    }
}

/** What there is to say about a recording. @param {Recording} one @returns {[string, string][]} */
function statesOf(one) {
    /** @type {[string, string][]} */
    const states = [[one.state, one.state]];
    if (one.lost) states.push(["lost", `${countText(one.lost)} lost`]);
    if (one.notes > 0) states.push(["notes", one.notes === 1 ? "1 note" : `${one.notes} notes`]);
    if (one.kept) states.push(["kept", "kept"]);
    return states;
}
