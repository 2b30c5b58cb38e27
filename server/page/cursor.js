// The pointer and the keys on the picture: cursor, EBL and VRM, panning, the next range.

import { drawAScope } from "./ascope.js";
import { element, showFactList } from "./dom.js";
import { bearingText, distanceText } from "./format.js";
import { normal, polarOf } from "./geometry.js";
import { nextRange } from "./controls.js";
import { choose, view } from "./view.js";

/** @typedef {import("./display.js").Screen} Screen */

const cStepDeg = 0.5;
const cSteps = new Map([
    ["ArrowLeft", [-cStepDeg, 0]],
    ["ArrowRight", [cStepDeg, 0]],
    ["ArrowUp", [0, 1]],
    ["ArrowDown", [0, -1]],
]);

let latest = /** @type {{ screen: Screen, x: number, y: number } | null} */ (null);

/** @param {Screen} screen */
export function listenTo(screen) {
    const { canvas } = screen;
    let pressed = /** @type {{ x: number, y: number, panX: number, panY: number, moved: boolean } | null} */ (null);
    canvas.addEventListener("pointermove", event => {
        latest = { screen, x: event.offsetX, y: event.offsetY };
        if (!pressed) return;
        const right = event.clientX - pressed.x;
        const down = event.clientY - pressed.y;
        pressed.moved ||= Math.hypot(right, down) > 4;
        const half = screen.css / 2;
        const within = (/** @type {number} */ value) => Math.min(Math.max(value, -0.9), 0.9);
        if (pressed.moved)
            choose({
                panX: within(pressed.panX + right / half),
                panY: within(pressed.panY + down / half),
            });
    });
    canvas.addEventListener("pointerdown", event => {
        if (event.button !== 0) return;
        canvas.setPointerCapture(event.pointerId);
        pressed = {
            x: event.clientX,
            y: event.clientY,
            panX: view.panX,
            panY: view.panY,
            moved: false,
        };
    });
    canvas.addEventListener("pointerup", event => {
        if (pressed && !pressed.moved) {
            const place = polarOf(screen.sight(1), event.offsetX, event.offsetY);
            choose({ hasEbl: true, eblDeg: place.bearing, vrmM: place.metres });
        }
        pressed = null;
    });
    canvas.addEventListener("pointerleave", () => (latest = null));
    canvas.addEventListener("dblclick", () => choose({ panX: 0, panY: 0, hasEbl: false, vrmM: 0 }));
    canvas.addEventListener("keydown", event => keyOn(screen, event));
    let turned = 0;
    canvas.addEventListener(
        "wheel",
        event => {
            event.preventDefault();
            turned += event.deltaY;
            if (Math.abs(turned) < 60) return;
            nextRange(Math.sign(turned), screen.rangeM);
            turned = 0;
        },
        { passive: false },
    );
}

/** @param {Screen} screen @param {KeyboardEvent} event */
function keyOn(screen, event) {
    const step = cSteps.get(event.key);
    if (!step) {
        if (event.key === "Home") choose({ panX: 0, panY: 0 });
        else if (event.key === "Escape") choose({ hasEbl: false, vrmM: 0 });
        return;
    }
    event.preventDefault();
    const factor = event.shiftKey ? 10 : 1;
    const [turn, out] = step;
    choose({
        hasEbl: true,
        eblDeg: normal(view.eblDeg + turn * factor),
        vrmM: Math.min(Math.max((view.vrmM || screen.rangeM / 2) + (out * factor * screen.rangeM) / 200, 0), 1e6),
    });
}

/** What is under the cursor, or where EBL and VRM cross. @param {Screen} main */
export function showCursor(main) {
    const screen = latest?.screen ?? main;
    const [{ store }] = screen.displays;
    const marked = view.hasEbl ? { bearing: view.eblDeg, metres: view.vrmM } : null;
    const place = latest ? polarOf(screen.sight(1), latest.x, latest.y) : marked;
    const value = place && store.valueAt(place.bearing / 360, place.metres);
    /** @type {[string, string][]} */
    const facts = [
        ["Bearing", place ? bearingText(place.bearing) : "–"],
        ["Range", place ? distanceText(place.metres) : "–"],
        ["EBL", marked ? bearingText(marked.bearing) : "–"],
        ["VRM", marked && marked.metres > 0 ? distanceText(marked.metres) : "–"],
        ["Echo", value === null || value === undefined ? "–" : `${value} of ${store.fullScale}`],
    ];
    showFactList(element("cursor"), facts);
    const scope = /** @type {HTMLCanvasElement} */ (element("ascope"));
    drawAScope(scope, store, marked?.bearing ?? place?.bearing ?? store.newestBearing * 360, screen.rangeM);
}
