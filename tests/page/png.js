// The pixels of a screenshot.

import { inflateSync } from "node:zlib";

/** @param {number} a left @param {number} b above @param {number} c above left */
function paeth(a, b, c) {
    const p = a + b - c;
    const [pa, pb, pc] = [Math.abs(p - a), Math.abs(p - b), Math.abs(p - c)];
    if (pa <= pb && pa <= pc) return a;
    return pb <= pc ? b : c;
}

/**
 * Takes pictures of 8 bits, RGB or RGBA, as browsers write them.
 * @param {Buffer} file
 */
export function pixelsOf(file) {
    const width = file.readUInt32BE(16);
    const height = file.readUInt32BE(20);
    const channels = file[25] === 6 ? 4 : 3;
    if (file[24] !== 8 || (file[25] !== 6 && file[25] !== 2) || file[28] !== 0) throw new Error("another kind of PNG");
    const parts = [];
    for (let at = 8; at < file.length; at += file.readUInt32BE(at) + 12)
        if (file.toString("latin1", at + 4, at + 8) === "IDAT")
            parts.push(file.subarray(at + 8, at + 8 + file.readUInt32BE(at)));
    const bytes = inflateSync(Buffer.concat(parts));
    const row = width * channels;
    const pixels = new Uint8Array(row * height);
    for (let y = 0; y < height; ++y) {
        const filter = bytes[y * (row + 1)];
        for (let i = 0; i < row; ++i) {
            const left = i >= channels ? pixels[y * row + i - channels] : 0;
            const above = y > 0 ? pixels[(y - 1) * row + i] : 0;
            const corner = y > 0 && i >= channels ? pixels[(y - 1) * row + i - channels] : 0;
            const guess = [0, left, above, (left + above) >> 1, paeth(left, above, corner)][filter];
            pixels[y * row + i] = bytes[y * (row + 1) + 1 + i] + guess;
        }
    }
    return {
        width,
        height,
        /** @param {number} x @param {number} y */
        at: (x, y) => pixels.subarray((y * width + x) * channels, (y * width + x) * channels + 3),
        brightest: () => pixels.reduce((most, value, i) => (i % channels < 3 && value > most ? value : most), 0),
    };
}
