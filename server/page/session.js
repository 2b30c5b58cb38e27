// Session: what the page asks the server for, and what it takes from it, for both pictures.

import { Connection } from "./connection.js";
import { Display } from "./display.js";
import { HeldBatches } from "./heldbatches.js";
import { sayFailure, say } from "./messages.js";
import { choose, view } from "./view.js";

/** @typedef {import("./types.js").State} State */

const cMostApartMs = 1500; // of two pictures that play; states come once a second

export class Session {
    hasSecond = false;
    apartMs = 0; // what the clock of the second picture is ahead
    secondMs = -1; // where it was last brought
    sought = { epoch: -1, at: -1e9 }; // the last jump, before which states speak of another place
    speedAt = -1e9; // by performance.now(), when a speed was chosen

    /** @param {{ changed: () => void, lost: (code: number) => void, apart: () => number, opened: () => void, streams: (streams: import("./types.js").StreamRow[]) => void }} page */
    constructor(page) {
        this.page = page;
        this.a = new Display("a");
        this.b = new Display("b");
        this.displays = [this.a, this.b];
        this.early = new HeldBatches(); // that are quicker than the state which says whose they are
        this.isFrozen = false;
        this.placeMs = 0; // what is shown
        this.wantedMs = 0; // of a recording that is being opened
        this.isLooping = false;
        this.plays = false; // what is opened next, at once
        this.connection = new Connection({
            batch: batch => this.takeBatch(batch),
            message: message => this.takeMessage(message),
            opened: () => this.begin(),
            lost: code => this.page.lost(code),
        });
    }

    get isConnected() {
        return this.connection.isOpen;
    }

    /** @returns {State | null} */
    get state() {
        return this.a.state;
    }

    get isLive() {
        return this.state ? this.state.mode === "live" : view.id === "live";
    }

    /** A new connection knows nothing of the one before: everything is opened again, at the same place. */
    begin() {
        if (view.id !== "live" && this.wantedMs === 0) this.wantedMs = this.placeMs;
        this.plays = this.plays || (this.state?.playing ?? false);
        this.open();
        this.page.opened();
    }

    open() {
        this.isFrozen = false;
        this.isLooping = false;
        this.a.reset();
        this.b.reset();
        this.early.clear();
        const at_ms = this.wantedMs > 0 ? Math.round(this.wantedMs) : undefined;
        this.send({ type: "open", picture: "a", radar: view.radar || undefined, id: view.id, at_ms });
        this.openSecond(at_ms);
        if (view.speed !== 1) this.setSpeed(view.speed);
        if (this.plays && view.id !== "live") this.sendBoth({ type: "play" });
        this.placeMs = this.wantedMs || this.placeMs;
        this.wantedMs = 0;
        this.plays = false;
    }

    /** @param {number | undefined} atMs */
    openSecond(atMs) {
        if (!view.second) {
            if (this.hasSecond) this.send({ type: "close", picture: "b" });
            this.hasSecond = false;
            return;
        }
        this.hasSecond = true;
        this.apartMs = this.page.apart();
        const at_ms = atMs === undefined ? undefined : Math.round(atMs + this.apartMs);
        this.send({ type: "open", picture: "b", ...secondOf(view.second), at_ms });
    }

    /** @param {{ type: string, [key: string]: any }} message */
    send(message) {
        this.connection.send(message);
    }

    /**
     * To both pictures: they have one clock. Times are those of the first one.
     * @param {{ type: string, [key: string]: any }} message
     */
    sendBoth(message) {
        this.send({ ...message, picture: "a" });
        if (!this.hasSecond) return;
        /** @type {{ type: string, [key: string]: any }} */
        const second = { ...message, picture: "b" };
        for (const key of ["time_ms", "from_ms", "to_ms"])
            if (second[key] !== undefined) second[key] = Math.round(second[key] + this.apartMs);
        this.send(second);
    }

    /** Brings the second picture back to the clock of the first one. @param {State} state of the first one */
    keepTogether(state) {
        const second = this.b.state;
        if (!this.hasSecond || !second || second.mode === "live" || state.mode === "live") return;
        const away = Math.abs(second.time_ms - state.time_ms - this.apartMs);
        if (away > (state.playing ? cMostApartMs : 1)) this.seekSecond(state.time_ms);
    }

