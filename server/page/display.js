// Display: one picture of the page with all that belongs to it: spokes, canvas, overlay, own ship and targets.

import { HeldBatches } from "./heldbatches.js";
import { NoWebGl } from "./glprogram.js";
import { Picture } from "./picture.js";
import { SpokeStore } from "./spokestore.js";
import { Trails } from "./trails.js";
import { colourTable, gainFactor, paletteOf } from "./palettes.js";
import { drawOverlay } from "./overlay.js";
import { element } from "./dom.js";
import { view } from "./view.js";

const cNoWebGl =
    "This browser shows no radar picture: it has no WebGL2. Another one, or its settings for graphics, may help.";
const cMostPixels = 2048; // of a side

/** A canvas with its overlay, of a certain size; what both displays and their difference share. */
export class Screen {
    /**
     * @param {"a" | "b" | "d"} letter
     * @param {Display[]} displays
     */
    constructor(letter, displays) {
        this.place = element(`place-${letter}`);
        this.canvas = /** @type {HTMLCanvasElement} */ (element(`picture-${letter}`));
        this.overlay = /** @type {HTMLCanvasElement} */ (element(`overlay-${letter}`));
        this.caption = element(`caption-${letter}`);
        this.displays = displays;
        this.scaled = displays; // those that are shown at the same range
        this.letter = letter;
        this.css = 0;
        this.pixels = 1;
        this.hasTrails = false;
        this.wantsOverlay = true;
        this.overlayAt = 0;
        /** @type {Picture | null} */
        this.picture = null;
    }

    /** Makes the picture, or makes it anew with trails or without. Returns whether the browser can show one. */
    begin() {
        const [first] = this.displays;
        const sources = this.displays.map(({ store }) => ({
            store,
            cells: () => store.cells,
        }));
        if (this.letter !== "d" && view.trailsS > 0)
            sources.push({ store: first.store, cells: () => first.trails.cells() });
        try {
            this.picture ??= new Picture(this.canvas, sources, this.letter === "d");
            this.picture.onRestored = () => this.relook();
            if (this.picture.sources.length !== sources.length) {
                this.picture.sources = sources;
                this.picture.begin();
            }
        } catch (error) {
            if (!(error instanceof NoWebGl)) throw error;
            this.caption.textContent = cNoWebGl;
            return false;
        }
        this.relook();
        return true;
    }

    /** @param {number} css pixels of its sides */
    resize(css) {
        const most = Math.min(devicePixelRatio || 1, Math.max(cMostPixels / css, 1));
        this.css = css;
        this.pixels = Math.round(css * most) / css;
        for (const canvas of [this.canvas, this.overlay]) {
            canvas.style.width = canvas.style.height = `${css}px`;
        }
        this.overlay.width = this.overlay.height = Math.round(css * this.pixels);
        this.resight();
    }

    /** Puts the picture onto whole pixels of the window, where none of its own is spread over two. */
    snap() {
        const { style } = this.place;
        style.left = style.top = "0";
        const { left, top } = this.place.getBoundingClientRect();
        style.left = `${Math.round(left) - left}px`;
        style.top = `${Math.round(top) - top}px`;
    }

    get rangeM() {
        return view.rangeM || Math.max(...this.scaled.map(({ store }) => store.rangeM)) || 1852 * 6;
    }

    /** @param {number} pixels of a canvas for one of CSS @returns {import("./picture.js").Sight} */
    sight(pixels) {
        const size = Math.round(this.css * pixels);
        const x = (size / 2) * (1 + view.panX);
        return {
            size,
            pixelM: this.rangeM / (size / 2),
            x,
            y: (size / 2) * (1 + view.panY),
        };
    }

    resight() {
        if (this.css === 0) return;
        this.picture?.setSight(this.sight(this.pixels));
        this.wantsOverlay = true;
    }

    relook() {
        const palette = paletteOf(view.palette);
        this.picture?.setLook({
            table: colourTable(palette, view.gain, view.threshold),
            palette,
            fades: view.palette !== "grey",
            dim: this.displays.some(display => display.isDimmed) ? 0.55 : 0,
            threshold: view.threshold / 100,
            gain: gainFactor(view.gain),
        });
        this.wantsOverlay = true;
    }

    /** Sectors fade while nothing new comes for them. */
    recolour() {
        if (this.picture && !this.place.hidden) this.picture.isRecoloured = true;
    }

