// How the timeline looks: ruler, a lane a stream with its rate, gaps, losses, notes, borders, what is kept, A to B.

import { clockText, dayText, timeText } from "./format.js";

export const cRuler = 20;
const cFirstLane = 26;
const cLossStrip = 8;

/**
 * @typedef {object} Frame
 * @property {number} width
 * @property {number} height
 * @property {number} fromMs
 * @property {number} toMs
 * @property {number} nowMs
 * @property {number} aMs
 * @property {number} bMs
 * @property {import("./types.js").Timeline | null} data
 * @property {Record<string, string>} colours
 */
/** @typedef {{ stream: string, address: string, top: number, height: number }} Lane */

/** @param {Frame} frame @param {number} timeMs */
export function xOf({ width, fromMs, toMs }, timeMs) {
    return ((timeMs - fromMs) / (toMs - fromMs)) * width;
}

/** The place of each stream. @param {Frame} frame @returns {Lane[]} */
export function lanesOf({ data, height }) {
    const streams = [...(data?.streams ?? [])];
    const rank = (/** @type {{ stream: string }} */ one) => (one.stream === "imageStream" ? 0 : 1);
    streams.sort((a, b) => rank(a) - rank(b));
    const room = height - cRuler - cFirstLane - cLossStrip;
    const each = streams.length > 1 ? Math.min(room / (streams.length - 1), 14) : room;
    let top = cRuler;
    return streams.map(({ stream, address }, i) => {
        const lane = { stream, address, top, height: i === 0 ? cFirstLane : each };
        top += lane.height;
        return lane;
    });
}

const cSteps = [
    1,
    2,
    5,
    10,
    20,
    50,
    100,
    200,
    500,
    1e3,
    2e3,
    5e3,
    1e4,
    3e4,
    6e4,
    12e4,
    3e5,
    6e5,
    18e5,
    36e5,
    72e5,
    216e5,
    432e5,
    864e5,
    2 * 864e5,
    7 * 864e5,
    14 * 864e5,
    30 * 864e5,
    91 * 864e5,
    365 * 864e5,
];

