// The table of targets beside the picture: nearest first.

import { element, make } from "./dom.js";
import { bearingText, distanceText } from "./format.js";
import { nameOf, placeOfTarget } from "./overlay.js";

const cMost = 12;

/**
 * @param {import("./types.js").Target[]} targets
 * @param {Parameters<typeof placeOfTarget>[1]} scene
 */
export function showTargets(targets, scene) {
    const placed = targets.map(target => ({
        target,
        place: placeOfTarget(target, scene),
    }));
    placed.sort((a, b) => (a.place?.metres ?? Infinity) - (b.place?.metres ?? Infinity));
    const rows = placed.slice(0, cMost).map(({ target, place }) =>
        make("tr", {}, [
            make("td", {
                text: `${target.mmsi === undefined ? "○" : "△"} ${nameOf(target)}`,
            }),
            make("td", { text: place ? bearingText(place.bearing) : "" }),
            make("td", { text: place ? distanceText(place.metres) : "" }),
            make("td", {
                text: target.speed_kn === undefined ? "" : `${target.speed_kn.toFixed(1)} kn`,
            }),
        ]),
    );
    if (rows.length === 0) rows.push(make("tr", {}, [make("td", { class: "quiet-text", text: "none" })]));
    element("targets").replaceChildren(...rows);
}
