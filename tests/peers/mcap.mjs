// Reads an MCAP file that `kestova export --mcap` wrote with the readers of its makers, and compares it with what
// `kestova info` and `kestova dump --decode` say of the same recording. tests/toolexport_test.cpp runs it where they are
// installed (npm ci --prefix tests/peers); by hand:
//
//   node tests/peers/mcap.mjs build/release/tools/kestova FILE.mcap RECORDING [LAYOUT.json]
import { crc32 } from "@foxglove/crc";
import { parse } from "@foxglove/rosmsg";
import { MessageReader } from "@foxglove/rosmsg2-serialization";
import { McapIndexedReader, McapStreamReader } from "@mcap/core";
import { loadDecompressHandlers } from "@mcap/support";
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { createHash } from "node:crypto";
import { readFileSync } from "node:fs";
import { inflateSync } from "node:zlib";

const [tool, path, recording, layout] = process.argv.slice(2);
if (!recording) {
    console.error("usage: node mcap.mjs KESTOVA FILE.mcap RECORDING [LAYOUT.json]");
    process.exit(2);
}
const run = (...args) => execFileSync(tool, args, { maxBuffer: 2 ** 30, stdio: ["ignore", "pipe", "ignore"] }).toString();
const bytes = readFileSync(path);
const readable = { size: async () => BigInt(bytes.length),
                   read: async (at, n) => new Uint8Array(bytes.buffer, bytes.byteOffset + Number(at), Number(n)) };
const decompressHandlers = await loadDecompressHandlers();
const token = text => text.replace(/^(?=[0-9])/, "g_").replace(/[^A-Za-z0-9]+/g, "_");
const nsOf = time => BigInt(time.sec) * 1000000000n + BigInt(time.nsec);

// Every checksum: of the summary and of chunks (the readers do it), and of the data section.
const reader = await McapIndexedReader.Initialize({ readable, decompressHandlers });
const stream = new McapStreamReader({ decompressHandlers, validateCrcs: true });
stream.append(bytes);
let end;
for (let record; (record = stream.nextRecord());) if (record.type === "DataEnd") end = record;
assert(stream.done() && end, "the file does not end");
const dataEnd = Number(reader.footer.summaryStart) - 13;
assert.notEqual(end.dataSectionCrc, 0);
assert.equal(end.dataSectionCrc, crc32(bytes.subarray(0, dataEnd)), "checksum of the data section");
assert.notEqual(reader.footer.summaryCrc, 0);
assert(reader.chunkIndexes.length > 0);
assert.equal(reader.header.profile, "ros2");

// Every message by the index, in the order of time.
const readers = new Map(), topics = {}, seen = {};
for (const channel of reader.channelsById.values()) {
    const schema = reader.schemasById.get(channel.schemaId);
    assert.deepEqual([channel.messageEncoding, schema.encoding], ["cdr", "ros2msg"]);
    readers.set(channel.id, new MessageReader(parse(Buffer.from(schema.data).toString(), { ros2: true })));
    topics[channel.topic] = { type: schema.name, count: reader.statistics.channelMessageCounts.get(channel.id) };
    seen[channel.topic] = [];
}
for await (const message of reader.readMessages()) {
    const { topic } = reader.channelsById.get(message.channelId);
    assert.equal(message.sequence <= 0xffffffff, true);
    seen[topic].push({ log: message.logTime, publish: message.publishTime,
                       ...readers.get(message.channelId).readMessage(message.data) });
}
for (const [topic, { count }] of Object.entries(topics)) assert.equal(BigInt(seen[topic].length), count, topic);

// What the recording holds: datagrams by stream, lines, spokes.
const info = JSON.parse(run("info", recording, "--json")).total.streams;
const dumped = run("dump", recording, "--json", "--all", "--decode", ...(layout ? ["--layout", layout] : []))
    .trim().split("\n").map(line => JSON.parse(line)).filter(line => line.stream);
