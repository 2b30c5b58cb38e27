// Bearings, distances and places: from the sea to the picture and back.

import { cNm } from "./format.js";

export const cRad = Math.PI / 180;

/** @param {number} degrees */
export function normal(degrees) {
    return ((degrees % 360) + 360) % 360;
}

/**
 * Where somebody is, seen from own ship: true bearing and metres. Exact enough for what a radar reaches.
 * @param {{ latitude_deg?: number, longitude_deg?: number }} own
 * @param {{ latitude_deg?: number, longitude_deg?: number }} other
 */
export function bearingTo(own, other) {
    const { latitude_deg: ownNorth, longitude_deg: ownEast } = own;
    const { latitude_deg: north, longitude_deg: east } = other;
    if (ownNorth === undefined || ownEast === undefined || north === undefined || east === undefined) return null;
    let apart = east - ownEast;
    apart -= 360 * Math.round(apart / 360);
    const x = apart * 60 * cNm * Math.cos(((ownNorth + north) / 2) * cRad);
    const y = (north - ownNorth) * 60 * cNm;
    return { bearing: normal(Math.atan2(x, y) / cRad), metres: Math.hypot(x, y) };
}

/**
 * How a picture turns bearings: it counts from `reference` (0 unknown, 1 bow, 2 north). Returns the bearing as the
 * picture counts it; null where the heading is needed and not known.
 * @param {number} bearing degrees
 * @param {number} of what it counts from
 * @param {number} reference
 * @param {number} heading degrees, or NaN
 */
export function turned(bearing, of, reference, heading) {
    if (of === reference || of === 0) return reference === of ? bearing : null;
    if (reference === 0 || Number.isNaN(heading)) return null;
    return of === 2 ? bearing - heading : bearing + heading;
}

/**
 * A place in the picture, in its pixels.
 * @param {import("./picture.js").Sight} sight
 * @param {number} bearing degrees, as the picture counts
 * @param {number} metres
 */
export function placeOf(sight, bearing, metres) {
    const away = metres / sight.pixelM;
    return {
        x: sight.x + Math.sin(bearing * cRad) * away,
        y: sight.y - Math.cos(bearing * cRad) * away,
    };
}

/**
 * Bearing and distance of a place in the picture.
 * @param {import("./picture.js").Sight} sight
 * @param {number} x
 * @param {number} y
 */
export function polarOf(sight, x, y) {
    const right = x - sight.x;
    const up = sight.y - y;
    return {
        bearing: normal(Math.atan2(right, up) / cRad),
        metres: Math.hypot(right, up) * sight.pixelM,
    };
}

/**
 * How far it is from own ship to the edge of the round picture, in pixels; less than 0 where it is outside.
 * @param {import("./picture.js").Sight} sight
 * @param {number} bearing degrees
 */
export function toEdge(sight, bearing) {
    const middle = sight.size / 2;
    const x = sight.x - middle;
    const y = sight.y - middle;
    const along = x * Math.sin(bearing * cRad) - y * Math.cos(bearing * cRad);
    const inside = along * along - (x * x + y * y - middle * middle);
    return inside < 0 ? -1 : Math.sqrt(inside) - along;
}

const cRingsNm = [0.05, 0.1, 0.125, 0.25, 0.5, 1, 1.5, 2, 3, 4, 6, 8, 12, 16, 24, 48];

/** The distance between range rings: some four of them. @param {number} rangeM */
export function ringStep(rangeM) {
    const wanted = rangeM / cNm / 4;
    let best = cRingsNm[0];
    for (const step of cRingsNm) if (Math.abs(Math.log(step / wanted)) < Math.abs(Math.log(best / wanted))) best = step;
    return best * cNm;
}
