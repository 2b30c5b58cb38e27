// Where a picture has to be drawn again: triangles, in its pixels from the lower left.

import { runsOf } from "./polartexture.js";

/** @typedef {import("./picture.js").Sight} Sight */

const cMargin = 3; // pixels around what changed, which its spokes may touch
const cSlice = 1 / 16; // of a turn, the widest trapezoid

/** @param {Sight} sight */
export function everything({ size }) {
    return new Float32Array([0, 0, size, 0, size, size, 0, 0, size, size, 0, size]);
}

/**
 * Trapezoids that hold the pixels that rows touch, two triangles each.
 * @param {Sight} sight
 * @param {number[]} rows
 * @param {number} rowsOfTurn
 */
export function slices(sight, rows, rowsOfTurn) {
    /** @type {number[]} */
    const places = [];
    for (const [first, end] of runsOf(rows)) {
        const count = Math.ceil((end - first) / rowsOfTurn / cSlice);
        for (let i = 0; i < count; ++i) {
            const from = (first + ((end - first) * i) / count) / rowsOfTurn;
            const to = (first + ((end - first) * (i + 1)) / count) / rowsOfTurn;
            addSlice(sight, places, from, to);
        }
    }
    return new Float32Array(places);
}

/**
 * @param {Sight} sight
 * @param {number[]} places
 * @param {number} from in turns
 * @param {number} to
 */
function addSlice(sight, places, from, to) {
    const { size, x } = sight;
    const y = size - sight.y;
    const middle = (from + to) * Math.PI;
    const spread = Math.tan((to - from) * Math.PI);
    const far = Math.hypot(Math.max(x, size - x), Math.max(y, size - y)) + cMargin;
    const ahead = [Math.sin(middle), Math.cos(middle)];
    const corner = (/** @type {number} */ along, /** @type {number} */ across) => [
        x + ahead[0] * along + ahead[1] * across,
        y + ahead[1] * along - ahead[0] * across,
    ];
    const wide = far * spread + cMargin;
    const a = corner(-cMargin, -cMargin);
    const b = corner(-cMargin, cMargin);
    const c = corner(far, wide);
    const d = corner(far, -wide);
    places.push(...a, ...b, ...c, ...a, ...c, ...d);
}

/** @param {Float32Array[]} parts */
export function joined(parts) {
    const whole = new Float32Array(parts.reduce((sum, one) => sum + one.length, 0));
    let at = 0;
    for (const one of parts) {
        whole.set(one, at);
        at += one.length;
    }
    return whole;
}