const has = prefix => Object.keys(topics).some(topic => topic.startsWith(prefix));
let compared = 0;
if (has("/raw/")) {
    const digest = parts => parts.reduce((all, part) => all.update(part), createHash("sha256")).digest("hex");
    for (const { stream: name, address, records } of info.filter(one => one.address)) {
        const raw = seen[`/raw/${token(name)}/${token(address)}`];
        const lines = dumped.filter(line => line.stream === name && line.address === address);
        assert.equal(raw.length, records, name);
        assert.equal(digest(raw.map(one => one.data)), digest(lines.map(line => Buffer.from(line.payload, "hex"))), name);
        raw.forEach((one, i) => {
            assert.equal(`${one.address}:${one.src_port}`, address);
            assert.equal(one.log / 1000000n, BigInt(lines[i].time_ms));
            assert.equal(one.publish, BigInt(lines[i].package_ms) * 1000000n);
            assert.equal(nsOf(one.header.stamp), one.log);
        });
        compared += raw.length;
    }
}
if (has("/sentences")) {
    const sentences = dumped.flatMap(line => line.sentences).length;
    assert(seen["/sentences"].length >= sentences && sentences > 0, "sentences");
    for (const { sentence } of seen["/sentences"]) assert.match(sentence, /^[$!][A-Z0-9]{4,8}/);
}

// Spokes in their order: the cells of sectors as they came, strong ones as points of whole turns; each turn as a picture.
const radars = Object.keys(topics).filter(topic => /^\/radar_.*\/sector$/.test(topic)).map(topic => topic.split("/")[1]);
let cells = 0;
for (const radar of radars) {
    const spokes = dumped.flatMap(line => line.spokes), turn = 2 * Math.PI, strong = [];
    let next = 0;
    for (const sector of seen[`/${radar}/sector`]) {
        assert(sector.intensities.length <= 64);
        sector.intensities.forEach(({ echoes }, i) => {
            const spoke = spokes[next++], digits = spoke.bits > 16 ? 8 : spoke.bits > 8 ? 4 : 2;
            const values = spoke.cells.match(new RegExp(`.{${digits}}`, "g")).map(text => parseInt(text, 16));
            assert.deepEqual([...echoes], values);
            const angle = sector.angle_start + i * sector.angle_increment + turn * spoke.bearing_from;
            assert(Math.abs(angle - turn * Math.round(angle / turn)) < 1e-3, "the angle of a ray");
            assert(Math.abs(sector.range_min - spoke.first_cell_m - spoke.cell_m / 2) < 0.01);
            strong.push(...values.filter(value => value >= (2 ** spoke.bits - 1) / 2));
            cells += values.length;
        });
    }
    assert.equal(next, spokes.length, "spokes");
    const points = seen[`/${radar}/echoes`].flatMap(({ data, width, point_step }) =>
        Array.from({ length: width }, (_, i) => Buffer.from(data).readFloatLE(i * point_step + 12)));
    assert(points.length > 0);
    assert.deepEqual(points, strong.slice(0, points.length));
    for (const { format, data } of seen[`/${radar}/picture/compressed`]) {
        const png = Buffer.from(data), size = png.readUInt32BE(33);
        assert.deepEqual([format, png.toString("latin1", 1, 4), png.readUInt32BE(16)], ["png", "PNG", 900]);
        assert.equal(inflateSync(png.subarray(41, 41 + size)).length, 900 * (3 * 900 + 1));
        assert.equal(png.readUInt32BE(41 + size), crc32(png.subarray(37, 41 + size)));
    }
}

// Own ship, as its sentences say.
const own = dumped.flatMap(line => line.sentences).filter(one => one.type !== "TTM" && one.type !== "TLL" && one.type !== "VDM");
const yaws = own.filter(one => one.heading_deg !== undefined).map(one => Math.PI / 2 - one.heading_deg * Math.PI / 180);
if (has("/own/fix"))
    assert.deepEqual(seen["/own/fix"].map(one => [one.latitude, one.longitude]),
                     own.filter(one => one.latitude_deg !== undefined).map(one => [one.latitude_deg, one.longitude_deg]));
(seen["/own/heading"] ?? []).forEach(({ quaternion: { z, w } }, i) => assert(Math.abs(Math.sin(2 * Math.atan2(z, w) - yaws[i])) < 1e-9));
for (const { geojson } of seen["/targets"] ?? []) assert.equal(JSON.parse(geojson).type, "FeatureCollection");

console.log(`${path}: ${Object.keys(topics).length} topics, ${reader.statistics.messageCount} messages, ` +
            `${compared} datagrams and ${cells} cells equal`);
