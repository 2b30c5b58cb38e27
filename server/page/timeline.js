// Timeline: a slider over the time of a recording, or of all of them, from a year to a millisecond.

import { get } from "./api.js";
import { element } from "./dom.js";
import { countText, durationText, timeText } from "./format.js";
import { drawTimeline, lanesOf, cRuler } from "./timelinedrawing.js";
import { choose, onView, view } from "./view.js";

const cShortest = 20; // ms from edge to edge
const cLongest = 366 * 864e5;
const cColours = ["text", "quiet", "panel", "line", "accent", "alarm", "warn", "good", "kept", "selection"];
const cKeys = new Map([
    ["ArrowLeft", -1000],
    ["ArrowRight", 1000],
    ["ArrowDown", -1000],
    ["ArrowUp", 1000],
    ["PageDown", -60000],
    ["PageUp", 60000],
]);

export class Timeline {
    timer = 0;
    drawnMs = 0; // the place that was drawn
    drawing = 0; // the animation frame in which it will be
    /** @type {"" | "seek" | "select"} */
    dragging = "";
    pressedMs = 0;
    pressedX = 0;
    soughtAt = 0;

    /** @param {(timeMs: number) => void} onSeek */
    constructor(onSeek) {
        this.onSeek = onSeek;
        this.slider = element("timeline");
        this.canvas = /** @type {HTMLCanvasElement} */ (element("timeline-canvas"));
        this.tip = element("timeline-tip");
        this.id = "";
        this.firstMs = Date.now() - 6e5;
        this.lastMs = Date.now();
        this.fromMs = this.firstMs;
        this.toMs = this.lastMs;
        this.nowMs = 0;
        this.isFresh = true; // nothing was shown yet
        this.fetchAt = 0;
        /** @type {import("./types.js").Timeline | null} */
        this.data = null;
        /** @type {AbortController | null} */
        this.asking = null;
        /** @type {Record<string, string>} */
        this.colours = {};
        this.readColours();
        this.listen();
        new ResizeObserver(() => this.resize()).observe(this.slider);
        onView(changed => {
            if (changed.has("palette")) this.readColours();
            if (changed.has("palette") || changed.has("aMs") || changed.has("bMs") || changed.has("utc")) this.draw();
        });
    }

    readColours() {
        const style = getComputedStyle(document.documentElement);
        for (const name of cColours) this.colours[name] = style.getPropertyValue(`--${name}`).trim();
    }

    resize() {
        const { clientWidth: width, clientHeight: height } = this.slider;
        const pixels = devicePixelRatio || 1;
        this.canvas.width = Math.round(width * pixels);
        this.canvas.height = Math.round(height * pixels);
        this.fetchSoon();
        this.draw();
    }

    /**
     * Shows another recording, or without an id all of them.
     * @param {string} id
     * @param {number} firstMs
     * @param {number} lastMs
     */
    show(id, firstMs, lastMs) {
        this.id = id;
        this.firstMs = firstMs;
        this.lastMs = Math.max(lastMs, firstMs + 1000);
        this.data = null;
        this.setSpan(this.firstMs, this.lastMs);
    }

    /** The recording has grown. @param {number} lastMs @param {number} [firstMs] */
    extend(lastMs, firstMs = this.firstMs) {
        const atEnd = this.toMs >= this.lastMs;
        const slides = this.fromMs > this.firstMs || firstMs > this.firstMs;
        const more = lastMs - this.lastMs;
        if (more > 0 && more < this.pixelMs) return;
        this.lastMs = lastMs;
        this.firstMs = firstMs;
        if (!atEnd || more <= 0) return;
        this.setSpan(slides ? this.fromMs + more : this.fromMs, this.toMs + more, 2000);
    }

    /** @param {number} fromMs @param {number} toMs @param {number} waitMs */
    setSpan(fromMs, toMs, waitMs = 100) {
        const span = Math.min(Math.max(toMs - fromMs, cShortest), cLongest);
        this.fromMs = fromMs;
        this.toMs = fromMs + span;
        this.fetchSoon(waitMs);
        this.draw();
    }

