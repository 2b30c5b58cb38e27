// What lies over the picture: rings, bearing scale, heading line, EBL and VRM, own ship, targets with their vectors.

import { bearingText, cNm, distanceText, rangeText } from "./format.js";
import { bearingTo, cRad, placeOf, ringStep, toEdge, turned } from "./geometry.js";

/** @typedef {import("./types.js").Target} Target */
/**
 * @typedef {object} Scene
 * @property {import("./picture.js").Sight} sight in CSS pixels
 * @property {number} rangeM
 * @property {import("./palettes.js").Palette} palette
 * @property {number} reference of the picture's bearings
 * @property {number} heading or NaN
 * @property {import("./types.js").OwnShip} own
 * @property {Target[]} targets
 * @property {number | null} eblDeg
 * @property {number} vrmM
 * @property {number} newestBearing degrees; where the antenna is
 */

const cVectorHours = 0.1; // a vector ends where the target will be in 6 minutes
const cWhole = 2 * Math.PI;

/**
 * @param {CanvasRenderingContext2D} context
 * @param {number} pixels of the canvas for one of CSS
 * @param {Scene} scene
 */
export function drawOverlay(context, pixels, scene) {
    const { size } = scene.sight;
    context.setTransform(pixels, 0, 0, pixels, 0, 0);
    context.clearRect(0, 0, size, size);
    context.save();
    context.beginPath();
    context.arc(size / 2, size / 2, size / 2, 0, cWhole);
    context.clip();
    context.lineWidth = 1;
    context.font = "11px system-ui, sans-serif";
    drawRings(context, scene);
    drawScale(context, scene);
    drawHeading(context, scene);
    drawMarkers(context, scene);
    for (const target of scene.targets) drawTarget(context, scene, target);
    drawOwnShip(context, scene);
    context.restore();
    drawCorners(context, scene);
}

/** @param {CanvasRenderingContext2D} context @param {Scene} scene */
function drawRings(context, scene) {
    const { sight, palette } = scene;
    const step = ringStep(scene.rangeM);
    const middle = sight.size / 2;
    const far = Math.hypot(sight.x - middle, sight.y - middle) + middle;
    context.strokeStyle = palette.marks;
    context.fillStyle = palette.marks;
    for (let ring = 1; (ring * step) / sight.pixelM < far && ring < 40; ++ring) {
        const radius = (ring * step) / sight.pixelM;
        context.globalAlpha = 0.5;
        context.beginPath();
        context.arc(sight.x, sight.y, Math.max(radius - 0.5, 0), 0, cWhole);
        context.stroke();
        context.globalAlpha = 0.9;
        context.fillText(rangeText(ring * step), sight.x + 4, sight.y - radius + 13);
    }
    context.globalAlpha = 1;
}

/** @param {CanvasRenderingContext2D} context @param {Scene} scene */
function drawScale(context, scene) {
    const { sight, palette } = scene;
    context.strokeStyle = palette.marks;
    context.fillStyle = palette.text;
    context.textAlign = "center";
    context.textBaseline = "middle";
    for (let degrees = 0; degrees < 360; degrees += 5) {
        const edge = toEdge(sight, degrees);
        if (edge < 30) continue;
        const long = degrees % 30 === 0 ? 12 : degrees % 10 === 0 ? 8 : 4;
        line(context, sight, degrees, edge - long, edge);
        if (degrees % 30 === 0) {
            const x = sight.x + Math.sin(degrees * cRad) * (edge - 24);
            const y = sight.y - Math.cos(degrees * cRad) * (edge - 24);
            context.fillText(String(degrees).padStart(3, "0"), x, y);
        }
    }
    context.textAlign = "start";
    context.textBaseline = "alphabetic";
    const edge = toEdge(sight, scene.newestBearing);
    context.strokeStyle = palette.text;
    context.lineWidth = 2;
    if (edge > 30) line(context, sight, scene.newestBearing, edge - 5, edge);
    context.lineWidth = 1;
}

/**
 * @param {CanvasRenderingContext2D} context
 * @param {import("./picture.js").Sight} sight
 * @param {number} bearing
 * @param {number} from in pixels from own ship
 * @param {number} to
 */
function line(context, sight, bearing, from, to) {
    const x = Math.sin(bearing * cRad);
    const y = -Math.cos(bearing * cRad);
    context.beginPath();
    context.moveTo(sight.x + x * from, sight.y + y * from);
    context.lineTo(sight.x + x * to, sight.y + y * to);
    context.stroke();
}

/** @param {CanvasRenderingContext2D} context @param {Scene} scene */
function drawHeading(context, scene) {
    const { sight, palette } = scene;
    const bow = turned(0, 1, scene.reference, scene.heading);
    if (bow !== null) {
        context.strokeStyle = palette.text;
        line(context, sight, bow, 0, sight.size * 2);
    }
    const north = turned(0, 2, scene.reference, scene.heading);
    const edge = north === null ? 0 : toEdge(sight, north);
    if (north === null || edge < 40) return;
    context.save();
    context.translate(sight.x + Math.sin(north * cRad) * (edge - 40), sight.y - Math.cos(north * cRad) * (edge - 40));
    context.rotate(north * cRad);
    context.fillStyle = palette.text;
    context.beginPath();
    context.moveTo(0, -6);
    context.lineTo(4, 5);
    context.lineTo(-4, 5);
    context.fill();
    context.restore();
}

