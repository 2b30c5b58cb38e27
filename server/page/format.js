// Times, lengths and sizes as people read them.

import { view } from "./view.js";

/** @param {number} value @param {number} width */
function padded(value, width = 2) {
    return String(Math.floor(value)).padStart(width, "0");
}

/** @param {number} timeMs */
function fieldsOf(timeMs) {
    const date = new Date(timeMs);
    if (view.utc) {
        const [day, time] = date.toISOString().split("T");
        return { day, time: time.slice(0, 8), ms: date.getUTCMilliseconds() };
    }
    const day = `${date.getFullYear()}-${padded(date.getMonth() + 1)}-${padded(date.getDate())}`;
    const time = `${padded(date.getHours())}:${padded(date.getMinutes())}:${padded(date.getSeconds())}`;
    return { day, time, ms: date.getMilliseconds() };
}

/** "2026-11-22 17:58:03.467" @param {number} timeMs */
export function timeText(timeMs) {
    const { day, time, ms } = fieldsOf(timeMs);
    return `${day} ${time}.${padded(ms, 3)}`;
}

/** @param {number} timeMs */
export function dayText(timeMs) {
    return fieldsOf(timeMs).day;
}

/** @param {number} timeMs */
export function clockText(timeMs) {
    return fieldsOf(timeMs).time;
}

/** "UTC", or the zone of this machine, such as "local, UTC+01:00" @param {number} timeMs */
export function zoneText(timeMs) {
    if (view.utc) return "UTC";
    const east = -new Date(timeMs).getTimezoneOffset();
    const away = Math.abs(east);
    return `local, UTC${east < 0 ? "−" : "+"}${padded(away / 60)}:${padded(away % 60)}`;
}

/** @param {number} ms */
export function durationText(ms) {
    if (ms < 1000) return `${Math.round(ms)} ms`;
    const s = ms / 1000;
    if (s < 60) return `${s.toFixed(s < 10 ? 1 : 0)} s`;
    const parts = `${padded((s / 60) % 60)}:${padded(s % 60)}`;
    return s < 3600 ? `${parts} min` : `${Math.floor(s / 3600)}:${parts} h`;
}

/** @param {number} bytes */
export function sizeText(bytes) {
    const units = ["B", "kB", "MB", "GB", "TB"];
    let unit = 0;
    while (bytes >= 1000 && unit + 1 < units.length) {
        bytes /= 1000;
        ++unit;
    }
    return `${unit === 0 ? bytes.toFixed(0) : bytes.toFixed(1)} ${units[unit]}`;
}

export const cNm = 1852;

/** @param {number} metres */
export function distanceText(metres) {
    const nm = metres / cNm;
    if (nm < 0.1) return `${metres.toFixed(0)} m`;
    return `${nm >= 10 ? nm.toFixed(1) : nm.toFixed(2)} NM`;
}

/** @param {number} metres */
export function rangeText(metres) {
    const nm = metres / cNm;
    return `${Number(nm.toFixed(nm < 1 ? 3 : 2))} NM`;
}

/** @param {number} degrees */
export function bearingText(degrees) {
    return `${(((degrees % 360) + 360) % 360).toFixed(1).padStart(5, "0")}°`;
}

/** @param {number} degrees @param {string} positive @param {string} negative */
function angleText(degrees, positive, negative) {
    const away = Math.abs(degrees);
    const minutes = ((away % 1) * 60).toFixed(3).padStart(6, "0");
    return `${Math.floor(away)}° ${minutes}′ ${degrees < 0 ? negative : positive}`;
}

/** @param {number} latitude @param {number} longitude */
export function positionText(latitude, longitude) {
    return `${angleText(latitude, "N", "S")}  ${angleText(longitude, "E", "W")}`;
}

/** @param {number} count */
export function countText(count) {
    return count.toLocaleString("en").replaceAll(",", "\u202f");
}