    /** @param {number} factor above 1: a longer span @param {number} [aroundMs] */
    zoom(factor, aroundMs = this.nowMs > this.fromMs && this.nowMs < this.toMs ? this.nowMs : this.middle) {
        const span = Math.min(Math.max((this.toMs - this.fromMs) * factor, cShortest), cLongest);
        const part = (aroundMs - this.fromMs) / (this.toMs - this.fromMs);
        this.setSpan(aroundMs - part * span, aroundMs + (1 - part) * span);
    }

    whole() {
        this.setSpan(this.firstMs, this.lastMs);
    }

    get middle() {
        return (this.fromMs + this.toMs) / 2;
    }

    /** @param {number} timeMs */
    setNow(timeMs) {
        if (this.dragging === "seek" || timeMs === this.nowMs) return;
        this.nowMs = timeMs;
        this.announce();
        if (Math.abs(timeMs - this.drawnMs) >= this.pixelMs / 2) this.draw();
    }

    /** Milliseconds that a pixel is wide. */
    get pixelMs() {
        return (this.toMs - this.fromMs) / Math.max(this.slider.clientWidth, 1);
    }

    fetchSoon(waitMs = 100) {
        const at = performance.now() + waitMs;
        if (this.fetchAt !== 0 && this.fetchAt <= at) return;
        clearTimeout(this.timer);
        this.fetchAt = at;
        this.timer = window.setTimeout(() => this.fetch(), waitMs);
    }

    async fetch() {
        this.fetchAt = 0;
        this.asking?.abort();
        const asking = new AbortController();
        this.asking = asking;
        const columns = Math.min(Math.max(this.slider.clientWidth, 64), 4096);
        const span = this.lastMs - this.firstMs;
        const isInside = this.id && this.fromMs > this.firstMs - span && this.toMs < this.lastMs + span;
        const path = isInside ? `/recordings/${this.id}/timeline` : "/timeline";
        const query = {
            from_ms: Math.floor(this.fromMs),
            to_ms: Math.ceil(this.toMs),
            columns,
        };
        try {
            this.data = await get(path, query, asking.signal);
            this.draw();
        } catch {
            // What was drawn stays; the page says itself that the server is gone.
        }
    }

    draw() {
        if (this.drawing) return;
        this.drawing = requestAnimationFrame(() => {
            this.drawing = 0;
            const context = this.canvas.getContext("2d");
            if (!context || this.canvas.width === 0) return;
            const pixels = this.canvas.width / this.slider.clientWidth;
            context.setTransform(pixels, 0, 0, pixels, 0, 0);
            this.drawnMs = this.nowMs;
            drawTimeline(context, this.frame());
        });
        this.announce();
    }

    announce() {
        const { slider } = this;
        slider.setAttribute("aria-valuemin", String(Math.round(this.fromMs)));
        slider.setAttribute("aria-valuemax", String(Math.round(this.toMs)));
        slider.setAttribute("aria-valuenow", String(Math.round(this.nowMs)));
        slider.setAttribute("aria-valuetext", this.nowMs > 0 ? timeText(this.nowMs) : "");
    }

    /** @returns {import("./timelinedrawing.js").Frame} */
    frame() {
        const { clientWidth: width, clientHeight: height } = this.slider;
        const { fromMs, toMs, nowMs, data, colours } = this;
        return {
            width,
            height,
            fromMs,
            toMs,
            nowMs,
            aMs: view.aMs,
            bMs: view.bMs,
            data,
            colours,
        };
    }

    /** @param {number} timeMs */
    seek(timeMs) {
        const latest = Math.max(this.lastMs, this.toMs);
        const earliest = Math.min(this.firstMs, this.fromMs);
        this.nowMs = Math.min(Math.max(timeMs, earliest), latest);
        this.draw();
        this.onSeek(Math.round(this.nowMs));
    }

    /** The recording that has a time, as far as it is shown. @param {number} timeMs */
    recordingAt(timeMs) {
        return this.data?.files.find(file => file.first_ms <= timeMs && timeMs <= file.last_ms)?.recording;
    }

    /** @param {{ clientX: number }} event */
    timeAt(event) {
        const box = this.slider.getBoundingClientRect();
        return this.fromMs + ((event.clientX - box.left) / box.width) * (this.toMs - this.fromMs);
    }

