// A-scope: the echoes of one bearing over the distance.

import { cNm } from "./format.js";
import { ringStep } from "./geometry.js";
import { paletteOf } from "./palettes.js";
import { view } from "./view.js";

/**
 * @param {HTMLCanvasElement} canvas
 * @param {import("./spokestore.js").SpokeStore} store
 * @param {number} bearing degrees, as the picture counts
 * @param {number} rangeM
 */
export function drawAScope(canvas, store, bearing, rangeM) {
    const pixels = devicePixelRatio || 1;
    const width = canvas.clientWidth;
    const height = canvas.clientHeight;
    canvas.width = Math.round(width * pixels);
    canvas.height = Math.round(height * pixels);
    const context = canvas.getContext("2d");
    if (!context || width === 0) return;
    const palette = paletteOf(view.palette);
    const [red, green, blue] = palette.outside;
    context.scale(pixels, pixels);
    context.fillStyle = `rgb(${red} ${green} ${blue})`;
    context.fillRect(0, 0, width, height);
    context.fillStyle = palette.marks;
    const step = ringStep(rangeM);
    for (let at = step; at < rangeM; at += step) context.fillRect((at / rangeM) * width, 0, 1, height);
    if (store.rows === 0) return;
    const row = Math.floor(((((bearing % 360) + 360) % 360) / 360) * store.rows) % store.rows;
    context.fillStyle = palette.text;
    for (let x = 0; x < width; ++x) {
        const near = ((x / width) * rangeM - store.firstM[row]) / store.cellM[row];
        const far = (((x + 1) / width) * rangeM - store.firstM[row]) / store.cellM[row];
        let most = 0;
        for (let cell = Math.max(Math.floor(near), 0); cell < Math.min(Math.ceil(far), store.counts[row]); ++cell)
            most = Math.max(most, store.cells[row * store.columns + cell]);
        const high = (most / store.fullScale) * (height - 2);
        context.fillRect(x, height - high, 1, high);
    }
    if (view.vrmM > 0) {
        context.fillStyle = palette.cursor;
        context.fillRect((view.vrmM / rangeM) * width, 0, 1.5, height);
    }
    canvas.setAttribute("aria-label", `A-scope of ${bearing.toFixed(1)}°, up to ${(rangeM / cNm).toFixed(2)} NM`);
}