/** @param {number} timeMs @param {number} step */
function tickText(timeMs, step) {
    if (step >= 864e5) return dayText(timeMs);
    if (step >= 6e4) return clockText(timeMs).slice(0, 5);
    return step >= 1000 ? clockText(timeMs) : timeText(timeMs).slice(-10);
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame */
function drawRuler(context, frame) {
    const { width, fromMs, toMs, colours, height } = frame;
    const wanted = ((toMs - fromMs) / width) * 96;
    const step = cSteps.find(one => one >= wanted) ?? cSteps[cSteps.length - 1];
    const zone = step >= 36e5 ? new Date(fromMs).getTimezoneOffset() * 6e4 : 0;
    context.font = "11px system-ui, sans-serif";
    context.fillStyle = colours.quiet;
    context.strokeStyle = colours.line;
    for (let time = Math.ceil((fromMs - zone) / step) * step + zone; time <= toMs; time += step) {
        const x = Math.round(xOf(frame, time)) + 0.5;
        context.beginPath();
        context.moveTo(x, 0);
        context.lineTo(x, height);
        context.stroke();
        context.fillText(tickText(time, step), x + 4, 13);
    }
}

/**
 * One rectangle for all columns beside each other that are as high.
 * @param {CanvasRenderingContext2D} context
 * @param {number[]} values
 * @param {(column: number) => number} xOfColumn
 * @param {Lane} lane
 * @param {number} top value that fills the lane
 */
function fillColumns(context, values, xOfColumn, lane, top) {
    const highOf = (/** @type {number} */ value) =>
        value > 0 ? Math.max(Math.round((value / top) * (lane.height - 3)), 1) : 0;
    for (let first = 0, end = 0; first < values.length; first = end) {
        const high = highOf(values[first]);
        for (end = first + 1; end < values.length && highOf(values[end]) === high;) ++end;
        const x = xOfColumn(first);
        if (high > 0) context.fillRect(x, lane.top + lane.height - high, xOfColumn(end) - x, high);
    }
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame @param {Lane[]} lanes */
function drawRates(context, frame, lanes) {
    const { data, colours } = frame;
    if (!data) return;
    for (const lane of lanes) {
        const rates = data.streams.find(one => one.stream === lane.stream && one.address === lane.address);
        if (!rates) continue;
        const top = Math.max(...rates.max, 1e-9);
        const step = (data.to_ms - data.from_ms) / data.columns;
        for (const [values, opacity] of /** @type {[number[], number][]} */ ([
            [rates.max, 0.28],
            [rates.mean, 0.6],
        ])) {
            context.globalAlpha = opacity;
            context.fillStyle = colours.accent;
            fillColumns(context, values, i => xOf(frame, data.from_ms + i * step), lane, top);
        }
        context.globalAlpha = 1;
    }
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame @param {Lane[]} lanes */
function drawGaps(context, frame, lanes) {
    context.fillStyle = frame.colours.alarm;
    for (const gap of frame.data?.gaps ?? []) {
        const lane = lanes.find(one => one.stream === gap.stream && one.address === gap.address) ?? lanes[0];
        if (!lane) continue;
        const x = xOf(frame, gap.from_ms);
        const wide = Math.max(xOf(frame, gap.to_ms) - x, 1);
        context.globalAlpha = 0.45;
        context.fillRect(x, lane.top + 1, wide, lane.height - 2);
        context.globalAlpha = 1;
        context.fillRect(x, lane.top + lane.height - 3, wide, 2);
    }
}

/** The colour of what a layer lost. @param {Frame} frame @param {string} layer */
function lossColour({ colours }, layer) {
    if (/wire/.test(layer)) return colours.warn;
    return /join/.test(layer) ? colours.quiet : colours.alarm;
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame */
function drawLosses(context, frame) {
    for (const loss of frame.data?.losses ?? []) {
        const x = xOf(frame, loss.from_ms);
        context.fillStyle = lossColour(frame, loss.layer);
        context.fillRect(x, frame.height - cLossStrip + 1, Math.max(xOf(frame, loss.to_ms) - x, 2), cLossStrip - 2);
    }
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame */
function drawBorders(context, frame) {
    const { data, colours, height } = frame;
    if (!data) return;
    context.strokeStyle = colours.quiet;
    for (const file of data.files) {
        for (const time of [file.first_ms, file.last_ms]) {
            const x = Math.round(xOf(frame, time)) + 0.5;
            context.beginPath();
            context.moveTo(x, cRuler - 5);
            context.lineTo(x, height);
            context.globalAlpha = 0.5;
            context.stroke();
        }
    }
    context.globalAlpha = 1;
    context.fillStyle = colours.kept;
    const spans = Array.isArray(data.kept) ? data.kept : data.kept ? [wholeOf(data)] : [];
    for (const span of spans) {
        const x = xOf(frame, span.from_ms);
        context.fillRect(x, cRuler - 3, Math.max(xOf(frame, span.to_ms) - x, 1), 3);
    }
}

/** @param {import("./types.js").Timeline} data */
function wholeOf({ files, from_ms, to_ms }) {
    if (files.length === 0) return { from_ms, to_ms };
    const from = Math.min(...files.map(file => file.first_ms));
    return {
        from_ms: from,
        to_ms: Math.max(...files.map(file => file.last_ms)),
    };
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame */
function drawNotes(context, frame) {
    context.fillStyle = frame.colours.good;
    for (const note of frame.data?.notes ?? []) {
        const x = xOf(frame, note.time_ms);
        context.beginPath();
        context.moveTo(x, cRuler);
        context.lineTo(x, cRuler - 9);
        context.lineTo(x + 8, cRuler - 6);
        context.lineTo(x + 1, cRuler - 3);
        context.lineTo(x + 1, cRuler);
        context.fill();
        context.fillRect(x, cRuler, 1, frame.height - cRuler);
    }
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame */
function drawPlaces(context, frame) {
    const { colours, height, aMs, bMs } = frame;
    if (aMs > 0 && bMs > aMs) {
        const x = xOf(frame, aMs);
        context.globalAlpha = 0.25;
        context.fillStyle = colours.selection;
        context.fillRect(x, 0, xOf(frame, bMs) - x, height);
        context.globalAlpha = 1;
    }
    context.fillStyle = colours.selection;
    if (aMs > 0) context.fillRect(xOf(frame, aMs) - 1, 0, 2, height);
    if (bMs > 0) context.fillRect(xOf(frame, bMs) - 1, 0, 2, height);
    if (!(frame.nowMs > 0)) return;
    const x = xOf(frame, frame.nowMs);
    context.fillStyle = colours.text;
    context.fillRect(x - 0.75, 0, 1.5, height);
    context.beginPath();
    context.moveTo(x - 5, 0);
    context.lineTo(x + 5, 0);
    context.lineTo(x, 7);
    context.fill();
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame @param {Lane[]} lanes */
function drawNames(context, frame, lanes) {
    context.font = "9px system-ui, sans-serif";
    context.fillStyle = frame.colours.text;
    context.strokeStyle = frame.colours.panel;
    context.lineWidth = 3;
    context.lineJoin = "round";
    for (const lane of lanes) {
        if (lane.height < 8) continue;
        const y = lane.top + Math.min(lane.height - 2, 12);
        context.globalAlpha = 0.75;
        context.strokeText(lane.stream, 6, y);
        context.globalAlpha = 1;
        context.fillText(lane.stream, 6, y);
    }
    context.lineWidth = 1;
}

/** @param {CanvasRenderingContext2D} context @param {Frame} frame */
export function drawTimeline(context, frame) {
    context.clearRect(0, 0, frame.width, frame.height);
    const lanes = lanesOf(frame);
    drawRuler(context, frame);
    drawRates(context, frame, lanes);
    drawBorders(context, frame);
    drawGaps(context, frame, lanes);
    drawLosses(context, frame);
    drawNames(context, frame, lanes);
    drawNotes(context, frame);
    drawPlaces(context, frame);
}
