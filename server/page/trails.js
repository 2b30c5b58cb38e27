// Trails: where echoes were in the turns before, cell by cell, fading while they are not renewed.

const cStrong = 0.3; // of full scale: weaker echoes leave no trail

export class Trails {
    /** @param {import("./spokestore.js").SpokeStore} store */
    constructor(store) {
        this.store = store;
        this.lastS = 0;
        this.levels = new Uint8Array(0);
        this.generation = -1;
        store.onRow = (row, fresh) => this.age(row, fresh);
    }

    /** @param {number} seconds 0: none */
    setLength(seconds) {
        this.lastS = seconds;
        this.levels = new Uint8Array(0);
    }

    /** Called before a row is overwritten. @param {number} row @param {import("./types.js").Cells} fresh */
    age(row, fresh) {
        if (this.lastS === 0) return;
        const { store } = this;
        if (this.levels.length !== store.rows * store.columns) this.levels = new Uint8Array(store.rows * store.columns);
        const turnS = Math.max(store.turnMs, 100) / 1000;
        const less = Math.max(Math.round((255 * turnS) / this.lastS), 1);
        const strong = store.fullScale * cStrong;
        const at = row * store.columns;
        const end = Math.min(fresh.length, store.columns);
        for (let i = at; i < at + end; ++i) {
            const was = this.levels[i];
            this.levels[i] = store.cells[i] >= strong ? 255 : was > less ? was - less : 0;
        }
    }

    /** The levels as cells, as many as the store has. */
    cells() {
        const count = this.store.rows * this.store.columns;
        if (this.levels.length !== count) this.levels = new Uint8Array(count);
        return this.levels;
    }
}
