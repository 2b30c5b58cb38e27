// What a picture must show, computed slowly and plainly: each pixel the brightest of the cells that touch it.

/** Bearings of the outermost corners of a pixel, in turns, seen from own ship. @param {number} x @param {number} y */
function bearingsOf(x, y) {
    const middle = Math.atan2(x, -y);
    let [low, high] = [0, 0];
    for (const right of [-0.5, 0.5])
        for (const down of [-0.5, 0.5]) {
            let away = Math.atan2(x + right, -(y + down)) - middle;
            away -= 2 * Math.PI * Math.round(away / (2 * Math.PI));
            low = Math.min(low, away);
            high = Math.max(high, away);
        }
    return [(middle + low) / (2 * Math.PI), (middle + high) / (2 * Math.PI)];
}

/**
 * The values of a square picture, 0 outside of its circle. Sizes are even: own ship lies between pixels.
 * @param {number} size
 * @param {number} pixelCells how many cells a pixel is long
 * @param {Uint8Array[]} rows
 * @param {number} touch of a row or a cell: less is none; below 0: that far away counts, too
 */
function valuesOf(size, pixelCells, rows, touch) {
    const values = new Uint8Array(size * size);
    for (let line = 0; line < size; ++line)
        for (let column = 0; column < size; ++column) {
            const x = column + 0.5 - size / 2;
            const y = line + 0.5 - size / 2;
            const near = Math.hypot(Math.max(Math.abs(x) - 0.5, 0), Math.max(Math.abs(y) - 0.5, 0));
            const far = Math.hypot(Math.abs(x) + 0.5, Math.abs(y) + 0.5);
            if (near > size / 2) continue;
            const [from, to] = bearingsOf(x, y).map(turn => turn * rows.length);
            const end = Math.min(Math.ceil(far * pixelCells - touch), rows[0].length);
            for (let i = Math.floor(from + touch); i < Math.ceil(to - touch); ++i) {
                const cells = rows[(i + rows.length) % rows.length];
                for (let cell = Math.max(Math.floor(near * pixelCells + touch), 0); cell < end; ++cell)
                    values[line * size + column] = Math.max(values[line * size + column], cells[cell]);
            }
        }
    return values;
}

const cRounding = 2e-3; // of a row or a cell: what numbers of 32 bits leave open

/**
 * The least and the most that each pixel may be.
 * @param {number} size
 * @param {number} pixelCells
 * @param {Uint8Array[]} rows
 */
export function expectedPicture(size, pixelCells, rows) {
    const least = valuesOf(size, pixelCells, rows, cRounding);
    return { least, most: valuesOf(size, pixelCells, rows, -cRounding) };
}
