// PolarTexture: the rows of a store on the graphics card, as whole numbers; only rows that changed are sent there.

/** @typedef {import("./spokestore.js").SpokeStore} SpokeStore */

/** @param {WebGL2RenderingContext} gl */
export function makeTexture(gl) {
    const texture = gl.createTexture();
    gl.bindTexture(gl.TEXTURE_2D, texture);
    for (const side of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER])
        gl.texParameteri(gl.TEXTURE_2D, side, gl.NEAREST);
    for (const side of [gl.TEXTURE_WRAP_S, gl.TEXTURE_WRAP_T]) gl.texParameteri(gl.TEXTURE_2D, side, gl.CLAMP_TO_EDGE);
    return texture;
}

/**
 * @param {WebGL2RenderingContext} gl
 * @param {number} bytes of a cell
 * @returns {[number, number]} the form in which it is kept, and the type in which it comes
 */
function formOf(gl, bytes) {
    if (bytes === 1) return [gl.R8UI, gl.UNSIGNED_BYTE];
    return bytes === 2 ? [gl.R16UI, gl.UNSIGNED_SHORT] : [gl.R32UI, gl.UNSIGNED_INT];
}

export class PolarTexture {
    /**
     * @param {WebGL2RenderingContext} gl
     * @param {SpokeStore} store
     * @param {() => import("./types.js").Cells} cellsOf what of the store is shown
     */
    constructor(gl, store, cellsOf) {
        this.gl = gl;
        this.store = store;
        this.cellsOf = cellsOf;
        this.cells = makeTexture(gl);
        this.meta = makeTexture(gl);
        this.generation = -1;
        this.read = 0; // of the log of the store
        this.timesFrom = 0; // times on the card are seconds from here on, which 32 bits hold well enough
    }

    /**
     * Sends what changed since the last time. Returns the rows that did, or null for all.
     * @returns {number[] | null}
     */
    update() {
        const { store } = this;
        const isNew = this.generation !== store.generation;
        if (store.rows === 0) {
            this.generation = store.generation;
            this.read = store.logged;
            return isNew ? null : [];
        }
        const behind = store.logged - this.read;
        if (!isNew && behind <= store.log.length) return this.sendChanged(behind);
        this.sendAll();
        return null;
    }

    sendAll() {
        const { gl, store } = this;
        this.timesFrom = store.newestMs;
        const cells = this.cellsOf();
        const [form, type] = formOf(gl, cells.BYTES_PER_ELEMENT);
        gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
        gl.bindTexture(gl.TEXTURE_2D, this.cells);
        gl.texImage2D(gl.TEXTURE_2D, 0, form, store.columns, store.rows, 0, gl.RED_INTEGER, type, cells);
        const meta = new Float32Array(store.rows * 4);
        for (let row = 0; row < store.rows; ++row) this.writeMeta(row, meta, row * 4);
        gl.bindTexture(gl.TEXTURE_2D, this.meta);
        gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA32F, store.rows, 1, 0, gl.RGBA, gl.FLOAT, meta);
        this.generation = store.generation;
        this.read = store.logged;
    }

    /**
     * @param {number} row
     * @param {Float32Array} to
     * @param {number} at
     */
    writeMeta(row, to, at) {
        const { store } = this;
        to[at] = store.firstM[row];
        to[at + 1] = store.cellM[row];
        to[at + 2] = store.counts[row];
        to[at + 3] = store.times[row] > 0 ? (store.times[row] - this.timesFrom) / 1000 : -1e9;
    }

    /** Now, by the spokes, as the card counts. */
    now() {
        return (this.store.newestMs - this.timesFrom) / 1000;
    }

    /** @param {number} behind */
    sendChanged(behind) {
        const { gl, store } = this;
        const rows = new Set();
        for (let i = 0; i < behind; ++i) rows.add(store.log[(this.read + i) % store.log.length]);
        this.read = store.logged;
        const cells = this.cellsOf();
        const [, type] = formOf(gl, cells.BYTES_PER_ELEMENT);
        gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
        for (const [first, end] of runsOf([...rows])) {
            const bytes = cells.subarray(first * store.columns, end * store.columns);
            gl.bindTexture(gl.TEXTURE_2D, this.cells);
            gl.texSubImage2D(gl.TEXTURE_2D, 0, 0, first, store.columns, end - first, gl.RED_INTEGER, type, bytes);
            const meta = new Float32Array((end - first) * 4);
            for (let row = first; row < end; ++row) this.writeMeta(row, meta, (row - first) * 4);
            gl.bindTexture(gl.TEXTURE_2D, this.meta);
            gl.texSubImage2D(gl.TEXTURE_2D, 0, first, 0, end - first, 1, gl.RGBA, gl.FLOAT, meta);
        }
        return [...rows];
    }
}

/**
 * Runs of rows that follow one another: first and end.
 * @param {number[]} rows
 * @returns {[number, number][]}
 */
export function runsOf(rows) {
    rows.sort((a, b) => a - b);
    /** @type {[number, number][]} */
    const runs = [];
    for (const row of rows) {
        const last = runs[runs.length - 1];
        if (last && last[1] === row) last[1] = row + 1;
        else runs.push([row, row + 1]);
    }
    return runs;
}