    /** @param {number} timeMs by the clock of the first one */
    seekSecond(timeMs) {
        if (timeMs === this.secondMs) return; // it was asked for, and is as near as it gets
        this.secondMs = timeMs;
        this.send({ type: "seek", picture: "b", time_ms: Math.round(timeMs + this.apartMs) });
    }

    /** @param {import("./types.js").Batch} batch */
    takeBatch(batch) {
        const display = this.displays.find(one => one.source === batch.source);
        if (!display) return this.early.hold(batch);
        if (this.isFrozen) return display.held.hold(batch);
        display.take(batch);
        if (display === this.a && !batch.before && display.store.newestMs > 0) this.placeMs = display.store.newestMs;
        return undefined;
    }

    /** @param {{ type: string, [key: string]: any }} message */
    takeMessage(message) {
        const display = message.picture === "b" ? this.b : this.a;
        if (message.type === "state") this.takeState(/** @type {any} */ (message), display);
        else if (message.type === "own") display.own = message.own ?? message;
        else if (message.type === "targets") display.targets = message.targets ?? [];
        else if (message.type === "streams" && display === this.a) this.page.streams(message.streams ?? []);
        else if (message.type === "error") this.takeError(message);
        if (message.type === "own" || message.type === "targets") display.screen.wantsOverlay = true;
    }

    /** @param {State} state @param {Display} display */
    takeState(state, display) {
        display.setState(state);
        for (const batch of this.early.takeOf(state.source)) this.takeBatch(batch);
        if (display !== this.a) return;
        const isOld = state.epoch === this.sought.epoch && performance.now() - this.sought.at < 1000;
        if (!this.isFrozen && !isOld && (state.mode === "replay" || this.placeMs === 0)) this.placeMs = state.time_ms;
        if (state.speed !== undefined && !this.isSpeedNew()) choose({ speed: state.speed });
        this.keepTogether(state);
        this.page.changed();
    }

    // A speed that was just chosen counts, not what the server said before it heard of it.
    isSpeedNew() {
        return performance.now() - this.speedAt < 1500;
    }

    /** @param {{ [key: string]: any }} message */
    takeError(message) {
        const error = message.error ?? message;
        sayFailure(new Error([error.message, error.hint].filter(Boolean).join(": ") || "The server refused that."));
    }

    /** @param {number} timeMs */
    seek(timeMs) {
        if (this.isFrozen) this.freeze(false);
        this.placeMs = timeMs;
        this.sought = { epoch: this.a.state?.epoch ?? -1, at: performance.now() };
        this.sendBoth({ type: "seek", time_ms: Math.round(timeMs) });
    }

    /** @param {boolean} hasRecording of what is live */
    togglePlay(hasRecording) {
        if (this.isFrozen) return this.freeze(false);
        const isPlaying = this.state?.playing ?? true;
        if (isPlaying && this.isLive && !hasRecording) {
            this.freeze(true);
            return say("Nothing is being recorded: the picture is frozen. Record, and you can go back in time.");
        }
        return this.sendBoth({ type: isPlaying ? "pause" : "play" });
    }

    /** @param {boolean} isFrozen */
    freeze(isFrozen) {
        this.isFrozen = isFrozen;
        if (!isFrozen) for (const display of this.displays) display.takeHeld();
        this.page.changed();
    }

    live() {
        if (this.isFrozen) this.freeze(false);
        if (view.id === "live") return this.sendBoth({ type: "live" });
        choose({ id: "live" });
        return undefined;
    }

    /** @param {string} unit @param {number} count */
    step(unit, count) {
        if (this.isFrozen) this.freeze(false);
        this.send({ type: "step", picture: "a", unit, count });
    }

    loop() {
        this.isLooping = !this.isLooping && view.aMs > 0 && view.bMs > view.aMs;
        if (!this.isLooping && !(view.aMs > 0 && view.bMs > view.aMs))
            say("Mark A and B first, or drag over the timeline with Shift.");
        const part = { from_ms: Math.round(view.aMs), to_ms: Math.round(view.bMs) };
        this.sendBoth(this.isLooping ? { type: "loop", ...part } : { type: "loop" });
    }

    /** @param {number | "max"} value */
    setSpeed(value) {
        this.speedAt = performance.now();
        this.sendBoth({ type: "speed", value });
    }
}

/** What `second` in the address means: a recording, or `live:SERIAL/ID`. @param {string} text */
function secondOf(text) {
    return text.startsWith("live:") ? { id: "live", radar: text.slice(5) } : { id: text };
}