    listen() {
        const { slider } = this;
        slider.addEventListener("pointerdown", event => this.press(event));
        slider.addEventListener("pointermove", event => this.move(event));
        slider.addEventListener("pointerup", event => this.release(event));
        slider.addEventListener("pointerleave", () => (this.tip.hidden = true));
        slider.addEventListener("wheel", event => this.wheel(event), {
            passive: false,
        });
        slider.addEventListener("keydown", event => this.key(event));
    }

    /** @param {PointerEvent} event */
    press(event) {
        if (event.button !== 0) return;
        this.slider.setPointerCapture(event.pointerId);
        this.dragging = event.shiftKey ? "select" : "seek";
        this.pressedMs = this.timeAt(event);
        this.pressedX = event.clientX;
        if (this.dragging === "select") choose({ aMs: this.pressedMs, bMs: 0 });
    }

    /** @param {PointerEvent} event */
    move(event) {
        const time = this.timeAt(event);
        this.showTip(event, time);
        if (this.dragging === "select") {
            const start = this.pressedMs;
            choose({ aMs: Math.min(start, time), bMs: Math.max(start, time) });
        }
        if (this.dragging !== "seek" || Math.abs(event.clientX - this.pressedX) < 3) return;
        if (performance.now() - this.soughtAt < 120) return;
        this.soughtAt = performance.now();
        this.seek(time);
    }

    /** @param {PointerEvent} event */
    release(event) {
        const { dragging } = this;
        this.dragging = "";
        if (dragging !== "seek") return;
        const isClick = Math.abs(event.clientX - this.pressedX) < 3;
        const gap = isClick ? this.gapAt(event) : undefined;
        this.seek(gap ? gap.from_ms : this.timeAt(event));
    }

    /** The gap under the pointer. @param {PointerEvent} event */
    gapAt(event) {
        const box = this.slider.getBoundingClientRect();
        const y = event.clientY - box.top;
        const near = ((this.toMs - this.fromMs) / box.width) * 2;
        const time = this.timeAt(event);
        const lane = lanesOf(this.frame()).find(one => y >= one.top && y < one.top + one.height);
        return this.data?.gaps.find(
            gap =>
                gap.stream === lane?.stream &&
                gap.address === lane.address &&
                time >= gap.from_ms - near &&
                time <= gap.to_ms + near,
        );
    }

    /** @param {PointerEvent} event @param {number} time */
    showTip(event, time) {
        const box = this.slider.getBoundingClientRect();
        const near = ((this.toMs - this.fromMs) / box.width) * 5;
        const parts = [timeText(time)];
        const gap = this.gapAt(event);
        if (gap) parts.push(`${gap.stream}: nothing for ${durationText(gap.to_ms - gap.from_ms)}`);
        for (const note of this.data?.notes ?? [])
            if (Math.abs(note.time_ms - time) < near && event.clientY - box.top < cRuler) parts.push(note.text);
        for (const loss of this.data?.losses ?? [])
            if (time >= loss.from_ms - near && time <= loss.to_ms + near)
                parts.push(`${countText(loss.count)} lost: ${loss.layer}`);
        this.tip.textContent = parts.join(" · ");
        const half = this.tip.offsetWidth / 2;
        this.tip.style.left = `${Math.min(Math.max(event.clientX - box.left, half), box.width - half)}px`;
        this.tip.hidden = false;
    }

    /** @param {WheelEvent} event */
    wheel(event) {
        event.preventDefault();
        if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
            const span = this.toMs - this.fromMs;
            const by = (span * (event.deltaX || event.deltaY)) / 1000;
            this.setSpan(this.fromMs + by, this.toMs + by);
        } else this.zoom(1.0015 ** event.deltaY, this.timeAt(event));
    }

    /** @param {KeyboardEvent} event */
    key(event) {
        const step = cKeys.get(event.key);
        if (step !== undefined) this.seek(this.nowMs + step);
        else if (event.key === "Home") this.seek(this.firstMs);
        else if (event.key === "End") this.seek(this.lastMs);
        else return;
        event.preventDefault();
    }
}
