// Spokes as the server sends them: a binary message is a batch of a head and spokes.

const cHead = 24;
const cSpokeHead = 40;
const cHigh = 2 ** 32;

/**
 * @param {DataView} view
 * @param {number} at
 */
function u64(view, at) {
    return view.getUint32(at, true) + view.getUint32(at + 4, true) * cHigh;
}

/**
 * @param {ArrayBuffer} buffer
 * @param {number} at
 * @param {number} count
 * @param {number} bytes
 * @returns {import("./types.js").Cells | null}
 */
function cellsAt(buffer, at, count, bytes) {
    if (at + count * bytes > buffer.byteLength) return null;
    if (bytes === 1) return new Uint8Array(buffer, at, count);
    if (bytes === 2) return new Uint16Array(buffer, at, count);
    return bytes === 4 ? new Uint32Array(buffer, at, count) : null;
}

/**
 * @param {DataView} view
 * @param {number} at
 * @returns {import("./types.js").Spoke | null}
 */
function spokeAt(view, at) {
    if (at + cSpokeHead > view.byteLength) return null;
    const count = view.getUint32(at + 28, true);
    const cells = cellsAt(/** @type {ArrayBuffer} */ (view.buffer), at + cSpokeHead, count, view.getUint8(at + 37));
    if (!cells) return null;
    return {
        timeMs: u64(view, at),
        from: view.getUint32(at + 8, true),
        to: view.getUint32(at + 12, true),
        firstM: view.getFloat32(at + 16, true),
        cellM: view.getFloat32(at + 20, true),
        sequence: view.getUint32(at + 24, true),
        heading: view.getFloat32(at + 32, true),
        bits: view.getUint8(at + 36),
        reference: view.getUint8(at + 38),
        cells,
    };
}

/**
 * Returns the batch, whose cells are views of the buffer; null for what is none. Of one that is cut short there are
 * the spokes that are whole.
 * @param {ArrayBuffer} buffer
 * @returns {import("./types.js").Batch | null}
 */
export function parseBatch(buffer) {
    const view = new DataView(buffer);
    if (view.byteLength < cHead || view.getUint8(0) !== 1 || view.getUint8(1) !== 1) return null;
    const spokes = [];
    let at = cHead;
    for (let left = view.getUint16(2, true); left > 0; --left) {
        const spoke = spokeAt(view, at);
        if (!spoke) break;
        spokes.push(spoke);
        at = (at + cSpokeHead + spoke.cells.byteLength + 7) & ~7;
    }
    const flags = view.getUint32(12, true);
    return {
        source: view.getUint32(4, true),
        epoch: view.getUint32(8, true),
        before: (flags & 1) !== 0,
        whole: (flags & 2) !== 0,
        spokes,
    };
}
