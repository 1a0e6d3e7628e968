// Which input region receives a touch, and which it covers: the rules of `hmxctl hit` (man hmxctl, TOUCHES).
//
//  1. Regions are ordered by the zpos of their layer, highest first, and within a layer as the input manager lists them. A region
//     whose layer the display does not have, or has switched off, takes no part.
//  2. A region lies under the touch if its bounds hold the point: left and top edge belong to it, right and bottom edge do not.
//  3. Where no region of a layer holds the point, those count whose bounds, widened by `hitOutside`, do.
//  4. The topmost region under the touch receives it and covers the others. These receive it as well, from the top down, until
//     one is `exclusive`. A region with `dropEvent` swallows the touch, also from those below.
//  5. A region elsewhere with `notifyOutside` is told of the touch, unless it lies below an exclusive region that received it or
//     one that dropped it.
//  6. `translateInput` adds translateX and translateY to the coordinates that a region sees.
//  7. The topmost receiver takes the input focus, unless its `keepFocus` leaves the focus where it is.

import { type Document, flag, isDocument, object, type Point, type Rectangle, text, whole } from './documents';

export type Fate = 'receives' | 'drops' | 'keptOff';

export interface Hit {
    readonly region: number; // index into what was asked about
    readonly fate: Fate;
    readonly margin: boolean; // only its `hitOutside` margin was touched
    readonly delivered: Point; // where it sees the touch
    readonly takesFocus: boolean;
}

export interface HitResult {
    readonly under: readonly Hit[]; // the regions under the touch, topmost first
    readonly notified: readonly Hit[]; // told of a touch outside of them, topmost first
}

// A place in the order of layers that none of the platform's 32-bit numbers is behind: that of a layer without a zpos.
const lowest = -2_147_483_648;

// The entry of `layers` that a region or popup means by `name`: that of the name, or of the number.
export function findLayer(layers: readonly Document[], name: string): number {
    const byName = layers.findIndex((layer) => name !== '' && text(layer, 'name') === name);
    return byName >= 0 ? byName : layers.findIndex((layer) => whole(layer, 'id')?.toString() === name);
}

export function zposOf(layer: Document): number {
    return whole(layer, 'zpos') ?? lowest;
}

// The bounds of a region in the input manager's keys; nothing if it has none.
export function boundsOf(region: Document): Rectangle | undefined {
    if (!isDocument(region['bounds'])) return undefined;
    const bounds = object(region, 'bounds');
    const corner = object(bounds, 'pointMin');
    return {
        x: whole(corner, 'x') ?? 0,
        y: whole(corner, 'y') ?? 0,
        width: whole(bounds, 'width') ?? 0,
        height: whole(bounds, 'height') ?? 0,
    };
}

export function holds(bounds: Rectangle | undefined, at: Point, margin: Point = { x: 0, y: 0 }): boolean {
    if (!bounds || bounds.width <= 0 || bounds.height <= 0) return false;
    const within = (value: number, first: number, length: number, extra: number): boolean =>
        value >= first - extra && value < first + length + extra;
    return within(at.x, bounds.x, bounds.width, margin.x) && within(at.y, bounds.y, bounds.height, margin.y);
}

function marginOf(region: Document): Point | undefined {
    if (!isDocument(region['hitOutside'])) return undefined;
    const margin = object(region, 'hitOutside');
    return { x: Math.max(0, whole(margin, 'x') ?? 0), y: Math.max(0, whole(margin, 'y') ?? 0) };
}

function sum(a: number, b: number): number {
    return Math.min(Math.max(a + b, lowest), 2_147_483_647);
}

function delivered(region: Document, touch: Point): Point {
    if (!flag(region, 'translateInput')) return touch;
    return { x: sum(touch.x, whole(region, 'translateX') ?? 0), y: sum(touch.y, whole(region, 'translateY') ?? 0) };
}

// `regions`: in the input manager's keys, topmost first. `layers`: of the display, as listed, with "active": false if switched off.
export function hitTest(regions: readonly Document[], layers: readonly Document[], touch: Point): HitResult {
    const places = new Map<string, number>();
    const order: { index: number; region: Document; layer: number; zpos: number }[] = [];
    regions.forEach((region, index) => {
        const name = text(region, 'layer');
        const layer = places.get(name) ?? findLayer(layers, name);
        places.set(name, layer);
        const found = layers[layer];
        if (found && found['active'] !== false) order.push({ index, region, layer, zpos: zposOf(found) });
    });
    order.sort((a, b) => b.zpos - a.zpos || a.index - b.index);

    const inside = order.map(({ region }) => holds(boundsOf(region), touch));
    const hitLayers = new Set(order.filter((_, i) => inside[i]).map(({ layer }) => layer));
    const under: Hit[] = [];
    const notified: Hit[] = [];
    let open = true; // nothing above has kept the touch to itself
    order.forEach(({ index, region, layer }, i) => {
        const outside = inside[i] || hitLayers.has(layer) ? undefined : marginOf(region);
        const margin = outside !== undefined && holds(boundsOf(region), touch, outside);
        const hit: Hit = { region: index, fate: 'keptOff', margin, delivered: delivered(region, touch), takesFocus: false };
        if (!inside[i] && !margin) {
            if (open && flag(region, 'notifyOutside')) notified.push(hit);
            return;
        }
        if (!open) {
            under.push(hit);
            return;
        }
        const drops = flag(region, 'dropEvent');
        under.push({
            ...hit,
            fate: drops ? 'drops' : 'receives',
            takesFocus: !drops && under.length === 0 && !flag(region, 'keepFocus'),
        });
        open = !drops && !flag(region, 'exclusive');
    });
    return { under, notified };
}

// "receives it", "covered, drops it": in the words of `hmxctl hit`.
export function verdict(result: HitResult, hit: Hit): string {
    if (result.notified.includes(hit)) return 'told of it';
    const top = hit === result.under[0];
    if (hit.fate === 'receives') return top ? 'receives it' : 'covered, receives it too';
    if (hit.fate === 'drops') return top ? 'drops it' : 'covered, drops it';
    return 'covered';
}

export function notesOn(region: Document, hit: Hit, told: boolean): string[] {
    const notes: string[] = [];
    const note = (applies: boolean, words: string): void => {
        if (applies) notes.push(words);
    };
    note(flag(region, 'exclusive'), 'exclusive');
    note(hit.margin, 'in its margin');
    note(hit.takesFocus, 'takes the focus');
    note(hit.fate === 'receives' && flag(region, 'keepFocus'), 'keeps the focus where it is');
    note(flag(region, 'translateInput') && (hit.fate === 'receives' || told), 'translated');
    return notes;
}
