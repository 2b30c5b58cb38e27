// The choices of the page: radar, range, palette, speed, gain and the like; each is shown as it is in the view.

import { element, make } from "./dom.js";
import { cNm, rangeText } from "./format.js";
import { isPalette } from "./palettes.js";
import { choose, onView, view } from "./view.js";

const cRangesNm = [0.125, 0.25, 0.5, 0.75, 1.5, 3, 6, 12, 24, 48, 96];
const cSpeeds = [0.1, 0.2, 0.5, 1, 2, 5, 10];

/** @param {HTMLSelectElement} list @param {[string, string][]} options @param {string} value */
export function fillList(list, options, value) {
    const key = JSON.stringify(options);
    if (list.dataset.options !== key) {
        list.replaceChildren(...options.map(([one, text]) => make("option", { value: one, text })));
        list.dataset.options = key;
    }
    if (list.value !== value) list.value = value;
}

/** @param {string} id */
function list(id) {
    return /** @type {HTMLSelectElement} */ (element(id));
}

/** @param {string} id */
function input(id) {
    return /** @type {HTMLInputElement} */ (element(id));
}

/**
 * The next range of the list.
 * @param {number} step 1: a longer one
 * @param {number} rangeM that is shown
 */
export function nextRange(step, rangeM) {
    const ranges = cRangesNm.map(nm => nm * cNm);
    const next = step > 0 ? ranges.find(one => one > rangeM * 1.01) : ranges.filter(one => one < rangeM * 0.99).pop();
    if (next !== undefined) choose({ rangeM: next });
}

function showRange() {
    /** @type {[string, string][]} */
    const options = [["0", "as received"], ...cRangesNm.map(nm => nm * cNm).map(optionOf)];
    const isOther = view.rangeM > 0 && !options.some(([value]) => Number(value) === view.rangeM);
    if (isOther) options.push(optionOf(view.rangeM));
    fillList(list("range"), options, String(view.rangeM));
}

/** @param {number} metres @returns {[string, string]} */
function optionOf(metres) {
    return [String(metres), rangeText(metres)];
}

function showSpeed() {
    const speeds = typeof view.speed === "number" && !cSpeeds.includes(view.speed) ? [...cSpeeds, view.speed] : cSpeeds;
    /** @type {[string, string][]} */
    const options = speeds.map(speed => [String(speed), `${speed}×`]);
    fillList(list("speed"), [...options, ["max", "as drawn"]], String(view.speed));
}

function show() {
    showRange();
    showSpeed();
    list("palette").value = view.palette;
    list("up").value = view.up;
    list("trails").value = String(view.trailsS);
    input("gain").value = String(view.gain);
    input("threshold").value = String(view.threshold);
    input("overlays").checked = view.overlays;
    element("zone").textContent = view.utc ? "UTC" : "local";
    document.documentElement.dataset.palette = view.palette === "grey" ? "dusk" : view.palette;
}

export function beginControls() {
    list("range").onchange = () => choose({ rangeM: Number(list("range").value) });
    list("palette").onchange = () => {
        const { value } = list("palette");
        if (isPalette(value)) choose({ palette: value });
    };
    list("up").onchange = () => choose({ up: list("up").value === "head" ? "head" : "north" });
    list("speed").onchange = () => {
        const { value } = list("speed");
        choose({ speed: value === "max" ? "max" : Number(value) });
    };
    list("trails").onchange = () => choose({ trailsS: Number(list("trails").value) });
    input("gain").oninput = () => choose({ gain: Number(input("gain").value) });
    input("threshold").oninput = () => choose({ threshold: Number(input("threshold").value) });
    input("overlays").onchange = () => choose({ overlays: input("overlays").checked });
    element("zone").onclick = () => choose({ utc: !view.utc });
    onView(show);
    show();
}
