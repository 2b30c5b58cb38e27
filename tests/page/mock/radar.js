// A radar that is computed: 200 targets of a single cell, and an island; the same at any time.

export const cSpokes = 2048;
export const cCells = 512;
export const cCellM = 11112 / cCells;
export const cTurnMs = 2500;

/** Places of the targets, spread over the picture by the golden angle; none touches another. */
export const cTargets = Array.from({ length: 200 }, (_, i) => ({
    row: Math.round(i * 0.381966 * cSpokes) % cSpokes,
    cell: 60 + Math.floor((440 * i) / 200),
    value: 250,
}));

const cByRow = new Map();
for (const target of cTargets) cByRow.set(target.row, [...(cByRow.get(target.row) ?? []), target]);

/** @param {number} row @param {number} cell */
function islandAt(row, cell) {
    const turn = row / cSpokes;
    const shore = 330 + 60 * Math.sin(turn * 40) + 25 * Math.sin(turn * 170);
    return turn > 0.15 && turn < 0.4 && cell > shore ? Math.max(200 - (cell - shore), 40) : 0;
}

/** @param {number} row @param {boolean} hasIsland */
export function cellsOf(row, hasIsland) {
    const cells = new Uint8Array(cCells);
    if (hasIsland) for (let cell = 0; cell < cCells; ++cell) cells[cell] = islandAt(row, cell);
    for (const target of cByRow.get(row) ?? []) cells[target.cell] = target.value;
    return cells;
}

/** Number of the first spoke that is received at a time or after it. @param {number} timeMs */
export function spokeNumber(timeMs) {
    return Math.ceil((timeMs / cTurnMs) * cSpokes);
}

/**
 * A batch of spokes as the server sends it.
 * @param {{ source: number, epoch: number, flags: number, number: number, hasIsland: boolean, bytes?: 1 | 2 }} head
 * @param {number[]} numbers of the spokes
 */
export function batchOf({ source, epoch, flags, number, hasIsland, bytes = 1 }, numbers) {
    const size = 40 + cCells * bytes;
    const buffer = Buffer.alloc(24 + numbers.length * size);
    buffer.writeUInt8(1, 0);
    buffer.writeUInt8(1, 1);
    buffer.writeUInt16LE(numbers.length, 2);
    buffer.writeUInt32LE(source, 4);
    buffer.writeUInt32LE(epoch, 8);
    buffer.writeUInt32LE(flags, 12);
    buffer.writeBigUInt64LE(BigInt(number), 16);
    numbers.forEach((spoke, i) => writeSpoke(buffer, 24 + i * size, spoke, hasIsland, bytes));
    return buffer;
}

/** @param {Buffer} buffer @param {number} at @param {number} number @param {boolean} hasIsland @param {1 | 2} bytes */
function writeSpoke(buffer, at, number, hasIsland, bytes) {
    const row = number % cSpokes;
    const width = 2 ** 32 / cSpokes;
    buffer.writeBigUInt64LE(BigInt(Math.round((number / cSpokes) * cTurnMs)), at);
    buffer.writeUInt32LE(row * width, at + 8);
    buffer.writeUInt32LE(((row + 1) % cSpokes) * width, at + 12);
    buffer.writeFloatLE(0, at + 16);
    buffer.writeFloatLE(cCellM, at + 20);
    buffer.writeUInt32LE(number % 2 ** 32, at + 24);
    buffer.writeUInt32LE(cCells, at + 28);
    buffer.writeFloatLE(20, at + 32);
    buffer.writeUInt8(bytes * 8, at + 36);
    buffer.writeUInt8(bytes, at + 37);
    buffer.writeUInt8(2, at + 38);
    const cells = cellsOf(row, hasIsland);
    if (bytes === 1) buffer.set(cells, at + 40);
    else cells.forEach((value, i) => buffer.writeUInt16LE(value * 257, at + 40 + i * 2));
}
