// The address: place, speed, radar and view stand behind its `#`, so that a link shows a colleague the same.

import { isPalette } from "./palettes.js";
import { choose, onView, view } from "./view.js";

/** @param {string | null} text @param {number} low @param {number} high */
function numberIn(text, low, high) {
    const value = text === null || text === "" ? NaN : Number(text);
    return value >= low && value <= high ? value : undefined;
}

const cLatest = 8.64e15; // ms, that a date may have

/** @param {URLSearchParams} parts @returns {Partial<import("./view.js").Choice>} */
function choiceOf(parts) {
    const palette = parts.get("palette") ?? "";
    const up = parts.get("up");
    const speed = parts.get("speed");
    return {
        id: parts.get("id") ?? (parts.has("live") ? "live" : undefined),
        radar: parts.get("radar") ?? undefined,
        second: parts.get("second") ?? undefined,
        speed: speed === "max" ? "max" : numberIn(speed, 0.1, 10),
        rangeM: numberIn(parts.get("range_m"), 10, 1e6),
        up: up === "head" || up === "north" ? up : undefined,
        palette: isPalette(palette) ? palette : undefined,
        size: numberIn(parts.get("size"), 64, 4096),
        overlays: parts.has("overlays") ? parts.get("overlays") !== "0" : undefined,
        threshold: numberIn(parts.get("threshold"), 0, 100),
        gain: numberIn(parts.get("gain"), 0, 100),
        aMs: numberIn(parts.get("a"), 0, cLatest),
        bMs: numberIn(parts.get("b"), 0, cLatest),
    };
}

/** Takes what the address says. Returns the place in a recording that it names, or 0. */
export function readAddress() {
    const parts = new URLSearchParams(location.hash.slice(1));
    choose(choiceOf(parts));
    return numberIn(parts.get("t"), 0, cLatest) ?? 0;
}

let placeMs = 0;
let shiftedId = "";

/**
 * @param {number} timeMs the place that is shown; 0 for live
 * @param {string} id of the recording that it is in, where a live radar is looked at with time shift
 */
export function setPlace(timeMs, id) {
    placeMs = Math.round(timeMs);
    shiftedId = placeMs > 0 ? id : "";
    writeSoon();
}

function written() {
    const parts = new URLSearchParams();
    const id = view.id === "live" && shiftedId ? shiftedId : view.id;
    if (id !== "live") parts.set("id", id);
    if (view.radar) parts.set("radar", view.radar);
    if (placeMs > 0) parts.set("t", String(placeMs));
    if (view.speed !== 1) parts.set("speed", String(view.speed));
    if (view.rangeM > 0) parts.set("range_m", String(Math.round(view.rangeM)));
    parts.set("up", view.up);
    parts.set("palette", view.palette);
    if (view.size > 0) parts.set("size", String(view.size));
    if (!view.overlays) parts.set("overlays", "0");
    if (view.threshold > 0) parts.set("threshold", String(view.threshold));
    if (view.gain !== 50) parts.set("gain", String(view.gain));
    if (view.aMs > 0) parts.set("a", String(Math.round(view.aMs)));
    if (view.bMs > 0) parts.set("b", String(Math.round(view.bMs)));
    if (view.second) parts.set("second", view.second);
    return (id === "live" ? "live&" : "") + parts;
}

let waiting = 0;

// Browsers refuse pages that write their address more often than some hundred times a minute.
function writeSoon() {
    if (waiting === 0)
        waiting = window.setTimeout(() => {
            waiting = 0;
            const address = `#${written()}`;
            if (address !== location.hash) history.replaceState(null, "", address);
        }, 500);
}

onView(writeSoon);

/** A link to what is shown now. */
export function link() {
    return `${location.origin}${location.pathname}#${written()}`;
}

/** @param {(placeMs: number) => void} listener is called when the user changes the address */
export function onAddress(listener) {
    addEventListener("hashchange", () => listener(readAddress()));
}
