// What a change was, in words.

import { memberChanges } from './diff';
import { type Document, shown, text, whole } from './documents';
import { addressOf, configurationId, watches } from './scene';
import { type Change, type Entry, gateway } from './state';

export interface Description {
    readonly what: string; // "Driver_Display/Low_Fuel"
    readonly words: string; // "visible: no → yes"
    readonly address: string | undefined; // of what it is about
}

const mostMembers = 4; // that are written out
const mostElements = 3; // likewise, where one answer has changed several

// What an element is called, and its address. `displays`: the names of those that are known.
function identify(watch: string, document: Document, displays: readonly string[]): { name: string; address: string } {
    const name = text(document, 'name');
    const id = text(document, 'id');
    switch (watch) {
        case watches.popups: {
            const display = text(document, 'display');
            return { name: `${display}/${name}`, address: addressOf('popups', display, name) };
        }
        case watches.placements:
        case watches.displayables: {
            const number = whole(document, 'displayableID') ?? (watch === watches.placements ? id : undefined);
            return { name: name || `#${number ?? '?'}`, address: addressOf('displayables', number ?? id) };
        }
        case watches.layers: {
            const display = displays.find((each) => configurationId(each) === id);
            return { name: display ?? id.slice(0, 8), address: addressOf('displays', display ?? id) };
        }
        default:
            return { name: name || id, address: addressOf('displays', name || id) };
    }
}

const kinds: Record<string, string> = {
    [watches.displays]: 'display',
    [watches.displayables]: 'displayable',
    [watches.layers]: 'layers of',
    [watches.popups]: 'popup',
    [watches.placements]: 'layers of displayable',
};

function kindOf(watch: string): string {
    return kinds[watch] ?? 'touch regions of';
}

function describeChange({ before, after }: Change, most: number): string {
    if (!before || !after) return after ? 'added' : 'removed';
    const members = memberChanges(before, after);
    const written = members.slice(0, most).map((member) => {
        if (member.before === undefined && typeof member.after === 'object') return `${member.path} added`;
        if (member.after === undefined) return `${member.path} removed`;
        return `${member.path}: ${shown(member.before)} → ${shown(member.after)}`;
    });
    return written.join(', ') + (members.length > most ? ` and ${members.length - most} more` : '');
}

// Of one answer: "Low_Fuel visible: yes → no; Incoming_Call visible: no → yes", or only how many where all are new, or gone.
function describeAll(watch: string, changes: readonly Change[], displays: readonly string[]): string {
    if (changes.every(({ before }) => !before)) return `${changes.length} added`;
    if (changes.every(({ after }) => !after)) return `${changes.length} removed`;
    const written = changes.slice(0, mostElements).map((change) => {
        const { name } = identify(watch, change.after ?? change.before ?? {}, displays);
        return `${name} ${describeChange(change, 2)}`;
    });
    const left = changes.length - written.length;
    return written.join('; ') + (left > 0 ? `; and ${left} more` : '');
}

export function describe(entry: Entry, displays: readonly string[]): Description {
    const { watch, changes } = entry;
    const about = changes.length === 1 ? (changes[0]?.after ?? changes[0]?.before) : undefined;
    const { name, address } = about ? identify(watch, about, displays) : { name: '', address: undefined };
    const source = watch === gateway ? 'gateway' : watch.replace(/^\/hmx/, '').slice(1);
    if (entry.kind === 'lost') return { what: source, words: `lost: ${entry.after.loss?.reason ?? ''}`, address: undefined };
    if (entry.kind === 'back') return { what: source, words: 'back', address: undefined };
    if (entry.kind === 'read' && !entry.before.read)
        return { what: source, words: about ? 'read' : `read, ${changes.length} in all`, address: undefined };
    const change = changes[0];
    if (entry.kind === 'changed' && change && !about) {
        const { address: first } = identify(watch, change.after ?? change.before ?? {}, displays);
        return { what: source, words: describeAll(watch, changes, displays), address: first };
    }
    if (!about || !change)
        return {
            what: source,
            words: changes.length === 0 ? 'read again, nothing has changed' : `read again, ${changes.length} have changed`,
            address,
        };
    return { what: `${kindOf(watch)} ${name}`, words: describeChange(change, mostMembers), address };
}

// "12:03:04.567", where clocks differ from UTC by so many milliseconds.
export function clock(time: number, fromUtc: number, fraction = true): string {
    return new Date(time + fromUtc).toISOString().slice(11, fraction ? 23 : 19);
}

export function localFromUtc(time: number): number {
    return -60_000 * new Date(time).getTimezoneOffset();
}

// "4 s", "2 min 3 s"
export function age(milliseconds: number): string {
    const seconds = Math.max(Math.round(milliseconds / 1000), 0);
    if (seconds < 60) return `${seconds} s`;
    const minutes = Math.floor(seconds / 60);
    return minutes < 60 ? `${minutes} min ${seconds % 60} s` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}
