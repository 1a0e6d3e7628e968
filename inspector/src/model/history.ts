// The last minutes: the states that the page has seen, one step after the other.
//
// Kept are the oldest state, the newest one and the entries between them. A position is the number of an entry and means the
// state after it; numbers go on counting when old entries are dropped. Entries are dropped by age, number and memory, whichever
// limit is met first, and with each one the oldest state moves on. The state at a position is reached from the last one asked
// for, so that stepping costs one entry and scrubbing costs those in between, or from either end, if that is nearer.

import { type Arrival, type Entry, moved, type State, taken } from './state';

export interface Limits {
    readonly age: number; // milliseconds
    readonly count: number;
    readonly cost: number; // bytes
}

export const usualLimits: Limits = { age: 600_000, count: 50_000, cost: 32 << 20 };
// Of a recording that is open.
export const recordingLimits: Limits = { age: Infinity, count: 500_000, cost: 256 << 20 };

export class History {
    private entries: Entry[] = [];
    private dropped = 0; // entries[0] has this number
    private cost = 0;
    private oldest: State = new Map();
    private newest: State = new Map();
    private cursor: { position: number; state: State } = { position: -1, state: this.oldest };

    constructor(private readonly limits: Limits = usualLimits) {}

    get head(): State {
        return this.newest;
    }
    // The positions: that of the newest state, and that before the oldest entry.
    get last(): number {
        return this.dropped + this.entries.length - 1;
    }
    get first(): number {
        return this.dropped - 1;
    }

    // Whether entries have been dropped.
    get isCut(): boolean {
        return this.dropped > 0;
    }

    entry(position: number): Entry | undefined {
        return this.entries[position - this.dropped];
    }

    // Takes what has arrived; true if anything has changed.
    take(arrivals: readonly Arrival[]): boolean {
        const { state, entries } = taken(this.newest, arrivals);
        for (const entry of entries) {
            this.entries.push(entry);
            this.cost += entry.cost;
        }
        this.newest = state;
        return entries.length > 0;
    }

    // Drops what is beyond the limits at this time.
    trim(now: number): void {
        let drop = 0;
        for (; drop < this.entries.length; ++drop) {
            const entry = this.entries[drop];
            if (!entry) break;
            const within =
                entry.time >= now - this.limits.age &&
                this.entries.length - drop <= this.limits.count &&
                this.cost <= this.limits.cost;
            if (within) break;
            this.cost -= entry.cost;
        }
        if (drop === 0) return;
        this.oldest = moved(this.oldest, this.entries.slice(0, drop), 'do');
        this.entries = this.entries.slice(drop);
        this.dropped += drop;
        if (this.cursor.position < this.first) this.cursor = { position: this.first, state: this.oldest };
    }

    // The state after the entry of that number, or the nearest one that is kept.
    at(wanted: number): State {
        const position = this.clamped(wanted);
        if (position === this.last) return this.newest;
        const known = [this.cursor, { position: this.first, state: this.oldest }, { position: this.last, state: this.newest }];
        const { position: from, state } = known.reduce((a, b) =>
            Math.abs(a.position - position) <= Math.abs(b.position - position) ? a : b,
        );
        const index = (number: number): number => number + 1 - this.dropped;
        const next =
            position >= from
                ? moved(state, this.entries.slice(index(from), index(position)), 'do')
                : moved(state, this.entries.slice(index(position), index(from)), 'undo');
        this.cursor = { position, state: next };
        return next;
    }

    clamped(position: number): number {
        return Math.min(Math.max(position, this.first), this.last);
    }

    // The last position whose entry is not later than this; `first` if all are.
    before(time: number): number {
        let low = 0;
        let high = this.entries.length;
        while (low < high) {
            const middle = (low + high) >> 1;
            if ((this.entries[middle]?.time ?? Infinity) <= time) low = middle + 1;
            else high = middle;
        }
        return this.dropped + low - 1;
    }
}
