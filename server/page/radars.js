// The radars of the server's directory, and whether each is being recorded.

import { get } from "./api.js";
import { fillList } from "./controls.js";
import { element } from "./dom.js";
import { choose, view } from "./view.js";

/** @typedef {import("./types.js").Radar} Radar */

/** @type {Radar[]} */
let all = [];

export async function refreshRadars() {
    all = (await get("/radars")).radars;
    const list = /** @type {HTMLSelectElement} */ (element("radar"));
    if (!view.radar) {
        const heard = all.find(one => one.heard_ms !== null) ?? all[0];
        if (heard) choose({ radar: heard.radar });
    }
    showRadars(list);
}

/** @param {HTMLSelectElement} list */
function showRadars(list) {
    /** @type {[string, string][]} */
    const options = all.map(one => [one.radar, one.radar]);
    if (!options.some(([value]) => value === view.radar)) options.unshift([view.radar, view.radar || "any"]);
    fillList(list, options, view.radar);
}

/** The radar that is chosen. */
export function chosenRadar() {
    return all.find(one => one.radar === view.radar);
}

export function radars() {
    return all;
}
