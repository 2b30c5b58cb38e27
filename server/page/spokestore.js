// SpokeStore: the last turn of the antenna, one row of cells a direction.
//
// Rows divide the turn evenly, as many as the radar has spokes; where its bearings are turned by the heading, or do not
// divide the turn, a spoke fills the rows that it touches. Whoever draws reads the log of rows that changed.

const cTurn = 2 ** 32;
const cMostRows = 8192;
const cMostCells = 8192;
const cFill = 0.02; // of a turn: a spoke fills up to the next one if that is nearer
const cAligned = 0.05; // of a row: nearer to a border than this is on it

/** @typedef {"north" | "head"} Up */

export class SpokeStore {
    /** @type {Up} */
    up = "north";
    generation = 0; // rises when all rows are other ones
    rows = 0;
    columns = 0;
    bits = 8;
    /** @type {import("./types.js").Cells} */
    cells = new Uint8Array(0);
    firstM = new Float32Array(0);
    cellM = new Float32Array(0);
    counts = new Uint16Array(0);
    times = new Float64Array(0); // 0: nothing was received there
    /** @type {(import("./types.js").Spoke | null)[]} */
    held = [];
    log = new Uint16Array(2); // of rows that changed
    logged = 0; // in all; the log holds the last ones
    spokes = 0; // since the last clear
    isUniform = true; // all rows have the same cells
    newestMs = 0;
    newestBearing = 0; // in turns, as it is stored
    heading = NaN;
    knowsRange = true;
    reference = 0; // of bearings as they are stored
    turnMs = 0; // how long a turn takes; 0: not known yet
    pace = { startMs: 0, timeMs: 0, from: 0, swept: 0 };
    /** @type {import("./types.js").Spoke | null} */
    last = null;
    lastBegin = 0;
    lastEnd = -1;
    /** @type {((row: number, fresh: import("./types.js").Cells) => void) | undefined} */
    onRow;

    /** Forgets all spokes. */
    clear() {
        this.rows = this.columns = 0;
        this.cells = new Uint8Array(0);
        this.allocateMeta(0);
        this.spokes = this.logged = 0;
        this.isUniform = true;
        this.newestMs = this.newestBearing = 0;
        this.heading = NaN;
        this.turnMs = 0;
        this.pace.timeMs = 0;
        this.last = null;
        this.lastEnd = -1;
        ++this.generation;
    }

    /** @param {number} rows */
    allocateMeta(rows) {
        this.firstM = new Float32Array(rows);
        this.cellM = new Float32Array(rows);
        this.counts = new Uint16Array(rows);
        this.times = new Float64Array(rows);
        this.held = new Array(rows).fill(null);
        this.log = new Uint16Array(Math.max(rows, 1) * 2);
    }

    /** The far edge of the last cell of the newest spoke in metres; 0 without spokes. */
    get rangeM() {
        const { last } = this;
        return last ? last.firstM + last.cellM * last.cells.length : 0;
    }

    get fullScale() {
        return this.bits >= 32 ? 0xffffffff : 2 ** this.bits - 1;
    }

    /** @param {Up} up */
    setUp(up) {
        if (up === this.up) return;
        this.up = up;
        const spokes = [...new Set(this.held)].filter(held => held !== null).sort((a, b) => a.timeMs - b.timeMs);
        const drawn = this.spokes;
        this.clear();
        for (const spoke of spokes) this.add(spoke);
        this.spokes = drawn;
    }

    /** @param {import("./types.js").Spoke} spoke */
    add(spoke) {
        if (spoke.cells.length === 0) return;
        this.knowsRange = spoke.cellM > 0;
        if (!this.knowsRange) spoke = { ...spoke, firstM: 0, cellM: 1 };
        this.makeRoom(spoke);
        const turned = this.turnedBy(spoke);
        const width = (spoke.to - spoke.from + cTurn) % cTurn || cTurn / this.rows;
        const begin = (((spoke.from + turned) % cTurn) + cTurn) % cTurn;
        const first = this.rowAt(begin);
        const end = Math.max(this.rowAt(begin + width), first + 1);
        this.fillUpTo(first);
        for (let row = first; row < end; ++row) this.put(row % this.rows, spoke);
        this.lastEnd = end;
        this.lastBegin = first;
        this.last = spoke;
        this.measurePace(spoke);
        this.newestMs = spoke.timeMs;
        this.newestBearing = begin / cTurn;
        if (!Number.isNaN(spoke.heading)) this.heading = spoke.heading;
        ++this.spokes;
    }

    /**
     * The direction of a bearing that is stored, as it was received.
     * @param {import("./types.js").Spoke} spoke
     */
    turnedBy(spoke) {
        const known = !Number.isNaN(spoke.heading);
        const heading = (spoke.heading / 360) * cTurn;
        this.reference = spoke.reference;
        if (this.up === "north" && spoke.reference === 1 && known) {
            this.reference = 2;
            return heading;
        }
        if (this.up === "head" && spoke.reference === 2 && known) {
            this.reference = 1;
            return -heading;
        }
        return 0;
    }

    /** @param {number} bearing */
    rowAt(bearing) {
        const place = (bearing / cTurn) * this.rows;
        const nearest = Math.round(place);
        return Math.abs(place - nearest) < cAligned ? nearest : Math.floor(place);
    }

