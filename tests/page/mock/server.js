// A server as the page expects it, with a computed radar: for tests of the page alone.

import { createServer } from "node:http";
import { readFile } from "node:fs/promises";
import { extname, join, normalize } from "node:path";
import { fileURLToPath, pathToFileURL } from "node:url";
import { WebSocketServer } from "ws";
import { Viewer } from "./viewer.js";

const cPage = fileURLToPath(new URL("../../../server/page", import.meta.url));
const cPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; connect-src 'self'; " +
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
/** @type {Record<string, string>} */
const cTypes = { ".html": "text/html", ".js": "text/javascript", ".css": "text/css", ".svg": "image/svg+xml" };

export const cMarkup = "<img src=x onerror=window.broken=1>";
const cEnd = Math.floor(Date.now() / 1000) * 1000 - 60000;

/** Two recordings of ten minutes; in the first one spokes are missing from minute 4 to 5. */
export const cRecordings = [
    recordingOf("00000000000000a1", "Data_000001_2026.11.22", cEnd, { notes: 1, lost: 12, kept: true }),
    recordingOf("00000000000000a2", `Data_000000 ${cMarkup}`, cEnd - 900000, {}),
];
export const cGap = { from: cRecordings[0].first_ms + 240000, to: cRecordings[0].first_ms + 300000 };

/** @param {string} id @param {string} name @param {number} last @param {object} more */
function recordingOf(id, name, last, more) {
    const facts = { id, name, first_ms: last - 600000, last_ms: last, files: 1, records: 1000, size_bytes: 52e6 };
    return { ...facts, state: "finished", lost: 0, kept: false, notes: 0, sheets: 1, radar: "A1:2", ...more };
}

/** @param {URLSearchParams} query @param {typeof cRecordings[0]} recording */
function timelineOf(query, recording) {
    const from = Number(query.get("from_ms") ?? recording.first_ms);
    const to = Number(query.get("to_ms") ?? recording.last_ms);
    const columns = Number(query.get("columns") ?? 1000);
    const rates = (/** @type {number} */ rate, /** @type {boolean} */ hasGap) =>
        Array.from({ length: columns }, (_, i) => {
            const time = from + ((i + 0.5) / columns) * (to - from);
            const isOut = time < recording.first_ms || time > recording.last_ms;
            return isOut || (hasGap && time >= cGap.from && time < cGap.to) ? 0 : rate * (0.9 + 0.1 * Math.sin(i / 9));
        });
    const stream = (/** @type {string} */ name, /** @type {number} */ rate) => {
        const mean = rates(rate, name === "imageStream");
        return {
            stream: name,
            address: "239.17.0.1:6001",
            min: mean.map(v => v * 0.8),
            mean,
            max: mean.map(v => v * 1.1),
        };
    };
    return {
        from_ms: from,
        to_ms: to,
        columns,
        streams: [stream("gpsDev", 2), stream("imageStream", 819), stream("arpaStream", 0.4), stream("headingDev", 10)],
        gaps: [{ stream: "imageStream", address: "239.17.0.1:6001", from_ms: cGap.from, to_ms: cGap.to }],
        losses: [{ layer: "kernel", from_ms: cGap.to + 90000, to_ms: cGap.to + 92000, count: 12 }],
        notes: [{ time_ms: recording.first_ms + 120000, text: `squall ${cMarkup}` }],
        files: [{ name: "0000", first_ms: recording.first_ms, last_ms: recording.last_ms }],
        kept: [{ from_ms: recording.first_ms, to_ms: recording.last_ms }],
    };
}

/** @param {URL} url */
function answer({ pathname, searchParams }) {
    const path = pathname.replace("/api/v1", "");
    const id = path.split("/")[2];
    const one = cRecordings.find(recording => recording.id === id);
    if (path === "/server")
        return {
            version: "0.2.0",
            api: 1,
            time_ms: Date.now(),
            allow: { record: true, replay: true },
            roots: [{ name: "recordings", free_bytes: 79e9, hours_left: 22 }],
            viewers: 1,
        };
    if (path === "/radars")
        return { radars: [{ radar: "A1:2/1", serial: "A1:2", id: 1, heard_ms: Date.now(), recording: null }] };
    if (path === "/recordings") {
        const q = searchParams.get("q") ?? "";
        return { recordings: cRecordings.filter(recording => recording.name.includes(q)), next: null };
    }
    if (path === "/replay") return { playing: false };
    if (path === "/timeline" || path.endsWith("/timeline")) return timelineOf(searchParams, one ?? cRecordings[0]);
    if (path.endsWith("/records"))
        return { records: [{ time_ms: cEnd, length: 12, payload: Buffer.from("$GPGGA,1*53\r\n").toString("hex") }] };
    return null;
}

/** Serves at a free port. @param {number} port 0: a free one @param {object} options of its viewers */
export async function serveMock(port = 0, options = {}) {
    /** @type {string[]} */
    const asked = [];
    const server = createServer(async (request, response) => {
        const url = new URL(request.url ?? "/", "http://127.0.0.1");
        asked.push(`${request.method} ${url.pathname}${url.search}`);
        response.setHeader("X-Content-Type-Options", "nosniff");
        if (url.pathname.startsWith("/api/")) {
            const body = request.method === "POST" ? {} : answer(url);
            response.writeHead(body ? 200 : 404, { "Content-Type": "application/json" });
            return response.end(JSON.stringify(body ?? { error: { code: "not_found", message: "not here" } }));
        }
        const file = normalize(url.pathname === "/" ? "/index.html" : url.pathname);
        const bytes = await readFile(join(cPage, file)).catch(() => null);
        response.setHeader("Content-Security-Policy", cPolicy);
        response.writeHead(bytes ? 200 : 404, { "Content-Type": cTypes[extname(file)] ?? "text/plain" });
        return response.end(bytes ?? "");
    });
    const sockets = new WebSocketServer({ server, path: "/api/v1/live" });
    sockets.on("connection", socket => new Viewer(socket, options));
    await new Promise(resolve => server.listen(port, "127.0.0.1", () => resolve(undefined)));
    const address = /** @type {import("node:net").AddressInfo} */ (server.address());
    const close = () => {
        for (const socket of sockets.clients) socket.terminate();
        server.closeAllConnections();
        return new Promise(resolve => server.close(() => resolve(undefined)));
    };
    return { url: `http://127.0.0.1:${address.port}/`, port: address.port, asked, close, options };
}

if (process.argv[1] && import.meta.url === pathToFileURL(process.argv[1]).href)
    console.log((await serveMock(Number(process.argv[2] ?? 8790))).url);