/** @param {CanvasRenderingContext2D} context @param {Scene} scene */
function drawMarkers(context, scene) {
    const { sight, palette } = scene;
    context.strokeStyle = palette.cursor;
    context.setLineDash([6, 4]);
    if (scene.eblDeg !== null) line(context, sight, scene.eblDeg, 0, sight.size * 2);
    if (scene.vrmM > 0) {
        context.beginPath();
        context.arc(sight.x, sight.y, scene.vrmM / sight.pixelM, 0, cWhole);
        context.stroke();
    }
    context.setLineDash([]);
}

/** @param {CanvasRenderingContext2D} context @param {Scene} scene */
function drawOwnShip(context, scene) {
    const { sight, palette, own } = scene;
    context.strokeStyle = palette.text;
    context.beginPath();
    context.arc(sight.x, sight.y, 4, 0, cWhole);
    context.stroke();
    drawVector(context, scene, sight, own, palette.text);
}

/**
 * @param {CanvasRenderingContext2D} context
 * @param {Scene} scene
 * @param {{ x: number, y: number }} from
 * @param {{ course_deg?: number, speed_kn?: number }} motion
 * @param {string} colour
 */
function drawVector(context, scene, from, motion, colour) {
    if (motion.course_deg === undefined || !motion.speed_kn) return;
    const course = turned(motion.course_deg, 2, scene.reference, scene.heading);
    if (course === null) return;
    const away = (motion.speed_kn * cVectorHours * cNm) / scene.sight.pixelM;
    context.strokeStyle = colour;
    context.beginPath();
    context.moveTo(from.x, from.y);
    context.lineTo(from.x + Math.sin(course * cRad) * away, from.y - Math.cos(course * cRad) * away);
    context.stroke();
}

/**
 * Where a target is: bearing as the picture counts, and metres.
 * @param {Target} target
 * @param {Pick<Scene, "own" | "reference" | "heading">} scene
 */
export function placeOfTarget(target, scene) {
    if (target.distance_nm !== undefined && target.bearing_deg !== undefined) {
        const of = target.bearing_reference === "north" ? 2 : target.bearing_reference === "bow" ? 1 : 0;
        const bearing = turned(target.bearing_deg, of, scene.reference, scene.heading);
        return bearing === null ? null : { bearing, metres: target.distance_nm * cNm };
    }
    const seen = bearingTo(scene.own, target);
    const bearing = seen && turned(seen.bearing, 2, scene.reference, scene.heading);
    return seen && bearing !== null ? { bearing, metres: seen.metres } : null;
}

/** @param {Target} target */
export function nameOf(target) {
    return target.ship_name || (target.mmsi !== undefined ? String(target.mmsi) : `T${target.target ?? "?"}`);
}

/** @param {CanvasRenderingContext2D} context @param {Scene} scene @param {Target} target */
function drawTarget(context, scene, target) {
    const polar = placeOfTarget(target, scene);
    if (!polar) return;
    const place = placeOf(scene.sight, polar.bearing, polar.metres);
    const isAis = target.mmsi !== undefined;
    const colour = isAis ? scene.palette.ais : scene.palette.target;
    context.strokeStyle = context.fillStyle = colour;
    context.lineWidth = 1.4;
    if (isAis) drawTriangle(context, scene, place, target);
    else {
        context.setLineDash(target.target_status === "Q" ? [3, 3] : []);
        context.beginPath();
        context.arc(place.x, place.y, 7, 0, cWhole);
        context.stroke();
        context.setLineDash([]);
        if (target.target_status === "L") cross(context, place);
    }
    drawVector(context, scene, place, target, colour);
    context.globalAlpha = 0.9;
    context.fillText(nameOf(target).slice(0, 20), place.x + 10, place.y + (isAis ? 14 : -8));
    context.globalAlpha = 1;
    context.lineWidth = 1;
}

/** @param {CanvasRenderingContext2D} context @param {{ x: number, y: number }} place */
function cross(context, { x, y }) {
    context.beginPath();
    context.moveTo(x - 8, y - 8);
    context.lineTo(x + 8, y + 8);
    context.moveTo(x + 8, y - 8);
    context.lineTo(x - 8, y + 8);
    context.stroke();
}

/**
 * @param {CanvasRenderingContext2D} context
 * @param {Scene} scene
 * @param {{ x: number, y: number }} place
 * @param {Target} target
 */
function drawTriangle(context, scene, place, target) {
    const ahead = turned(target.heading_deg ?? target.course_deg ?? 0, 2, scene.reference, scene.heading) ?? 0;
    context.save();
    context.translate(place.x, place.y);
    context.rotate(ahead * cRad);
    context.beginPath();
    context.moveTo(0, -9);
    context.lineTo(5, 6);
    context.lineTo(-5, 6);
    context.closePath();
    context.stroke();
    context.restore();
}

/** @param {CanvasRenderingContext2D} context @param {Scene} scene */
function drawCorners(context, scene) {
    const { sight, palette } = scene;
    if (sight.size < 300) return;
    context.fillStyle = palette.text;
    context.font = "600 15px system-ui, sans-serif";
    context.fillText(rangeText(scene.rangeM), 10, 22);
    context.font = "11px system-ui, sans-serif";
    context.fillStyle = palette.marks;
    context.fillText(`rings ${rangeText(ringStep(scene.rangeM))}`, 10, 38);
    context.fillText(["bearings as received", "head up", "north up"][scene.reference], 10, 53);
    context.textAlign = "right";
    context.fillStyle = palette.cursor;
    if (scene.eblDeg !== null) context.fillText(`EBL ${bearingText(scene.eblDeg)}`, sight.size - 10, 22);
    if (scene.vrmM > 0) context.fillText(`VRM ${distanceText(scene.vrmM)}`, sight.size - 10, 37);
    context.textAlign = "start";
}