    /** @param {import("./types.js").Spoke} spoke */
    makeRoom(spoke) {
        const count = Math.min(spoke.cells.length, cMostCells);
        const isOther =
            this.rows > 0 &&
            (spoke.cells.BYTES_PER_ELEMENT !== this.cells.BYTES_PER_ELEMENT || spoke.bits !== this.bits);
        if (isOther) this.clear();
        if (this.rows === 0) {
            const width = (spoke.to - spoke.from + cTurn) % cTurn;
            this.rows = width > 0 ? Math.min(Math.max(Math.round(cTurn / width), 16), cMostRows) : 4096;
            this.bits = spoke.bits;
            this.allocateMeta(this.rows);
        }
        if (count > this.columns) this.widen(spoke.cells, count);
    }

    /**
     * @param {import("./types.js").Cells} like
     * @param {number} columns
     */
    widen(like, columns) {
        const Kind = /** @type {{ new (length: number): import("./types.js").Cells }} */ (like.constructor);
        const wider = new Kind(this.rows * columns);
        for (let row = 0; row < this.rows && this.columns > 0; ++row)
            wider.set(this.cells.subarray(row * this.columns, (row + 1) * this.columns), row * columns);
        this.cells = wider;
        this.columns = columns;
        ++this.generation;
    }

    /** @param {number} first */
    fillUpTo(first) {
        if (!this.last || this.lastEnd < 0) return;
        const most = Math.ceil(cFill * this.rows);
        const ahead = (((first - this.lastEnd) % this.rows) + this.rows) % this.rows;
        if (ahead > 0 && ahead <= most) {
            for (let i = 0; i < ahead; ++i) this.put((this.lastEnd + i) % this.rows, this.last);
            return;
        }
        const behind = (((this.lastBegin - first - 1) % this.rows) + this.rows) % this.rows; // the antenna turns back
        if (behind > 0 && behind <= most && ahead > this.rows / 2)
            for (let i = 1; i <= behind; ++i) this.put((first + i) % this.rows, this.last);
    }

    /**
     * @param {number} row
     * @param {import("./types.js").Spoke} spoke
     */
    put(row, spoke) {
        const cells = spoke.cells.length > cMostCells ? spoke.cells.subarray(0, cMostCells) : spoke.cells;
        const at = row * this.columns;
        this.onRow?.(row, cells);
        this.cells.set(cells, at);
        if (cells.length < this.columns) this.cells.fill(0, at + cells.length, at + this.columns);
        if (spoke.firstM !== this.firstM[0] || spoke.cellM !== this.cellM[0] || cells.length !== this.counts[0])
            this.isUniform = this.isUniform && this.spokes === 0;
        this.firstM[row] = spoke.firstM;
        this.cellM[row] = spoke.cellM;
        this.counts[row] = cells.length;
        this.times[row] = spoke.timeMs;
        this.held[row] = spoke;
        this.log[this.logged++ % this.log.length] = row;
        if (this.spokes === 0) this.takeAsPattern(spoke, cells.length);
    }

    /**
     * Rows without a spoke count as like the first one.
     * @param {import("./types.js").Spoke} spoke
     * @param {number} count
     */
    takeAsPattern(spoke, count) {
        this.firstM.fill(spoke.firstM);
        this.cellM.fill(spoke.cellM);
        this.counts.fill(count);
    }

    /** After a change of range all rows are alike again when the turn is over. */
    lookForUniform() {
        if (this.isUniform || this.rows === 0) return;
        const { firstM, cellM, counts } = this;
        for (let row = 1; row < this.rows; ++row)
            if (firstM[row] !== firstM[0] || cellM[row] !== cellM[0] || counts[row] !== counts[0]) return;
        this.isUniform = true;
    }

    /** @param {import("./types.js").Spoke} spoke */
    measurePace({ timeMs, from }) {
        const { pace } = this;
        const step = (from - pace.from) / cTurn;
        const took = timeMs - pace.timeMs;
        const begins = pace.timeMs === 0 || took < 0 || took > 10000;
        pace.swept = begins ? 0 : pace.swept + step - Math.round(step);
        if (begins) pace.startMs = timeMs;
        pace.from = from;
        pace.timeMs = timeMs;
        if (Math.abs(pace.swept) < 0.25 || timeMs <= pace.startMs) return;
        this.turnMs = (timeMs - pace.startMs) / Math.abs(pace.swept);
        this.lookForUniform();
        pace.swept = 0;
        pace.startMs = timeMs;
    }

    /** Whether some sectors were not renewed for two turns, and have not faded for long. */
    hasOldRows() {
        if (this.turnMs === 0) return false;
        for (let row = 0; row < this.rows; ++row) {
            const turns = (this.newestMs - this.times[row]) / this.turnMs;
            if (this.times[row] > 0 && turns > 2 && turns < 4) return true;
        }
        return false;
    }

    /**
     * The value of the cell at a bearing, in turns as they are stored, and a distance.
     * @param {number} turns
     * @param {number} metres
     * @returns {number | null}
     */
    valueAt(turns, metres) {
        if (this.rows === 0) return null;
        const row = Math.floor((turns - Math.floor(turns)) * this.rows) % this.rows;
        if (this.times[row] === 0) return null;
        const cell = Math.floor((metres - this.firstM[row]) / (this.cellM[row] || 1));
        return cell >= 0 && cell < this.counts[row] ? this.cells[row * this.columns + cell] : null;
    }
}