    /** Draws what changed; returns whether the picture did. */
    draw() {
        if (this.place.hidden || this.css === 0 || !this.picture) return false;
        const drawn = this.picture.draw();
        const now = performance.now();
        if (this.wantsOverlay || (drawn && now - this.overlayAt > 200)) this.drawOverlay(now);
        return drawn;
    }

    /** @param {number} now */
    drawOverlay(now) {
        this.wantsOverlay = false;
        this.overlayAt = now;
        const context = this.overlay.getContext("2d");
        if (!context) return;
        if (!view.overlays) {
            context.setTransform(1, 0, 0, 1, 0, 0);
            context.clearRect(0, 0, this.overlay.width, this.overlay.height);
            return;
        }
        const [{ store, own, targets }] = this.displays;
        drawOverlay(context, this.pixels, {
            sight: this.sight(1),
            rangeM: this.rangeM,
            palette: paletteOf(view.palette),
            reference: store.reference,
            heading: headingOf(store, own),
            own,
            targets: this.letter === "d" ? [] : targets,
            eblDeg: view.hasEbl ? view.eblDeg : null,
            vrmM: view.vrmM,
            newestBearing: store.newestBearing * 360,
        });
    }
}

/**
 * @param {SpokeStore} store
 * @param {import("./types.js").OwnShip} own
 */
export function headingOf(store, own) {
    return own.heading_deg ?? store.heading;
}

export class Display {
    source = -1;
    epoch = -1;
    whole = false;
    heardAt = 0; // by performance.now(), the newest spoke
    /** @type {import("./types.js").OwnShip} */
    own = {};
    /** @type {import("./types.js").Target[]} */
    targets = [];
    /** @type {import("./types.js").State | null} */
    state = null;
    farM = 0;
    held = new HeldBatches(); // while the picture is frozen

    /** @param {"a" | "b"} letter */
    constructor(letter) {
        this.letter = letter;
        this.store = new SpokeStore();
        this.trails = new Trails(this.store);
        this.screen = new Screen(letter, [this]);
        this.face = element(`face-${letter}`);
        this.isDimmed = false;
        this.frames = 0;
        this.spokes = 0; // since the page was loaded
    }

    reset() {
        this.source = this.epoch = -1;
        this.whole = false;
        this.heardAt = 0;
        this.own = {};
        this.targets = [];
        this.held.clear();
        this.state = null;
        this.store.clear();
    }

    /** @param {import("./types.js").Batch} batch */
    take(batch) {
        if (batch.epoch < this.epoch) return;
        if (batch.epoch > this.epoch) {
            this.store.clear();
            this.whole = false;
        }
        const hadRange = this.store.rows > 0;
        this.epoch = batch.epoch;
        for (const spoke of batch.spokes) this.store.add(spoke);
        this.spokes += batch.spokes.length;
        this.whole = this.whole || batch.whole;
        if (batch.spokes.length > 0) this.heardAt = performance.now();
        if (!hadRange || this.isRangeNew()) this.screen.resight();
    }

    isRangeNew() {
        const last = this.store.last;
        if (!last || view.rangeM > 0) return false;
        const far = last.firstM + last.cellM * last.cells.length;
        const isNew = far !== this.farM;
        this.farM = far;
        return isNew;
    }

    /** Takes what came while the picture was frozen. */
    takeHeld() {
        for (const batch of this.held.takeAll()) this.take(batch);
    }

    /** @param {import("./types.js").State} state */
    setState(state) {
        if (state.source !== this.source) {
            this.store.clear();
            this.epoch = -1;
            this.source = state.source;
        }
        this.state = state;
    }

    /** Writes what was drawn onto the canvas, for those who look at the page with a program. */
    writeFacts() {
        const { canvas } = this.screen;
        const { store } = this;
        const facts = canvas.dataset;
        facts.source = String(this.source);
        facts.epoch = String(this.epoch);
        facts.timeMs = String(store.newestMs);
        facts.bearing = (store.newestBearing * 360).toFixed(3);
        facts.spokes = String(this.spokes);
        facts.whole = String(this.whole);
        facts.latencyMs = String(Math.round(Date.now() - store.newestMs));
        facts.mPerPx = String(this.screen.sight(1).pixelM);
        facts.frames = String(++this.frames);
    }
}
