// Picture: a canvas that shows one store of spokes, or the difference of two.
//
// Whatever changed is drawn as trapezoids from own ship outwards, everything else stays as it was.

import { NoWebGl, linked } from "./glprogram.js";
import { PolarTexture, makeTexture } from "./polartexture.js";
import { cBrightest, cColours, cDifference } from "./shaders.js";
import { everything, joined, slices } from "./slices.js";
import { cLevels } from "./palettes.js";

/** @typedef {import("./spokestore.js").SpokeStore} SpokeStore */
/**
 * What is seen: lengths in pixels of the canvas, from its upper left.
 * @typedef {object} Sight
 * @property {number} size
 * @property {number} pixelM metres a pixel
 * @property {number} x own ship
 * @property {number} y
 */
/**
 * @typedef {object} Look
 * @property {Uint8Array} table of colourTable()
 * @property {import("./palettes.js").Palette} palette
 * @property {boolean} fades sectors that are not renewed
 * @property {number} dim 0 to 1, of the whole picture
 * @property {number} threshold 0 to 1
 * @property {number} gain factor
 */
/** @typedef {{ texture: PolarTexture, value: WebGLTexture, frame: WebGLFramebuffer }} Layer */
/** @typedef {import("./glprogram.js").Program} Program */

const cAllOver = 1 / 3; // of the rows: if more changed, everything is drawn

export class Picture {
    lost = false;
    isStale = true; // everything has to be drawn
    isRecoloured = false;
    isSized = false;
    hasTable = false;
    /** @type {Layer[]} */
    layers = [];
    /** @type {Sight} */
    sight = { size: 0, pixelM: 1, x: 0, y: 0 };
    /** @type {Look | null} */
    look = null;
    onRestored = () => {};

    /**
     * Throws NoWebGl where the browser has no WebGL2.
     * @param {HTMLCanvasElement} canvas
     * @param {{ store: SpokeStore, cells: () => import("./types.js").Cells }[]} sources one; or one and its trails; or two to compare
     * @param {boolean} isDifference
     */
    constructor(canvas, sources, isDifference) {
        this.canvas = canvas;
        this.sources = sources;
        this.isDifference = isDifference;
        const options = /** @type {WebGLContextAttributes} */ ({
            alpha: false,
            antialias: false,
            depth: false,
            preserveDrawingBuffer: true,
        });
        const gl = /** @type {WebGL2RenderingContext | null} */ (canvas.getContext("webgl2", options));
        if (!gl) throw new NoWebGl("no WebGL2");
        this.gl = gl;
        canvas.addEventListener("webglcontextlost", event => {
            event.preventDefault();
            this.lost = true;
        });
        canvas.addEventListener("webglcontextrestored", () => {
            this.begin();
            this.lost = false;
            this.onRestored();
        });
        this.begin();
    }

    begin() {
        const { gl } = this;
        this.brightest = linked(gl, cBrightest);
        this.colours = linked(gl, this.isDifference ? cDifference : cColours);
        this.table = makeTexture(gl);
        this.places = gl.createBuffer();
        gl.bindBuffer(gl.ARRAY_BUFFER, this.places);
        gl.enableVertexAttribArray(0);
        gl.vertexAttribPointer(0, 2, gl.FLOAT, false, 0, 0);
        gl.disable(gl.DITHER);
        this.layers = this.sources.map(source => ({
            texture: new PolarTexture(gl, source.store, source.cells),
            value: makeTexture(gl),
            frame: gl.createFramebuffer(),
        }));
        this.isStale = true;
        this.isSized = false;
        this.hasTable = false;
    }

    /** @param {Sight} sight */
    setSight(sight) {
        const old = this.sight;
        if (old.size === sight.size && old.pixelM === sight.pixelM && old.x === sight.x && old.y === sight.y) return;
        if (old.size !== sight.size) this.isSized = false;
        this.sight = { ...sight };
        this.isStale = true;
    }

    /** @param {Look} look */
    setLook(look) {
        this.look = look;
        this.hasTable = false;
        this.isRecoloured = true;
    }

    makeSize() {
        const { gl, sight } = this;
        this.canvas.width = this.canvas.height = sight.size;
        for (const layer of this.layers) {
            gl.bindTexture(gl.TEXTURE_2D, layer.value);
            const { size } = sight;
            gl.texImage2D(gl.TEXTURE_2D, 0, gl.R16UI, size, size, 0, gl.RED_INTEGER, gl.UNSIGNED_SHORT, null);
            gl.bindFramebuffer(gl.FRAMEBUFFER, layer.frame);
            gl.framebufferTexture2D(gl.FRAMEBUFFER, gl.COLOR_ATTACHMENT0, gl.TEXTURE_2D, layer.value, 0);
        }
        this.isSized = true;
        this.isStale = true;
    }

    /** Draws what changed. Returns whether anything did. */
    draw() {
        if (this.lost || !this.look || this.sight.size === 0) return false;
        const { gl } = this;
        if (!this.isSized) this.makeSize();
        if (!this.hasTable) this.sendTable();
        gl.viewport(0, 0, this.sight.size, this.sight.size);
        const changed = this.layers.map(layer => this.update(layer));
        const places = this.isStale || this.isRecoloured ? everything(this.sight) : joined(changed);
        if (places.length === 0) return false;
        this.colour(places);
        this.isStale = this.isRecoloured = false;
        return true;
    }

