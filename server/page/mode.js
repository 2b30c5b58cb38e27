// What the page shows, in one word that is never wrong: LIVE, REPLAY, FROZEN, STALE or NO CONNECTION.

export const cStaleMs = 3000;

/**
 * @typedef {object} Facts
 * @property {boolean} isConnected
 * @property {boolean} isFrozen
 * @property {import("./types.js").State | null} state null: not known yet
 * @property {boolean} isRecording that was asked for
 * @property {number} silentMs since the newest spoke came
 */

/** @param {Facts} facts @returns {{ word: string, more: string }} */
export function modeOf({ isConnected, isFrozen, state, isRecording, silentMs }) {
    if (!isConnected) return { word: "NO CONNECTION", more: "" };
    if (isFrozen) return { word: "FROZEN", more: "" };
    if (!state && isRecording) return { word: "REPLAY", more: "opening" };
    if (state?.mode === "replay") {
        const speed = state.speed === "max" ? "as fast as drawn" : `${state.speed}×`;
        return { word: "REPLAY", more: state.playing ? speed : "paused" };
    }
    if (silentMs >= cStaleMs) return { word: "STALE", more: "no spokes" };
    return { word: "LIVE", more: "" };
}
