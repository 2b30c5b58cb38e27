// HeldBatches: batches that have to wait; of more than two turns the oldest ones are forgotten.

/** @typedef {import("./types.js").Batch} Batch */

const cMostSpokes = 2 * 8192;

export class HeldBatches {
    /** @type {Batch[]} */
    batches = [];
    spokes = 0;

    /** @param {Batch} batch */
    hold(batch) {
        this.batches.push(batch);
        this.spokes += batch.spokes.length;
        while (this.batches.length > 1 && this.spokes > cMostSpokes)
            this.spokes -= this.batches.shift()?.spokes.length ?? 0;
    }

    /** @param {number} source */
    takeOf(source) {
        const taken = this.batches.filter(batch => batch.source === source);
        if (taken.length > 0) {
            this.batches = this.batches.filter(batch => batch.source !== source);
            this.spokes = this.batches.reduce((sum, batch) => sum + batch.spokes.length, 0);
        }
        return taken;
    }

    takeAll() {
        const taken = this.batches;
        this.clear();
        return taken;
    }

    clear() {
        this.batches = [];
        this.spokes = 0;
    }
}
