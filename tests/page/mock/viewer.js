// One viewer of the mock server: its pictures, each with a clock.

import { batchOf, cSpokes, cTurnMs, spokeNumber } from "./radar.js";
import { cGap, cMarkup, cRecordings } from "./server.js";

const cTickMs = 50;

/**
 * @typedef {object} Options
 * @property {boolean} [isSilent] no spokes come
 * @property {1 | 2} [bytes] of a cell
 */
/**
 * @typedef {object} Shown
 * @property {number} source
 * @property {number} epoch
 * @property {string} id
 * @property {"live" | "replay"} mode
 * @property {boolean} playing
 * @property {number} time
 * @property {number | "max"} speed
 * @property {number} batches
 */

let sources = 0;

export class Viewer {
    /** @param {import("ws").WebSocket} socket @param {Options} options */
    constructor(socket, options) {
        this.socket = socket;
        this.options = options;
        /** @type {Map<string, Shown>} */
        this.pictures = new Map();
        socket.on("message", data => this.take(JSON.parse(String(data))));
        this.send({ type: "hello", version: "0.2.0" });
        const ticking = setInterval(() => this.tick(), cTickMs);
        const stating = setInterval(() => this.stateAll(), 1000);
        socket.on("close", () => {
            clearInterval(ticking);
            clearInterval(stating);
        });
    }

    /** @param {object} message */
    send(message) {
        this.socket.send(JSON.stringify(message));
    }

    /** @param {{ type: string, [key: string]: any }} message */
    take(message) {
        if (message.type === "open") this.open(message);
        for (const [letter, one] of this.pictures) {
            if (letter !== (message.picture ?? "a")) continue;
            if (message.type === "play") one.playing = true;
            if (message.type === "pause") one.playing = false;
            if (message.type === "speed") one.speed = message.value;
            if (message.type === "seek") this.jump(one, message.time_ms);
            if (message.type === "step") this.step(one, message.unit, message.count);
            this.state(letter, one);
        }
    }

    /** @param {Shown} one @param {string} unit @param {number} count */
    step(one, unit, count) {
        one.playing = false;
        const by = unit === "turn" ? cTurnMs : cTurnMs / cSpokes;
        this.jump(one, unit === "gap" ? cGap.from : one.time + by * count);
    }

    /** @param {{ [key: string]: any }} message */
    open({ picture, id, at_ms }) {
        const recording = cRecordings.find(one => one.id === id);
        const mode = recording ? "replay" : "live";
        const time = recording ? (at_ms ?? recording.first_ms) : Date.now();
        /** @type {Shown} */
        const one = { source: ++sources, epoch: 0, id, mode, playing: mode === "live", time, speed: 1, batches: 0 };
        this.pictures.set(picture, one);
        this.state(picture, one);
        this.jump(one, time);
        this.around(picture);
    }

    /** @param {string} picture */
    around(picture) {
        const place = { latitude_deg: 54.1, longitude_deg: 10.8 };
        this.send({ type: "own", picture, ...place, heading_deg: 20, course_deg: 22, speed_kn: 12.1, depth_m: 23.4 });
        const targets = [
            {
                target: 1,
                target_status: "T",
                distance_nm: 2.5,
                bearing_deg: 250,
                bearing_reference: "north",
                course_deg: 100,
                speed_kn: 14,
            },
            {
                mmsi: 211000123,
                ship_name: cMarkup,
                latitude_deg: 54.13,
                longitude_deg: 10.75,
                course_deg: 200,
                speed_kn: 9,
            },
        ];
        this.send({ type: "targets", picture, targets });
    }

    /** @param {Shown} one @param {number} time */
    jump(one, time) {
        one.time = time;
        ++one.epoch;
        const end = spokeNumber(time);
        for (let i = 0; i < 8; ++i) {
            const first = end - cSpokes + (i * cSpokes) / 8;
            const numbers = Array.from({ length: cSpokes / 8 }, (_, k) => first + k);
            this.batch(one, i === 7 ? 3 : 1, numbers);
        }
    }

    /** @param {Shown} one @param {number} flags @param {number[]} numbers */
    batch(one, flags, numbers) {
        if (numbers.length === 0 || this.options.isSilent) return;
        const hasIsland = one.id !== cRecordings[1].id;
        const { source, epoch } = one;
        const { bytes } = this.options;
        this.socket.send(batchOf({ source, epoch, flags, number: ++one.batches, hasIsland, bytes }, numbers));
    }

    tick() {
        for (const one of this.pictures.values()) {
            if (!one.playing) continue;
            const from = one.time;
            one.time = one.mode === "live" ? Date.now() : from + cTickMs * (one.speed === "max" ? 20 : one.speed);
            if (one.mode === "replay" && from >= cGap.from && from < cGap.to) continue;
            const first = spokeNumber(from);
            this.batch(
                one,
                0,
                Array.from({ length: spokeNumber(one.time) - first }, (_, k) => first + k),
            );
        }
    }

    /** @param {string} picture @param {Shown} one */
    state(picture, one) {
        const { source, epoch, mode, playing, speed } = one;
        this.send({
            type: "state",
            picture,
            source,
            epoch,
            mode,
            playing,
            time_ms: Math.round(one.time),
            speed,
            whole: true,
        });
    }

    stateAll() {
        for (const [letter, one] of this.pictures) this.state(letter, one);
        const address = "239.17.0.1:6001";
        const streams = [
            {
                stream: "imageStream",
                address,
                records_per_second: 819.2,
                last_ms: Date.now(),
                jitter_p99_ms: 1.2,
                lost: 0,
            },
            {
                stream: "gpsDev",
                address,
                records_per_second: 0,
                last_ms: Date.now() - 60000,
                jitter_p99_ms: 2.1,
                lost: 3,
            },
        ];
        this.send({ type: "streams", picture: "a", streams });
    }
}
