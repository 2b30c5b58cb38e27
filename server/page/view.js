// View: what the user has chosen to see; the address carries it, everything that shows it listens.

import { isPalette } from "./palettes.js";

/**
 * @typedef {object} Choice
 * @property {string} id of a recording, or "live"
 * @property {string} radar SERIAL/ID; empty: any
 * @property {string} second a recording, "live", or "live:SERIAL/ID", beside the first; empty: none
 * @property {number | "max"} speed
 * @property {number} rangeM from own ship to the edge; 0: that of the spokes
 * @property {"head" | "north"} up
 * @property {import("./palettes.js").PaletteName} palette
 * @property {number} size of the picture in CSS pixels; 0: what there is room for
 * @property {boolean} overlays
 * @property {number} threshold 0 to 100
 * @property {number} gain 0 to 100, 50: as it came
 * @property {number} trailsS seconds that trails last; 0: none
 * @property {boolean} utc
 * @property {number} aMs selection; 0: none
 * @property {number} bMs
 * @property {number} panX of own ship from the middle, in radii of the picture
 * @property {number} panY
 * @property {number} eblDeg as the picture counts bearings
 * @property {number} vrmM 0: not shown
 * @property {boolean} hasEbl
 */

/** @type {Choice} */
const cDefaults = {
    id: "live",
    radar: "",
    second: "",
    speed: 1,
    rangeM: 0,
    up: "north",
    palette: "day",
    size: 0,
    overlays: true,
    threshold: 0,
    gain: 50,
    trailsS: 0,
    utc: false,
    aMs: 0,
    bMs: 0,
    panX: 0,
    panY: 0,
    eblDeg: 0,
    vrmM: 0,
    hasEbl: false,
};

/** @type {Choice} */
export const view = { ...cDefaults };

/** @type {Set<(changed: Set<keyof Choice>) => void>} */
const listeners = new Set();

/** @param {(changed: Set<keyof Choice>) => void} listener */
export function onView(listener) {
    listeners.add(listener);
}

/** @param {Partial<Choice>} choice */
export function choose(choice) {
    /** @type {Set<keyof Choice>} */
    const changed = new Set();
    for (const key of /** @type {(keyof Choice)[]} */ (Object.keys(choice)))
        if (choice[key] !== undefined && view[key] !== choice[key]) {
            Object.assign(view, { [key]: choice[key] });
            changed.add(key);
        }
    if (changed.size > 0) for (const listener of listeners) listener(changed);
}

const cPaletteKey = "kestova-palette";
const cUtcKey = "kestova-utc";

/** What was chosen on this machine before. */
export function rememberedChoice() {
    const palette = localStorage.getItem(cPaletteKey) ?? "";
    return {
        palette: isPalette(palette) ? palette : cDefaults.palette,
        utc: localStorage.getItem(cUtcKey) === "1",
    };
}

onView(changed => {
    if (changed.has("palette") && view.palette !== "grey") localStorage.setItem(cPaletteKey, view.palette);
    if (changed.has("utc")) localStorage.setItem(cUtcKey, view.utc ? "1" : "0");
});
