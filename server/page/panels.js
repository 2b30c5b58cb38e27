// The clock, and what is known of own ship.

import { showCursor } from "./cursor.js";
import { headingOf } from "./display.js";
import { element, showFactList } from "./dom.js";
import { bearingText, clockText, dayText, positionText, timeText, zoneText } from "./format.js";
import { showTargets } from "./targets.js";

/** @param {number} placeMs what is shown */
export function showClock(placeMs) {
    const time = placeMs || Date.now();
    element("clock-time").textContent = clockText(time);
    element("clock-ms").textContent = timeText(time).slice(-4);
    element("clock-day").textContent = dayText(time);
    element("zone").textContent = zoneText(time);
}

/** Own ship, targets and cursor. @param {import("./display.js").Display} display */
export function showFacts({ own, store, targets, screen }) {
    const heading = headingOf(store, own);
    const known = (/** @type {number | undefined} */ value, /** @type {(value: number) => string} */ text) =>
        value === undefined || Number.isNaN(value) ? "–" : text(value);
    const hasPlace = own.latitude_deg !== undefined && own.longitude_deg !== undefined;
    /** @type {[string, string][]} */
    const facts = [
        ["Position", hasPlace ? positionText(own.latitude_deg ?? 0, own.longitude_deg ?? 0) : "–"],
        ["Heading", known(heading, bearingText)],
        ["Course", known(own.course_deg, bearingText)],
        ["Speed", known(own.speed_kn, value => `${value.toFixed(1)} kn`)],
        ["Depth", known(own.depth_m, value => `${value.toFixed(1)} m`)],
        ["Turns", store.turnMs > 0 ? `${(60000 / store.turnMs).toFixed(1)}/min` : "–"],
    ];
    showFactList(element("own"), facts);
    element("own").children[1]?.classList.add("whole");
    showTargets(targets, { own, reference: store.reference, heading });
    showCursor(screen);
}
