// What has changed in an element, member by member.

import { type Document, isDocument, shown } from './documents';

export interface MemberChange {
    readonly path: string; // "resolution.width", "layers[12].zpos", "regionInfoSorted[3]"
    readonly before: unknown;
    readonly after: unknown;
}

const numbers = ['id', 'regionID'];

// By which member the objects of a list are told apart, so that one that was inserted does not count as a change of all that
// follow; nothing if they have none, or share one.
function keyOf(items: readonly unknown[]): string | undefined {
    return numbers.find((member) => {
        const seen = new Set(items.map((item) => (isDocument(item) ? item[member] : undefined)));
        return !seen.has(undefined) && seen.size === items.length;
    });
}

function compareLists(before: readonly unknown[], after: readonly unknown[], path: string, found: MemberChange[]): void {
    const key = keyOf(before);
    if (key === undefined || keyOf(after) !== key) {
        for (let i = 0; i < Math.max(before.length, after.length); ++i) compare(before[i], after[i], `${path}[${i}]`, found);
        return;
    }
    const byKey = (items: readonly unknown[]): Map<string, unknown> => {
        return new Map(items.map((item) => [shown((item as Document)[key]), item]));
    };
    const were = byKey(before);
    const are = byKey(after);
    for (const [name, item] of were) compare(item, are.get(name), `${path}[${name}]`, found);
    for (const [name, item] of are) if (!were.has(name)) compare(undefined, item, `${path}[${name}]`, found);
    const order = (one: Map<string, unknown>, other: Map<string, unknown>): string[] =>
        [...one.keys()].filter((name) => other.has(name));
    const orderBefore = order(were, are);
    const orderAfter = order(are, were);
    if (orderBefore.join() !== orderAfter.join())
        found.push({ path: `${path} order`, before: orderBefore.join(', '), after: orderAfter.join(', ') });
}

function compare(before: unknown, after: unknown, path: string, found: MemberChange[]): void {
    if (before === after) return;
    if (isDocument(before) && isDocument(after)) {
        for (const member of new Set([...Object.keys(before), ...Object.keys(after)])) {
            compare(before[member], after[member], path === '' ? member : `${path}.${member}`, found);
        }
    } else if (Array.isArray(before) && Array.isArray(after)) {
        compareLists(before, after, path, found);
    } else {
        found.push({ path, before, after });
    }
}

export function memberChanges(before: Document, after: Document): MemberChange[] {
    const found: MemberChange[] = [];
    compare(before, after, '', found);
    return found;
}
