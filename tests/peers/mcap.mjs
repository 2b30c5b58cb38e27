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
console.log(`${path}: ${Object.keys(topics).length} topics, ${reader.statistics.messageCount} messages, ` +
            `${compared} datagrams equal`);
