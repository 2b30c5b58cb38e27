// A development check, run by hand: 100,000 generated sentences as `kestova dump --decode` reads them, beside ggencoder
// (AIS) and nmea-simple (the others) of npm, where these know the type. Installed anywhere outside of the repository:
//
//   npm install --prefix /tmp/peers ggencoder nmea-simple
//   node tests/peers/sentences.mjs build/release/tools/kestova /tmp/peers
import { execFileSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";

const [tool, peers, count = "100000"] = process.argv.slice(2);
if (!tool || !peers) {
    console.error("usage: node sentences.mjs KESTOVA FOLDER-OF-node_modules [COUNT]");
    process.exit(2);
}
let AisDecode, nmea;
try {
    const require = createRequire(resolve(peers, "node_modules", "x.js"));
    AisDecode = require("ggencoder").AisDecode;
    nmea = require("nmea-simple");
} catch (error) {
    console.error(`ggencoder and nmea-simple are not in ${peers}: npm install --prefix ${peers} ggencoder nmea-simple`);
    process.exit(2);
}

let state = 12345;
function below(n) {  // mulberry32
    state = (state + 0x6D2B79F5) | 0;
    let t = Math.imul(state ^ (state >>> 15), 1 | state);
    t = (t + Math.imul(t ^ (t >>> 7), 61 | t)) ^ t;
    return Math.floor(((t ^ (t >>> 14)) >>> 0) / 4294967296 * n);
}
const number = (n, digits) => (below(n * 10 ** digits) / 10 ** digits).toFixed(digits);
const pad = (n, width) => String(n).padStart(width, "0");
const sum = body => [...body].reduce((all, c) => all ^ c.charCodeAt(0), 0).toString(16).toUpperCase().padStart(2, "0");
const sentence = (body, start = "$") => `${start}${body}*${sum(body)}`;
const latitude = () => `${pad(below(90), 2)}${pad(below(60), 2)}.${pad(below(10000), 4)},${"NS"[below(2)]}`;
const longitude = () => `${pad(below(180), 3)}${pad(below(60), 2)}.${pad(below(10000), 4)},${"EW"[below(2)]}`;
const time = () => `${pad(below(24), 2)}${pad(below(60), 2)}${pad(below(60), 2)}.${pad(below(100), 2)}`;
const date = () => [pad(1 + below(28), 2), pad(1 + below(12), 2)];

const writers = [
    () => `GPRMC,${time()},${"AAAV"[below(4)]},${latitude()},${longitude()},${number(40, 2)},${number(360, 1)},` +
          `${date().join("")}${pad(below(30), 2)},,,A`,
    () => `GPGGA,${time()},${latitude()},${longitude()},${below(3)},09,0.9,12.0,M,40.1,M,,`,
    () => `GPGLL,${latitude()},${longitude()},${time()},${"AAAV"[below(4)]}`,
    () => `GPVTG,${number(360, 1)},T,${number(360, 1)},M,${number(40, 2)},N,${number(70, 2)},K`,
    () => `GPZDA,${time()},${date().join(",")},${2000 + below(60)},00,00`,
    () => `HEHDT,${number(360, 2)},T`,
    () => `SDDBT,${number(300, 1)},f,${number(100, 2)},M,${number(50, 1)},F`,
];

// Any bits behind type and length are a message.
const lengths = { 1: 168, 2: 168, 3: 168, 4: 168, 5: 424, 18: 168, 19: 312, 21: 272, 24: 160 };
function ais() {
    const types = Object.keys(lengths), type = Number(types[below(types.length)]);
    let bits = type.toString(2).padStart(6, "0");
    while (bits.length < lengths[type]) bits += below(2);
    const fill = (6 - bits.length % 6) % 6;
    bits += "0".repeat(fill);
    let payload = "";
    for (let i = 0; i < bits.length; i += 6) {
        const six = parseInt(bits.substr(i, 6), 2);
        payload += String.fromCharCode(six + (six < 40 ? 48 : 56));
    }
    if (payload.length <= 60) return [sentence(`AIVDM,1,1,,A,${payload},${fill}`, "!")];
    const id = below(10);
    return [sentence(`AIVDM,2,1,${id},A,${payload.slice(0, 60)},0`, "!"),
            sentence(`AIVDM,2,2,${id},A,${payload.slice(60)},${fill}`, "!")];
}

// A capture of one datagram each, which Kestova imports.
function capture(messages) {
    const parts = [Buffer.alloc(24)];
    parts[0].writeUInt32LE(0xa1b2c3d4, 0);
    parts[0].writeUInt16LE(2, 4);
    parts[0].writeUInt16LE(4, 6);
    parts[0].writeUInt32LE(65535, 16);
    parts[0].writeUInt32LE(1, 20);
    messages.forEach((message, i) => {
        const payload = Buffer.from(message + "\r\n"), frame = Buffer.alloc(16 + 42);
        frame.writeUInt32LE(1700000000 + Math.floor(i / 1000), 0);
        frame.writeUInt32LE(i % 1000 * 1000, 4);
        frame.writeUInt32LE(42 + payload.length, 8);
        frame.writeUInt32LE(42 + payload.length, 12);
        Buffer.from("01005e110009020000000001080045", "hex").copy(frame, 16);
        frame.writeUInt16BE(28 + payload.length, 16 + 16);
        frame.writeUInt8(1, 16 + 22);
        frame.writeUInt8(17, 16 + 23);
        Buffer.from("c0a80101ef110009", "hex").copy(frame, 16 + 26);
        frame.writeUInt16BE(6009, 16 + 34);
        frame.writeUInt16BE(6009, 16 + 36);
        frame.writeUInt16BE(8 + payload.length, 16 + 38);
        parts.push(frame, payload);
    });
    return Buffer.concat(parts);
}

const known = value => value !== undefined && !Number.isNaN(value);
const valid = (wanted, is) => (is ? wanted : undefined);

function nmeaWants(line) {
    const is = nmea.parseNmeaSentence(line);
    const position = is.status === undefined ? is.fixType !== "none" : is.status === "valid";
    const bearing = value => (value === 360 ? 0 : value);
    const wants = { latitude_deg: valid(is.latitude, position), longitude_deg: valid(is.longitude, position) };
    switch (is.sentenceId) {
    case "RMC":
        return { ...wants, speed_kn: valid(is.speedKnots, position), course_deg: valid(bearing(is.trackTrue), position),
                 utc_ms: is.datetime.getTime() };
    case "GGA":
    case "GLL":
        return wants;
    case "VTG":
        return { speed_kn: is.speedKnots, course_deg: bearing(is.trackTrue) };
    case "ZDA":
        return { utc_ms: is.datetime.getTime() };
    case "HDT":
        return { heading_deg: bearing(is.heading) };
    default:
        return { depth_m: is.depthMeters };
    }
}

function aisWants(lines) {
    const session = {};
    let is;
    for (const line of lines) is = new AisDecode(line, session);
    const type = Number(is.aistype), wants = { mmsi: is.immsi, ais_type: type };
    if ([1, 2, 3, 18, 19].includes(type)) {
        const there = is.lon >= -180 && is.lon <= 180 && is.lat >= -90 && is.lat <= 90;
        wants.latitude_deg = valid(is.lat, there);
        wants.longitude_deg = valid(is.lon, there);
        wants.speed_kn = valid(is.sog, is.sog !== 102.3);
        wants.course_deg = valid(is.cog, is.cog < 360);
        if (type !== 19) wants.heading_deg = valid(is.hdg, is.hdg < 360);
    }
    return wants;
}

const messages = [], wants = [];
const types = {};
while (wants.length < Number(count)) {
    const lines = below(2) ? ais() : [sentence(writers[below(writers.length)]())];
    const want = lines[0][0] === "!" ? aisWants(lines) : nmeaWants(lines[0]);
    messages.push(lines.join("\r\n"));
    wants.push(want);
}

const folder = mkdtempSync(join(tmpdir(), "kestova-sentences-"));
let differences = 0, values = 0;
try {
    writeFileSync(join(folder, "sentences.pcap"), capture(messages));
    execFileSync(tool, ["pcap", join(folder, "sentences.pcap"), "--select", "all", "--to", join(folder, "root")], { stdio: "ignore" });
    const output = execFileSync(tool, ["dump", join(folder, "root"), "--decode", "--json"],
                                { maxBuffer: 2 ** 30, stdio: ["ignore", "pipe", "ignore"] });
    const lines = output.toString().trim().split("\n");
    if (lines.length !== wants.length) throw new Error(`${lines.length} records of ${wants.length}`);
    lines.forEach((line, i) => {
        const { sentences } = JSON.parse(line);
        const got = sentences.length === 1 ? sentences[0] : {};
        types[got.ais_type ? `VDM ${got.ais_type}` : got.type] = (types[got.ais_type ? `VDM ${got.ais_type}` : got.type] ?? 0) + 1;
        const wrong = Object.entries({ ...wants[i], valid: true }).filter(([key, want]) => {
            ++values;
            if (!known(want)) return known(got[key]);
            return typeof want === "boolean" ? got[key] !== want : !(Math.abs(got[key] - want) < 1e-6);
        });
        if (wrong.length && ++differences <= 10)
            console.log(messages[i], "\n  wanted", JSON.stringify(Object.fromEntries(wrong)), "\n  got   ", JSON.stringify(got));
    });
} finally {
    rmSync(folder, { recursive: true });
}
console.log(`${wants.length} sentences, ${values} values, ${differences} sentences differ`);
console.log(Object.entries(types).sort().map(([type, n]) => `${type}: ${n}`).join(", "));
process.exit(differences ? 1 : 0);