    /**
     * Finds the brightest cells again where they are others. Returns where that is.
     * @param {Layer} layer
     */
    update(layer) {
        const rows = layer.texture.update();
        const rowsOfTurn = Math.max(layer.texture.store.rows, 1);
        const isAll = this.isStale || rows === null || rows.length > cAllOver * rowsOfTurn;
        const places = isAll ? everything(this.sight) : slices(this.sight, rows, rowsOfTurn);
        if (places.length > 0) this.findBrightest(layer, places);
        return places;
    }

    sendTable() {
        const { gl, look } = this;
        if (!look) return;
        gl.bindTexture(gl.TEXTURE_2D, this.table ?? null);
        gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA, cLevels, 1, 0, gl.RGBA, gl.UNSIGNED_BYTE, look.table);
        this.hasTable = true;
    }

    /**
     * @param {Layer} layer
     * @param {Float32Array} places
     */
    findBrightest(layer, places) {
        const { gl, sight, brightest } = this;
        if (!brightest) return;
        const { store } = layer.texture;
        const cells = layer.texture.cellsOf();
        const isTrail = cells !== store.cells;
        gl.useProgram(brightest.program);
        gl.bindFramebuffer(gl.FRAMEBUFFER, layer.frame);
        this.bind(0, layer.texture.cells);
        this.bind(1, layer.texture.meta);
        gl.uniform1i(brightest.at.uCells, 0);
        gl.uniform1i(brightest.at.uMeta, 1);
        gl.uniform2f(brightest.at.uCentre, sight.x, sight.size - sight.y);
        gl.uniform2f(brightest.at.uMiddle, sight.size / 2, sight.size / 2);
        gl.uniform1f(brightest.at.uRadius, sight.size / 2);
        gl.uniform1f(brightest.at.uPixelM, sight.pixelM);
        gl.uniform1f(brightest.at.uRows, store.rows);
        gl.uniform1f(brightest.at.uScale, 65535 / (isTrail ? 255 : store.fullScale));
        gl.uniform1i(brightest.at.uUniform, store.isUniform ? 1 : 0);
        this.paint(brightest, places);
    }

    /** @param {Float32Array} places */
    colour(places) {
        const { gl, look, colours, sight } = this;
        if (!look || !colours) return;
        const { at } = colours;
        const [main, second] = this.layers;
        gl.useProgram(colours.program);
        gl.bindFramebuffer(gl.FRAMEBUFFER, null);
        this.bind(0, main.value);
        this.bind(1, (second ?? main).value);
        this.bind(2, this.table ?? null);
        this.bind(3, main.texture.meta);
        gl.uniform1i(at.uValues, 0);
        gl.uniform1i(at.uTrails, 1);
        gl.uniform1i(at.uTable, 2);
        gl.uniform2f(at.uMiddle, sight.size / 2, sight.size / 2);
        gl.uniform1f(at.uRadius, sight.size / 2);
        gl.uniform3fv(at.uOutside, part(look.palette.outside));
        if (this.isDifference) this.setDifference(at, look);
        else this.setColours(at, look, main.texture, second !== undefined);
        this.paint(colours, places);
    }

    /**
     * @param {Program["at"]} at
     * @param {Look} look
     * @param {PolarTexture} texture
     * @param {boolean} hasTrails
     */
    setColours(at, look, texture, hasTrails) {
        const { gl, sight } = this;
        const { store } = texture;
        gl.uniform1i(at.uMeta, 3);
        gl.uniform2f(at.uCentre, sight.x, sight.size - sight.y);
        gl.uniform1f(at.uRows, store.rows);
        gl.uniform1f(at.uNow, texture.now());
        gl.uniform1f(at.uTurn, Math.max(store.turnMs, 100) / 1000);
        gl.uniform1f(at.uDim, look.dim);
        gl.uniform1i(at.uFades, look.fades && store.turnMs > 0 ? 1 : 0);
        gl.uniform1i(at.uHasTrails, hasTrails ? 1 : 0);
        gl.uniform3fv(at.uTrail, part(look.palette.trail));
    }

    /**
     * @param {Program["at"]} at
     * @param {Look} look
     */
    setDifference(at, look) {
        const { gl } = this;
        gl.uniform1f(at.uThreshold, Math.max(look.threshold, 0.02));
        gl.uniform1f(at.uGain, look.gain);
        gl.uniform3fv(at.uOnlyA, part(look.palette.onlyA));
        gl.uniform3fv(at.uOnlyB, part(look.palette.onlyB));
        gl.uniform3fv(at.uBoth, part(look.palette.both));
    }

    /**
     * @param {number} unit
     * @param {WebGLTexture | null} texture
     */
    bind(unit, texture) {
        this.gl.activeTexture(this.gl.TEXTURE0 + unit);
        this.gl.bindTexture(this.gl.TEXTURE_2D, texture);
    }

    /**
     * @param {Program} program
     * @param {Float32Array} places
     */
    paint(program, places) {
        const { gl, sight } = this;
        gl.uniform2f(program.at.uSize, sight.size, sight.size);
        gl.bindBuffer(gl.ARRAY_BUFFER, this.places ?? null);
        gl.bufferData(gl.ARRAY_BUFFER, places, gl.STREAM_DRAW);
        gl.drawArrays(gl.TRIANGLES, 0, places.length / 2);
    }
}

/** @param {import("./palettes.js").Colour} colour */
function part(colour) {
    return colour.map(value => value / 255);
}
