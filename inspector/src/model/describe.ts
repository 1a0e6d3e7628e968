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

const most = 4; // members that are written out

// What an element is called, and its address. `displays`: the names of those that are known.
function identify(watch: string, document: Document, displays: readonly string[]): { name: string; address: string } {
    const name = text(document, 'name');
    const id = text(document, 'id');
    switch (watch) {
        case watches.popups: {
            const display = text(document, 'display');
            return { name: `${display}/${name}`, address: addressOf('popups', display, name) };
        }
        case watches.displayables: {
            const number = whole(document, 'displayableID');
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
};

function kindOf(watch: string): string {
    return kinds[watch] ?? 'touch regions of';
}

function describeChange({ before, after }: Change): string {
    if (!before || !after) return after ? 'added' : 'removed';
    const members = memberChanges(before, after);
    const written = members.slice(0, most).map((member) => {
        if (member.before === undefined && typeof member.after === 'object') return `${member.path} added`;
        if (member.after === undefined) return `${member.path} removed`;
        return `${member.path}: ${shown(member.before)} → ${shown(member.after)}`;
    });
    return written.join(', ') + (members.length > most ? ` and ${members.length - most} more` : '');
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
    if (!about || !change)
        return {
            what: source,
            words: changes.length === 0 ? 'read again, nothing has changed' : `read again, ${changes.length} have changed`,
            address,
        };
    return { what: `${kindOf(watch)} ${name}`, words: describeChange(change), address };
}

// "12:03:04.567"
export function clock(time: number, fraction = true): string {
    const date = new Date(time);
    const two = (value: number): string => String(value).padStart(2, '0');
    const seconds = `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
    return fraction ? `${seconds}.${String(date.getMilliseconds()).padStart(3, '0')}` : seconds;
}

// "4 s", "2 min 3 s"
export function age(milliseconds: number): string {
    const seconds = Math.max(Math.round(milliseconds / 1000), 0);
    if (seconds < 60) return `${seconds} s`;
    const minutes = Math.floor(seconds / 60);
    return minutes < 60 ? `${minutes} min ${seconds % 60} s` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}
