// What is known at one moment, and the steps from one moment to the next.
//
// A state maps each thing that is watched ("/hmx/popups", "/input/Driver_Display") to its elements. States are never modified: a
// step makes a new one that shares with the old one whatever it leaves alone, so that two states are compared by identity. An
// entry is one step. It has what was before and what is after, so it can be taken back: this is how the page moves in time.
//
// A snapshot becomes the differences from what was there before. After a loss, this is exactly what has changed meanwhile.

import { type Document, type Element, elements, isDocument, text } from './documents';

export interface Loss {
    readonly service: string;
    readonly reason: string;
    readonly since: number; // milliseconds of the wall clock
}

export interface Watched {
    readonly elements: ReadonlyMap<string, Element>;
    readonly read: boolean; // a snapshot has arrived
    readonly loss?: Loss | undefined;
}

export type State = ReadonlyMap<string, Watched>;

// The connection to the gateway, in a state beside what it brings: it has no elements, but can be lost.
export const gateway = '/events';

export interface Change {
    readonly id: string;
    readonly before?: Element | undefined;
    readonly after?: Element | undefined;
}

export interface Entry {
    readonly time: number;
    readonly watch: string;
    readonly kind: 'read' | 'changed' | 'lost' | 'back';
    readonly changes: readonly Change[];
    readonly before: { readonly read: boolean; readonly loss?: Loss | undefined };
    readonly after: { readonly read: boolean; readonly loss?: Loss | undefined };
    readonly cost: number; // bytes that keeping it takes, roughly
}

const nothingWatched: Watched = { elements: new Map(), read: false };

export function watched(state: State, watch: string): Watched {
    return state.get(watch) ?? nothingWatched;
}

// Documents come from JSON.parse, so members that were absent are absent, and the order of members is the sender's.
function same(a: Element | undefined, b: Element): boolean {
    return a !== undefined && JSON.stringify(a) === JSON.stringify(b);
}

function differences(before: ReadonlyMap<string, Element>, now: readonly Element[]): Change[] {
    const found: Change[] = [];
    const left = new Map(before);
    for (const after of now) {
        const known = before.get(after.id);
        left.delete(after.id);
        if (!same(known, after)) found.push({ id: after.id, before: known, after });
    }
    for (const [id, element] of left) found.push({ id, before: element });
    return found;
}

function lossOf(data: Document, time: number): Loss {
    const since = Date.parse(text(data, 'since'));
    return { service: text(data, 'service'), reason: text(data, 'reason'), since: Number.isNaN(since) ? time : since };
}

const entryCost = 300;

export interface Arrival {
    readonly watch: string;
    readonly event: string; // "snapshot", "changed", "removed", "lost" or "back"; of recordings "answer" in place of the first three
    readonly data: Document;
    readonly time: number;
    readonly size: number; // of its text, in characters; 0 of an "answer", which is measured by what it changes
}

// The step that an event of a watch means; nothing if it changes nothing.
function entryOf(state: State, { watch, event, data, time, size }: Arrival): Entry | undefined {
    const was = watched(state, watch);
    const before = { read: was.read, loss: was.loss };
    const make = (kind: Entry['kind'], changes: readonly Change[], after: Entry['after']): Entry => {
        return { time, watch, kind, changes, before, after, cost: entryCost + 2 * size };
    };
    switch (event) {
        case 'snapshot': {
            const changes = differences(was.elements, elements(data));
            return was.read && !was.loss && changes.length === 0 ? undefined : make('read', changes, { read: true });
        }
        case 'answer': {
            const found: Change[] = [];
            let characters = 0;
            for (const after of elements(data)) {
                const known = was.elements.get(after.id);
                if (same(known, after)) continue;
                found.push({ id: after.id, before: known, after });
                characters += JSON.stringify(after).length;
            }
            for (const id of Array.isArray(data['removed']) ? (data['removed'] as string[]) : []) {
                const known = was.elements.get(id);
                if (known) found.push({ id, before: known });
            }
            if (was.read && found.length === 0) return undefined;
            const entry = make(was.read ? 'changed' : 'read', found, { read: true, loss: was.loss });
            return { ...entry, cost: entry.cost + 2 * characters };
        }
        case 'changed': {
            const after = data['element'];
            if (!isDocument(after) || typeof after['id'] !== 'string') return undefined;
            const element = after as Element;
            const known = was.elements.get(element.id);
            return same(known, element)
                ? undefined
                : make('changed', [{ id: element.id, before: known, after: element }], before);
        }
        case 'removed': {
            const id = text(data, 'id');
            const known = was.elements.get(id);
            return known && make('changed', [{ id, before: known }], before);
        }
        case 'lost':
            return was.loss ? undefined : make('lost', [], { read: was.read, loss: lossOf(data, time) });
        case 'back':
            return was.loss && make('back', [], { read: was.read });
        default:
            return undefined;
    }
}

// Steps from one state to another. Each part of a state is copied once, at the first step that changes it.
class Steps {
    readonly next: Map<string, Watched>;
    private readonly open = new Map<string, Map<string, Element>>(); // the copies, which nobody else has yet

    constructor(from: State) {
        this.next = new Map(from);
    }

    step(entry: Entry, forward: boolean): void {
        const was = watched(this.next, entry.watch);
        let members = this.open.get(entry.watch);
        if (!members && entry.changes.length > 0) {
            members = new Map(was.elements);
            this.open.set(entry.watch, members);
        }
        for (const change of entry.changes) {
            const element = forward ? change.after : change.before;
            if (element) members?.set(change.id, element);
            else members?.delete(change.id);
        }
        const standing = forward ? entry.after : entry.before;
        this.next.set(entry.watch, { elements: members ?? was.elements, read: standing.read, loss: standing.loss });
    }
}

// The state after the entries were done in their order, or undone in the opposite one.
export function moved(state: State, entries: readonly Entry[], direction: 'do' | 'undo'): State {
    if (entries.length === 0) return state;
    const steps = new Steps(state);
    if (direction === 'do') for (const entry of entries) steps.step(entry, true);
    else for (let i = entries.length; i-- > 0;) steps.step(entries[i] as Entry, false);
    return steps.next;
}

// The state after these events, and the steps to it.
export function taken(state: State, arrivals: readonly Arrival[]): { state: State; entries: Entry[] } {
    const steps = new Steps(state);
    const entries: Entry[] = [];
    for (const arrival of arrivals) {
        const entry = entryOf(steps.next, arrival);
        if (!entry) continue;
        steps.step(entry, true);
        entries.push(entry);
    }
    return { state: entries.length === 0 ? state : steps.next, entries };
}
