// Colours of the picture: what an echo looks like by day, at dusk and at night.
//
// At night no part of a colour is above 84 of 255, on the picture as in the page (palettes.css).

/** @typedef {"day" | "dusk" | "night" | "grey"} PaletteName */
/** @typedef {[number, number, number]} Colour */
/**
 * @typedef {object} Palette
 * @property {[number, Colour][]} echoes levels from 0 to 1, and their colours
 * @property {Colour} outside
 * @property {Colour} trail
 * @property {Colour} onlyA in the difference of two pictures
 * @property {Colour} onlyB
 * @property {Colour} both
 * @property {string} marks rings, scale and labels
 * @property {string} text
 * @property {string} target
 * @property {string} ais
 * @property {string} cursor EBL and VRM
 * @property {string} alarm
 */

export const cLevels = 4096;

/** @type {Record<PaletteName, Palette>} */
const cPalettes = {
    day: {
        echoes: [
            [0, [11, 42, 74]],
            [0.094, [20, 64, 107]],
            [0.376, [192, 138, 30]],
            [1, [255, 226, 107]],
        ],
        outside: [6, 26, 48],
        trail: [70, 150, 196],
        onlyA: [255, 170, 60],
        onlyB: [80, 200, 255],
        both: [200, 208, 214],
        marks: "#6fa8c8",
        text: "#e8f2f8",
        target: "#7cfc9a",
        ais: "#9adcff",
        cursor: "#ff9d6b",
        alarm: "#ff6b5e",
    },
    dusk: {
        echoes: [
            [0, [7, 20, 33]],
            [0.094, [16, 48, 74]],
            [0.376, [154, 106, 24]],
            [1, [232, 194, 78]],
        ],
        outside: [3, 10, 18],
        trail: [40, 96, 128],
        onlyA: [214, 138, 44],
        onlyB: [60, 156, 204],
        both: [140, 150, 158],
        marks: "#4a7c94",
        text: "#b8ccd8",
        target: "#58c070",
        ais: "#6cb0d8",
        cursor: "#d8804e",
        alarm: "#e0584c",
    },
    night: {
        echoes: [
            [0, [0, 0, 0]],
            [0.094, [14, 5, 2]],
            [0.376, [46, 17, 7]],
            [1, [84, 42, 18]],
        ],
        outside: [0, 0, 0],
        trail: [10, 24, 34],
        onlyA: [84, 50, 14],
        onlyB: [20, 52, 78],
        both: [44, 44, 44],
        marks: "#3a1d12",
        text: "#543022",
        target: "#1c4626",
        ais: "#1e3f54",
        cursor: "#54301c",
        alarm: "#54140e",
    },
    grey: {
        echoes: [
            [0, [0, 0, 0]],
            [1, [255, 255, 255]],
        ],
        outside: [0, 0, 0],
        trail: [64, 64, 64],
        onlyA: [255, 160, 60],
        onlyB: [80, 180, 255],
        both: [160, 160, 160],
        marks: "#808080",
        text: "#e0e0e0",
        target: "#ffffff",
        ais: "#c0c0c0",
        cursor: "#ffffff",
        alarm: "#ff6b5e",
    },
};

/**
 * @param {string} name
 * @returns {name is PaletteName}
 */
export function isPalette(name) {
    return Object.hasOwn(cPalettes, name);
}

/** @param {PaletteName} name */
export function paletteOf(name) {
    return cPalettes[name];
}

/**
 * @param {Palette} palette
 * @param {number} level 0 to 1
 * @returns {Colour}
 */
function colourAt(palette, level) {
    const stops = palette.echoes;
    let high = 1;
    while (high + 1 < stops.length && level > stops[high][0]) ++high;
    const [from, low] = stops[high - 1];
    const [to, top] = stops[high];
    const part = (level - from) / (to - from);
    const mixed = /** @param {number} i */ i => Math.round(low[i] + (top[i] - low[i]) * part);
    return [mixed(0), mixed(1), mixed(2)];
}

/** What the gain multiplies an echo with: 50 nothing, 25 more doubles twice. @param {number} gain 0 to 100 */
export function gainFactor(gain) {
    return 2 ** ((gain - 50) / 12.5);
}

/**
 * The colours of cLevels levels, as bytes of red, green, blue and opacity. A level below the threshold is none.
 * @param {Palette} palette
 * @param {number} gain 0 to 100, 50: as it came
 * @param {number} threshold 0 to 100, percent of full scale
 */
export function colourTable(palette, gain, threshold) {
    const table = new Uint8Array(cLevels * 4);
    const factor = gainFactor(gain);
    for (let i = 0; i < cLevels; ++i) {
        const level = i / (cLevels - 1);
        const shown = level * 100 < threshold ? 0 : Math.min(level * factor, 1);
        table.set([...colourAt(palette, shown), 255], i * 4);
    }
    return table;
}
